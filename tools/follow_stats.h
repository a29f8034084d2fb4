// The once-a-second view of simulcast_follow --stats: per channel, the records and their rate,
// the discontinuities, the last start time, and what the records carry.
//
//   stats video records=250 rate=25.00 disc=0 last_start=100000000 aspect=4:3
//   stats audio records=250 rate=25.00 disc=0 last_start=100000000 peak_dBFS=-12.0,-12.0,-,...
//   stats captions records=250 rate=25.00 disc=0 last_start=100000000 entries=48 cc1_pairs=9
//   stats teletext records=250 rate=25.00 disc=0 last_start=100000000 lines=75 pages=888
//
// `disc` counts transport discontinuities after the first record, and records that carry their
// own discontinuity flag. Audio peaks are per pair over the last second, in dB below full scale
// ("-inf" for silence, "-" for a pair that isn't present); cc1_pairs counts the CEA-608 pairs of
// field 1 that aren't null, lines the teletext data units, over the last second.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "tools/record_summary.h"

namespace ovtx::tools::simulcast_follow::v1 {

// The peak of 16-bit samples as text: "-6.0" for 16384, "-inf" for 0.
std::string peakDbfs(int peak);

class ChannelStats {
  public:
    explicit ChannelStats(RecordKind kind) : m_kind(kind) { m_peaks.fill(-1); }

    // One record as read, `transportDiscontinuity` already ignored on a channel's first record.
    void add(bool transportDiscontinuity, const std::uint8_t* chunk, std::size_t bytes);
    // The line for the last `seconds` seconds; starts the next window.
    std::string takeLine(double seconds);

  private:
    void addVideo(const std::uint8_t* chunk);
    void addAudio(const std::uint8_t* chunk);
    void addCaptions(const std::uint8_t* chunk, std::size_t bytes);
    void addTeletext(const std::uint8_t* chunk, std::size_t bytes);

    RecordKind m_kind;
    std::mutex m_mutex;
    std::int64_t m_records = 0;
    std::int64_t m_windowRecords = 0;
    std::int64_t m_discontinuities = 0;
    std::int64_t m_lastStart = -1;
    std::string m_detail;            // what the last record says (aspect, entries, pages)
    std::array<int, 8> m_peaks{};    // per audio pair over the window; -1: not present
    std::int64_t m_windowItems = 0;  // caption pairs or teletext lines over the window
};

}  // namespace ovtx::tools::simulcast_follow::v1
