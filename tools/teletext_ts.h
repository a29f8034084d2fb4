// A run's teletext as an MPEG transport stream that DVB receivers, ffmpeg's teletext decoder and
// libzvbi read: one program whose only stream is the teletext PES (private_stream_1, EN 300 472)
// with the record's teletext_descriptor in the PMT, and PCR on the same PID.
//
//   TeletextTsFile ts;
//   ts.open("ttx.ts");                                 // PAT and PMT at once
//   ts.write(descriptor, dataField, time);             // one record, time in 100 ns from the start
//   ts.close();
//
// PTS is the record's time plus one second; PCR runs 40 ms behind it (receivers present teletext at
// most about 100 ms after its arrival, and ffmpeg clamps a PTS further ahead of PCR).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "tools/media_files.h"

namespace ovtx::tools::simulcast_follow::v1 {

inline constexpr std::size_t kTsPacketSize = 188;
inline constexpr std::uint16_t kPatPid = 0x0000;
inline constexpr std::uint16_t kPmtPid = 0x1000;
inline constexpr std::uint16_t kTeletextPid = 0x0100;
inline constexpr std::uint16_t kProgramNumber = 1;

// CRC-32 of MPEG-2 systems (polynomial 0x04C11DB7, initial value all ones, no reflection).
std::uint32_t mpegCrc32(std::span<const std::uint8_t> bytes);

// The program association section naming kPmtPid, CRC included.
std::vector<std::uint8_t> patSection();
// The program map section: one stream of type 0x06 on kTeletextPid carrying `descriptor` (a
// teletext_descriptor, tag 0x46), PCR on the same PID, CRC included.
std::vector<std::uint8_t> pmtSection(std::span<const std::uint8_t> descriptor, std::uint8_t version);

// A teletext PES packet: stream_id 0xBD, PTS, a header of 0x24 bytes and the data field
// (data_identifier and data units); stuffing data units bring the packet to a multiple of 184
// bytes, as EN 300 472 requires. Only whole data units of `dataField` are taken.
std::vector<std::uint8_t> teletextPes(std::span<const std::uint8_t> dataField, std::int64_t pts90kHz);

// Transport packets of `payload` on `pid`, the first with payload_unit_start_indicator; a short
// last packet is filled with adaptation-field stuffing. `continuity` counts on.
std::vector<std::uint8_t> tsPackets(std::uint16_t pid, std::span<const std::uint8_t> payload,
                                    std::uint8_t& continuity);
// A packet of adaptation field alone carrying `pcr27MHz`; `continuity` is the counter of the PID's
// last packet, which a packet without payload keeps.
std::vector<std::uint8_t> pcrPacket(std::uint16_t pid, std::int64_t pcr27MHz, std::uint8_t continuity);

class TeletextTsFile {
  public:
    static constexpr std::int64_t kPtsOffset90kHz = 90000;
    static constexpr std::int64_t kPcrLead90kHz = 3600;
    // The tables are sent again after this many records.
    static constexpr int kTableInterval = 10;

    bool open(const std::string& path);
    // One record: its descriptor (tag, length, entries) and its PES data field, which may be
    // empty; `time` is its start, in 100 ns units from the start of the dump.
    bool write(std::span<const std::uint8_t> descriptor, std::span<const std::uint8_t> dataField,
               std::int64_t time);
    bool close() { return m_file.close(); }

  private:
    bool writeBytes(const std::vector<std::uint8_t>& bytes);
    bool writeTables();

    OutputFile m_file;
    std::vector<std::uint8_t> m_descriptor{0x46, 0x00};
    std::uint8_t m_version = 0;
    std::uint8_t m_patContinuity = 0;
    std::uint8_t m_pmtContinuity = 0;
    std::uint8_t m_teletextContinuity = 0;
    int m_sinceTables = 0;
};

}  // namespace ovtx::tools::simulcast_follow::v1
