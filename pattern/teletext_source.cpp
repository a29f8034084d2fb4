#include "pattern/teletext_source.h"

#include <cstring>
#include <string>

#include "encoding/subtitling/teletext_coding.h"
#include "pattern/beep_timing.h"
#include "simulcast/capture_records.h"

namespace ovtx::pattern::pattern_source::v1 {

namespace records = ovtx::simulcast::capture_records::v1;
namespace ttx = ovtx::encoding::subtitling::v1;

namespace {

constexpr int kTerminatorPage = 0xFF;

ttx::TeletextPacket subtitleHeader(int page) {
    ttx::TeletextPageHeader header;
    header.magazine = TeletextSource::kMagazine;
    header.page = page;
    header.erasePage = true;
    header.subtitle = true;
    header.suppressHeader = true;
    header.magazineSerial = true;
    return ttx::pageHeaderPacket(header);
}

// "Beep" in a box, so that a decoder shows it over the picture as a subtitle.
ttx::TeletextPacket beepRow() {
    const std::string text = {static_cast<char>(ttx::kTeletextAlphaWhite),
                              static_cast<char>(ttx::kTeletextStartBox),
                              static_cast<char>(ttx::kTeletextStartBox),
                              'B',
                              'e',
                              'e',
                              'p',
                              static_cast<char>(ttx::kTeletextEndBox),
                              static_cast<char>(ttx::kTeletextEndBox)};
    return ttx::displayRowPacket(TeletextSource::kMagazine, TeletextSource::kSubtitleRow, text);
}

std::vector<std::uint8_t> dataField(const std::vector<ttx::TeletextPacket>& packets) {
    std::vector<std::uint8_t> data(1 + packets.size() * ttx::kTeletextDataUnitSize);
    data[0] = ttx::kTeletextDataIdentifier;
    for (std::size_t i = 0; i < packets.size(); ++i) {
        const int line = TeletextSource::kFirstLine + static_cast<int>(i);
        ttx::writeTeletextDataUnit(data.data() + 1 + i * ttx::kTeletextDataUnitSize,
                                   ttx::kDataUnitEbuSubtitle, ttx::lineOffsetByte(line), packets[i]);
    }
    return data;
}

}  // namespace

TeletextSource::TeletextSource()
    : m_descriptor(2 + ttx::kTeletextDescriptorEntrySize),
      m_beepData(dataField({subtitleHeader(kPage), beepRow(), subtitleHeader(kTerminatorPage)})),
      m_clearData(dataField({subtitleHeader(kPage), subtitleHeader(kTerminatorPage)})) {
    const ttx::TeletextDescriptorEntry page{
        {'u', 'n', 'd'}, ttx::kTeletextTypeSubtitle, kMagazine & 7, static_cast<std::uint8_t>(kPage)};
    ttx::writeTeletextDescriptor(m_descriptor.data(), {&page, 1});
}

void TeletextSource::writeRecord(std::uint8_t* chunk, std::int64_t start, std::int64_t end) const {
    const std::vector<std::uint8_t>& data = isInBeep(start) ? m_beepData : m_clearData;
    auto* record = reinterpret_cast<records::TeletextRecord*>(chunk);
    record->magic = records::kTeletextMagic;
    record->descriptorLength = static_cast<std::uint32_t>(m_descriptor.size());
    record->dataLength = static_cast<std::uint32_t>(data.size());
    record->start = start;
    record->end = end;
    std::memcpy(record->descriptor, m_descriptor.data(), m_descriptor.size());
    std::memcpy(record->data, data.data(), data.size());
}

}  // namespace ovtx::pattern::pattern_source::v1
