// What one input frame of a simulated port carries, drawn from the port's scenario: the moving
// picture in each buffer layout, the audio pairs, caption pairs, teletext packets, WSS bits and
// the ancillary packets that carry them on HD signals.
//
//   std::optional<FrameShape> shape = shapeOf(0, 0);                 // 1080p25
//   PictureRenderer pictures;
//   std::vector<std::uint8_t> buffer;
//   pictures.render(*shape, kPackingPacked8Bit, frame, buffer);
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "encoding/subtitling/cea608.h"
#include "encoding/subtitling/teletext_coding.h"
#include "system/sdi/deltacast_io/device_api.h"
#include "system/sdi/simulated_board/scenario.h"

namespace ovtx::system::sdi::simulated_board::v1 {

// The picture and rate of a board standard.
struct FrameShape {
    std::uint32_t standard = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
    bool interlaced = false;
    std::int64_t rateNumerator = 25;
    std::int64_t rateDenominator = 1;
    bool sd() const { return standard == 6 || standard == 7; }
    bool ntsc() const { return standard == 7; }
};

// Nothing for a standard the board can't lock to.
std::optional<FrameShape> shapeOf(std::uint32_t standard, std::uint32_t clockDivisor);

// Whether a board packs its buffers as planes (board type 6 with at least four channels).
bool planarCapable(const deltacast_io::v1::BoardInfoEx& board);

// Colour bars with a white bar that moves across and a grey band that moves down, one step a
// frame, so that every frame differs from the one before.
class PictureRenderer {
  public:
    // Fills `buffer` with frame `frame` in `packing`. Interlaced pictures come field after field;
    // a 525-line buffer has the board's blank lines around its fields (3 above the first field, 4
    // between the fields).
    void render(const FrameShape& shape, std::uint32_t packing, std::int64_t frame,
                std::vector<std::uint8_t>& buffer);

  private:
    void prepare(const FrameShape& shape);

    std::int32_t m_width = 0;
    std::vector<std::uint8_t> m_barsRow;  // Cb Y Cr Y
    std::vector<std::uint8_t> m_rowA;
    std::vector<std::uint8_t> m_rowB;
};

// Samples of a pair in input frame `frameInSegment` of a stretch at `shape`'s rate: the cadence a
// real embedder gives (1601, 1602, 1601, 1602, 1602 at 48 kHz and 29.97).
std::uint32_t samplesInFrame(std::uint32_t rate, const FrameShape& shape, std::int64_t frameInSegment);

// Fills the audio description of a slot: for each pair its status and its samples (16-bit stereo)
// into the buffer that the caller gave its even channel.
void fillAudio(const std::array<AudioPairSpec, kAudioPairs>& pairs, const FrameShape& shape,
               std::int64_t frameInSegment, std::int64_t frame, deltacast_io::v1::AudioInfo& audio);

// The CEA-608 pairs of both fields, frame by frame: each caption is loaded as pop-on text from
// its frame on and shown by "end of caption".
class CaptionTrack {
  public:
    explicit CaptionTrack(const std::vector<CaptionSpec>& captions);
    encoding::subtitling::v1::Cea608Pair pairAt(int field, std::int64_t frame) const;

  private:
    std::map<std::int64_t, encoding::subtitling::v1::Cea608Pair> m_fields[2];
};

// The teletext packets of one frame: every page's header and rows, and packet 8/30 with the
// initial page; at most `capacity`, taken in turn when the pages hold more.
std::vector<encoding::subtitling::v1::TeletextPacket> teletextPackets(const TeletextSpec& teletext,
                                                                      std::int64_t frame,
                                                                      std::size_t capacity);

// The WSS bits of a frame; nothing before the first change.
std::optional<std::uint16_t> wssAt(const std::vector<WssChange>& changes, std::int64_t frame);

// Ancillary words hold their data byte in the low byte and 0 above it.

// A caption distribution packet carrying the two CEA-608 pairs, padded to the cc_count of the rate.
std::vector<std::uint16_t> captionDistributionPacket(const FrameShape& shape, std::uint16_t sequence,
                                                     encoding::subtitling::v1::Cea608Pair field1,
                                                     encoding::subtitling::v1::Cea608Pair field2);

// The words of an SMPTE 2031 packet for one teletext packet sent on VBI line offset `lineOffset`.
std::vector<std::uint16_t> teletextAncWords(const encoding::subtitling::v1::TeletextPacket& packet,
                                            bool subtitle, int lineOffset);

}  // namespace ovtx::system::sdi::simulated_board::v1
