// A reference decoder for the tests: libzvbi's CEA-608 caption decoder and teletext page cache,
// fed with what a pattern record carries, read back as text.
//
//   ZvbiTestDecoder decoder;
//   decoder.feedCaptionPair(0x94, 0x2F);
//   EXPECT_EQ(decoder.captionText(), "BEEP");
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

struct vbi_decoder;

namespace ovtx::pattern::pattern_source::v1 {

class ZvbiTestDecoder {
  public:
    ZvbiTestDecoder();
    ~ZvbiTestDecoder();
    ZvbiTestDecoder(const ZvbiTestDecoder&) = delete;
    ZvbiTestDecoder& operator=(const ZvbiTestDecoder&) = delete;

    // Each feed is one video frame to the decoder, which expects 25 to 30 of them a second and
    // takes anything else for dropped frames; the feeds are therefore stamped 1/25 s apart,
    // whatever the frame rate of the records.

    // One CEA-608 byte pair of field 1 (line 21), parity bits included.
    void feedCaptionPair(std::uint8_t first, std::uint8_t second);
    // The PES data field of a teletext record: data identifier and data units of 46 bytes, whose
    // packets are fed as lines of teletext system B.
    void feedTeletextData(std::span<const std::uint8_t> data);

    // The text that caption channel 1 shows, with runs of blanks and empty lines dropped.
    std::string captionText();
    // The text of teletext page `page` (0x888 for 888) below its header row, or nothing when the
    // page was never received.
    std::optional<std::string> teletextText(int page);

  private:
    double nextFrameTime();

    vbi_decoder* m_decoder;
    double m_time = 0;
};

}  // namespace ovtx::pattern::pattern_source::v1
