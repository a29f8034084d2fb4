// The teletext step of a capture slot: the teletext lines of the signal repackaged as the slot's
// TeletextRecord, the data units of a DVB teletext stream and the teletext_descriptor that the
// stream has shown so far.
//
// SD signals (PAL, NTSC) carry teletext on the VBI lines that the stream's line table names; each
// is sliced, checked for its clock run-in and kept under its index in the table, which is also
// the line offset its data unit tells. HD signals carry SMPTE 2031 packets (DID 0x41, SDID 0x08)
// in their ancillary data, kept under their line number. The descriptor list lives as long as the
// extraction, so one per engine:
//
//   TeletextExtraction teletext(api, report);
//   ... per slot, with the slot locked and a teletext chunk taken:
//   teletext.extract(slot, info.boardStandard, vbiLineTable, *record, start, end);
//   writer.commitChunk();
//
// A record holds at most kMaxTeletextDataUnits data units (32 in a capture chunk of 1608 bytes).
// The lines of a frame beyond that are left out of its record (told verbose), after their page
// headers have been learnt for the descriptor: a record never runs past its chunk.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "app/engine_report.h"
#include "encoding/subtitling/teletext_lines.h"
#include "simulcast/capture_records.h"
#include "system/sdi/deltacast_io/device_api.h"
#include "system/sdi/deltacast_io/line_reading.h"

namespace ovtx::app::sdi_tap::v1 {

inline constexpr std::size_t kMaxTeletextDataUnits =
    (simulcast::capture_records::v1::kMaxTeletextDataBytes - 1) /
    simulcast::capture_records::v1::kTeletextDataUnitBytes;

class TeletextExtraction {
  public:
    TeletextExtraction(system::sdi::deltacast_io::v1::DeviceApi& api, EngineReport& report);

    // Fills `record` (magic, lengths, times, descriptor, data) from the locked `slot` of a signal
    // of `boardStandard`; `lines` is the VBI line table the stream was set up with.
    void extract(system::sdi::deltacast_io::v1::DeviceHandle slot, std::uint32_t boardStandard,
                 const system::sdi::deltacast_io::v1::VbiLineTable& lines,
                 simulcast::capture_records::v1::TeletextRecord& record, std::int64_t start,
                 std::int64_t end);

    const encoding::subtitling::v1::TeletextDescriptorList& descriptors() const { return m_descriptors; }

  private:
    void readSdLines(system::sdi::deltacast_io::v1::DeviceHandle slot,
                     const system::sdi::deltacast_io::v1::VbiLineTable& lines);
    void readHdLines(system::sdi::deltacast_io::v1::DeviceHandle slot);
    void writeData(simulcast::capture_records::v1::TeletextRecord& record);

    system::sdi::deltacast_io::v1::DeviceApi& m_api;
    EngineReport& m_report;
    encoding::subtitling::v1::TeletextDescriptorList m_descriptors;
    // The lines of the slot in ascending key order, and the packets they came from; both kept to
    // reuse their room, so that a slot allocates nothing once they have grown.
    std::vector<std::pair<std::int32_t, encoding::subtitling::v1::TeletextLine>> m_lines;
    system::sdi::deltacast_io::v1::AncPacketsByLine m_packets;
};

}  // namespace ovtx::app::sdi_tap::v1
