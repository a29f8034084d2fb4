#include "app/teletext_extraction.h"

#include <optional>

#include "app/capture_lines.h"
#include "app/verbose_line_report.h"
#include "cpp_utils/cpp_tools/safe_array.h"
#include "system/sdi/deltacast_io/line_reading.h"

namespace ovtx::app::sdi_tap::v1 {

namespace {

namespace device = system::sdi::deltacast_io::v1;
namespace records = simulcast::capture_records::v1;
namespace ttx = encoding::subtitling::v1;
using cpp_utils::cpp_tools::v1::SafeArray;

constexpr std::uint8_t kTeletextDid = 0x41;
constexpr std::uint8_t kTeletextSdid = 0x08;
constexpr int kListFullLevel = 1;

}  // namespace

TeletextExtraction::TeletextExtraction(device::DeviceApi& api, EngineReport& report)
    : m_api(api), m_report(report) {
    m_lines.reserve(device::kVbiLineEntries);
}

void TeletextExtraction::extract(device::DeviceHandle slot, std::uint32_t boardStandard,
                                 const device::VbiLineTable& lines, records::TeletextRecord& record,
                                 std::int64_t start, std::int64_t end) {
    m_lines.clear();
    if (isStandardDefinition(boardStandard)) {
        readSdLines(slot, lines);
    } else {
        readHdLines(slot);
    }
    record.magic = records::kTeletextMagic;
    record.start = start;
    record.end = end;
    writeData(record);
    if (m_lines.empty()) {
        record.descriptorLength =
            static_cast<std::uint32_t>(ttx::writeTeletextDescriptor(record.descriptor, {}));
    } else {
        record.descriptorLength = static_cast<std::uint32_t>(
            ttx::writeTeletextDescriptor(record.descriptor, m_descriptors.entries()));
    }
}

void TeletextExtraction::readSdLines(device::DeviceHandle slot, const device::VbiLineTable& lines) {
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const std::int32_t line = static_cast<std::int32_t>(lines[index].line);
        ttx::TeletextLine bytes{};
        const device::VbiLineRead read =
            device::readVbiLine(m_api, slot, line, device::kVbiSelector, false, device::kTeletextBitRate,
                                ttx::kTeletextSlicedBits, bytes);
        switch (read.outcome) {
            case device::VbiLineOutcome::LineNotRead:
                m_report(false, "Cannot get VBI Data. Result = 0x%08X", read.code);
                continue;
            case device::VbiLineOutcome::NullLine:
                m_report(false, "exe VBI Teletext Subtitle NOT found... Line %d empty", line);
                continue;
            case device::VbiLineOutcome::NotDigitalized:
                m_report(false, "exe VBI Teletext Subtitle NOT digitilize... Line %d empty", line);
                continue;
            case device::VbiLineOutcome::Sliced:
                break;
        }
        if (bytes[0] != ttx::kTeletextClockRunIn || bytes[1] != ttx::kTeletextClockRunIn) {
            m_report(false, "Line %d doesn't contained VBI Teletext", line);
            continue;
        }
        m_lines.emplace_back(static_cast<std::int32_t>(index), bytes);
    }
}

void TeletextExtraction::readHdLines(device::DeviceHandle slot) {
    device::readAncPackets(m_api, slot, kTeletextDid, kTeletextSdid, verboseLineReport(m_report), m_packets);
    for (const auto& [line, packet] : m_packets) {
        const std::optional<ttx::TeletextLine> bytes =
            ttx::teletextLineFromAncPacket(SafeArray<unsigned short>(packet.words, packet.wordCount));
        if (!bytes) {
            continue;
        }
        // One line, one key: a second packet on the same line takes the place of the first.
        if (!m_lines.empty() && m_lines.back().first == line) {
            m_lines.back().second = *bytes;
        } else {
            m_lines.emplace_back(line, *bytes);
        }
    }
}

void TeletextExtraction::writeData(records::TeletextRecord& record) {
    std::size_t units = 0;
    std::uint8_t dataUnitId = ttx::kDataUnitEbuNonSubtitle;
    for (const auto& [key, line] : m_lines) {
        if (ttx::teletextLineAddress(line).row == 0) {
            dataUnitId = ttx::dataUnitIdOfHeader(line);
        }
        if (units < kMaxTeletextDataUnits) {
            ttx::writeCapturedDataUnit(record.data + 1 + units * records::kTeletextDataUnitBytes, dataUnitId,
                                       ttx::lineOffsetByte(key), line);
            ++units;
        }
        if (m_descriptors.learn(line) == ttx::DescriptorOutcome::ListFull) {
            m_report.logger().Log(kListFullLevel, "Trying to add teletext descriptor, but list is full");
        }
    }
    if (m_lines.size() > units) {
        m_report(false, "Teletext record full: %zu line(s) of this frame left out", m_lines.size() - units);
    }
    record.dataLength = 0;
    if (units > 0) {
        record.data[0] = records::kTeletextDataIdentifier;
        record.dataLength = static_cast<std::uint32_t>(1 + units * records::kTeletextDataUnitBytes);
    }
}

}  // namespace ovtx::app::sdi_tap::v1
