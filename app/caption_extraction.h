// The caption step of a capture slot: whatever carries closed captions in the signal, put into the
// slot's CaptionRecord.
//
// NTSC carries CEA-608 as waveforms on lines 21 and 284, read here through the board's bit
// slicer into two entries (field 1 and field 2), each the null pair 0x80 0x80 when its line can't
// be read. HD signals carry CEA-708 caption distribution packets (DID 0x61, SDID 0x01) in their
// ancillary data; the last line that holds one decides the entries. PAL carries none of these,
// and its record has no entries. Whatever fails, the record is whole and can be published:
//
//   CaptionExtraction captions(api, report);
//   ... per slot, with the slot locked and a caption chunk taken:
//   captions.extract(slot, info.boardStandard, *record, start, end);
//   writer.commitChunk();
#pragma once

#include <cstdint>

#include "app/engine_report.h"
#include "simulcast/capture_records.h"
#include "system/sdi/deltacast_io/device_api.h"
#include "system/sdi/deltacast_io/line_reading.h"

namespace ovtx::app::sdi_tap::v1 {

class CaptionExtraction {
  public:
    CaptionExtraction(system::sdi::deltacast_io::v1::DeviceApi& api, EngineReport& report);

    // Fills `record` (times, count and entries) from the locked `slot` of a signal of
    // `boardStandard`. A packet that fails to parse gives verbose "Error while parsing
    // ClosedCaption  : <reason>" and a count of 0.
    void extract(system::sdi::deltacast_io::v1::DeviceHandle slot, std::uint32_t boardStandard,
                 simulcast::capture_records::v1::CaptionRecord& record, std::int64_t start, std::int64_t end);

  private:
    void readLine21(system::sdi::deltacast_io::v1::DeviceHandle slot, std::int32_t line,
                    simulcast::capture_records::v1::CaptionEntry& entry);
    void readDistributionPackets(system::sdi::deltacast_io::v1::DeviceHandle slot,
                                 simulcast::capture_records::v1::CaptionRecord& record);

    system::sdi::deltacast_io::v1::DeviceApi& m_api;
    EngineReport& m_report;
    system::sdi::deltacast_io::v1::AncPacketsByLine m_packets;  // kept to reuse its room
};

}  // namespace ovtx::app::sdi_tap::v1
