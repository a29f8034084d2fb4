// CEA-608 captions and teletext pages read as text, through libzvbi: what a consumer tool needs
// to turn a run's caption and teletext records into subtitle files, and what the tests use as the
// reference decoder.
//
//   SubtitleDecoder decoder;
//   decoder.feedCaptionPair(0x94, 0x2F);          // one CEA-608 pair of field 1 per frame
//   std::string cc1 = decoder.captionText();      // "BEEP"
//   decoder.feedTeletextData(pesDataField);       // a teletext record's data field
//   auto page = decoder.teletextText(0x888);      // page 888, below its header row
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

struct vbi_decoder;

namespace ovtx::encoding::subtitle_text::v1 {

class SubtitleDecoder {
  public:
    SubtitleDecoder();
    ~SubtitleDecoder();
    SubtitleDecoder(const SubtitleDecoder&) = delete;
    SubtitleDecoder& operator=(const SubtitleDecoder&) = delete;

    // Each feed is one video frame to the decoder, which expects 25 to 30 of them a second and
    // takes anything else for dropped frames; the feeds are therefore stamped 1/25 s apart,
    // whatever the frame rate of the records. markGap() tells it that frames were lost.

    // One CEA-608 byte pair of field 1 (line 21), parity bits included.
    void feedCaptionPair(std::uint8_t first, std::uint8_t second);
    // The PES data field of a teletext record: data identifier and data units of 46 bytes, whose
    // packets are fed as lines of teletext system B.
    void feedTeletextData(std::span<const std::uint8_t> data);
    // Frames were lost: captions and pages in transmission are dropped, as after a signal loss.
    void markGap();

    // The text that caption channel 1 shows: words separated by single blanks.
    std::string captionText();
    // The text of teletext page `page` (0x888 for 888) below its header row, words separated by
    // single blanks, or nothing when the page was never received.
    std::optional<std::string> teletextText(int page);

  private:
    double nextFrameTime();

    vbi_decoder* m_decoder;
    double m_time = 0;
};

// The libzvbi page number of a teletext page written as three digits, "888" -> 0x888: magazine 1
// to 8, then two hexadecimal digits (decimal ones for every page a viewer can key in). Nothing for
// any other text.
std::optional<int> parseTeletextPage(std::string_view text);

}  // namespace ovtx::encoding::subtitle_text::v1
