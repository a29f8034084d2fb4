// Where log lines end: the sink and retriever interfaces, and the time stamp of a line.
//
// The logger (log_perf.h) calls every registered sink from its own thread with the level, the
// time stamp and the cleaned text of each message; a sink filters by level itself.
//
//   struct MySink : ILogSink {
//       void Log(int level, const Timestamp* when, const char* text) override {
//           std::printf("%s %s\n", formatLogTime(*when).c_str(), text);
//       }
//   };
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ovtx::log::log_perf::v4 {

// The moment a message was logged: seconds since 1970 and the milliseconds within that second.
struct Timestamp {
    std::int64_t seconds = 0;
    std::uint16_t milliseconds = 0;
};

// The current wall-clock time.
Timestamp currentTimestamp();

// The time as every log line shows it: "%.19s.%03d" from the C library's ctime text (local time,
// without the year) and the milliseconds, for instance "Sat Nov 21 13:35:23.042".
std::string formatLogTime(const Timestamp& when);

struct ILogSink {
    virtual ~ILogSink() = default;
    // Called on the logger's thread only; `text` holds one line without a line end.
    virtual void Log(int level, const Timestamp* when, const char* text) = 0;
};

// One remembered log line.
struct HistoryEntry {
    std::int32_t level = 0;
    std::int64_t timeMs = 0;    // milliseconds since 1970
    std::string formattedTime;  // as formatLogTime gives it
    std::string text;
};

// Reads the recent lines a sink remembers, by sequence number. Safe from any thread.
struct ILogRetriever {
    // Clips [first, last] to the remembered numbers; a negative index counts from the end (-1 is
    // the newest line). Returns false when the clipped range is empty. Throws std::runtime_error
    // "History is empty" when nothing is remembered.
    virtual bool GetRange(std::int64_t first, std::int64_t last, std::int64_t& firstOut,
                          std::int64_t& lastOut) = 0;
    // The remembered lines numbered first to last (negative indices as for GetRange), ascending.
    virtual std::vector<std::pair<std::int64_t, HistoryEntry>> GetEntries(std::int64_t first,
                                                                          std::int64_t last) = 0;
    virtual ~ILogRetriever() = default;
};

}  // namespace ovtx::log::log_perf::v4
