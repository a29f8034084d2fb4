// The pattern source's teletext: page 888 as a subtitle page that reads "Beep" during each beep
// and is cleared otherwise.
//
// Every frame carries the page: its header (erase page, subtitle) and, during a beep, one boxed
// row with the word. A header of page 8FF follows, which ends the page's transmission at once so
// that a decoder shows it without waiting for the next frame. The record's descriptor announces
// page 888 as a subtitle page.
//
//   TeletextSource teletext;
//   void* chunk = teletextWriter.beginChunk();
//   teletext.writeRecord(static_cast<std::uint8_t*>(chunk), start, end);
//   teletextWriter.commitChunk();
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ovtx::pattern::pattern_source::v1 {

class TeletextSource {
  public:
    static constexpr int kMagazine = 8;
    static constexpr int kPage = 0x88;  // page 888, the number 136
    static constexpr int kSubtitleRow = 22;
    // VBI line offsets of the packets within field 1.
    static constexpr int kFirstLine = 7;

    TeletextSource();

    // Fills the teletext record for [start, end): "Beep" when `start` lies in a beep, the cleared
    // page otherwise.
    void writeRecord(std::uint8_t* chunk, std::int64_t start, std::int64_t end) const;

  private:
    std::vector<std::uint8_t> m_descriptor;
    std::vector<std::uint8_t> m_beepData;  // PES data field: identifier and data units
    std::vector<std::uint8_t> m_clearData;
};

}  // namespace ovtx::pattern::pattern_source::v1
