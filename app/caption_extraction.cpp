#include "app/caption_extraction.h"

#include "app/capture_lines.h"
#include "app/verbose_line_report.h"
#include "cpp_utils/cpp_tools/safe_array.h"
#include "encoding/subtitling/caption_data.h"
#include "system/sdi/deltacast_io/line_reading.h"

namespace ovtx::app::sdi_tap::v1 {

namespace {

namespace device = system::sdi::deltacast_io::v1;
namespace records = simulcast::capture_records::v1;
namespace cc = encoding::subtitling::v1;
using cpp_utils::cpp_tools::v1::SafeArray;

constexpr std::int32_t kField1CaptionLine = 21;
constexpr std::int32_t kField2CaptionLine = 284;
constexpr std::uint8_t kCaptionDid = 0x61;
constexpr std::uint8_t kCaptionSdid = 0x01;
constexpr std::uint32_t kWellFormedMarker = 31;
constexpr std::uint32_t kNullByte = 128;  // the null pair of CEA-608, parity set

records::CaptionEntry nullEntry(std::uint32_t ccType) {
    return {kWellFormedMarker, 1, ccType, kNullByte, kNullByte};
}

}  // namespace

CaptionExtraction::CaptionExtraction(device::DeviceApi& api, EngineReport& report)
    : m_api(api), m_report(report) {}

void CaptionExtraction::extract(device::DeviceHandle slot, std::uint32_t boardStandard,
                                records::CaptionRecord& record, std::int64_t start, std::int64_t end) {
    record.start = start;
    record.end = end;
    record.count = 0;
    if (boardStandard == kNtscBoardStandard) {
        record.count = 2;
        record.entries[0] = nullEntry(0);
        record.entries[1] = nullEntry(1);
        readLine21(slot, kField1CaptionLine, record.entries[0]);
        readLine21(slot, kField2CaptionLine, record.entries[1]);
    } else if (boardStandard != kPalBoardStandard) {
        readDistributionPackets(slot, record);
    }
}

void CaptionExtraction::readLine21(device::DeviceHandle slot, std::int32_t line,
                                   records::CaptionEntry& entry) {
    std::uint8_t sliced[4] = {};
    const device::VbiLineRead read =
        device::readVbiLine(m_api, slot, line, device::kCaptionLineSelector, false, device::kCaptionBitRate,
                            cc::kLine21SlicedBits, sliced);
    if (read.outcome != device::VbiLineOutcome::Sliced || read.bits < cc::kLine21SlicedBits) {
        return;
    }
    const cc::Cea608Pair pair = cc::cea608PairFromLine21(sliced);
    entry.ccData1 = pair.first;
    entry.ccData2 = pair.second;
}

void CaptionExtraction::readDistributionPackets(device::DeviceHandle slot, records::CaptionRecord& record) {
    device::readAncPackets(m_api, slot, kCaptionDid, kCaptionSdid, verboseLineReport(m_report), m_packets);
    try {
        cc::CcDataList list;
        std::int32_t lineParsed = 0;
        for (const auto& [line, packet] : m_packets) {
            if (line == lineParsed) {
                continue;  // only a line's first packet counts
            }
            lineParsed = line;
            cc::parseCaptionDistributionPacket(SafeArray<unsigned short>(packet.words, packet.wordCount),
                                               list);
        }
        for (std::size_t i = 0; i < list.count; ++i) {
            const cc::CcData& data = list.entries[i];
            record.entries[i] = {data.markerBits, data.valid, data.type, data.data1, data.data2};
        }
        record.count = list.count;
    } catch (const std::exception& failure) {
        m_report(false, "Error while parsing ClosedCaption  : %s", failure.what());
        record.count = 0;
    }
}

}  // namespace ovtx::app::sdi_tap::v1
