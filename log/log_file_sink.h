// The file sink: a machine-readable log file, optionally used as a ring, and a history of recent
// lines in memory that `ILogRetriever` reads.
//
// File layout (CR LF line ends, the same bytes on every platform):
//
//   0x0000ABCD<CR><LF>                                   header: where the next record goes
//   0;Sat Nov 21 13:35:23.042;1795268123042;2;text<CR><LF>
//   1;...                                                 sequence;time;ms since 1970;level;text
//
// The header is rewritten after every record. With a size limit, writing goes back to the first
// record (byte 12) once the end has passed the limit, and overwrites the oldest lines. When a file
// is opened again, the history is rebuilt from it, oldest line first; an unwrapped file is
// numbered afresh from 0, a wrapped one from the number found at its write position.
//
//   LogFileSink file(50000);
//   file.SetFile(root + "/Logs/sdi_tap.0.log");
//   logger.AddSink(&file);
//   auto newest = file.GetEntries(-10, -1);
#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "log/log_sink.h"

namespace ovtx::log::log_perf::v4 {

// Recent lines by sequence number, at most `limit` of them: the oldest make room for new ones.
class LogHistory {
  public:
    explicit LogHistory(std::size_t limit) : m_limit(limit) {}

    void insert(std::int64_t sequence, HistoryEntry entry);
    void clear();
    bool getRange(std::int64_t first, std::int64_t last, std::int64_t& firstOut, std::int64_t& lastOut);
    std::vector<std::pair<std::int64_t, HistoryEntry>> getEntries(std::int64_t first, std::int64_t last);

  private:
    std::mutex m_mutex;
    std::size_t m_limit;
    std::map<std::int64_t, HistoryEntry> m_entries;
};

class LogFileSink : public ILogSink, public ILogRetriever {
  public:
    // The first record position: the header line's length.
    static constexpr std::int64_t kFirstRecordPosition = 12;

    // No file is open until SetFile; `historyLimit` lines are remembered.
    explicit LogFileSink(std::size_t historyLimit);

    LogFileSink(const LogFileSink&) = delete;
    LogFileSink& operator=(const LogFileSink&) = delete;

    // Opens `path` (creating it with an empty header when missing), rebuilds the history from it
    // and positions writing at its header's position. Does nothing if `path` is open already and
    // the stream is good; an empty path closes the file. Throws std::ios_base::failure when the
    // file cannot be opened, and std::invalid_argument / std::out_of_range ("invalid stoll
    // argument", "stoi argument out of range" ...) for a record whose numbers cannot be read.
    void SetFile(const std::string& path);

    // Writes one record if the level is not above the threshold, and remembers it. A stream that
    // has failed is reopened with the next record.
    void Log(int level, const Timestamp* when, const char* text) override;

    bool GetRange(std::int64_t first, std::int64_t last, std::int64_t& firstOut,
                  std::int64_t& lastOut) override;
    std::vector<std::pair<std::int64_t, HistoryEntry>> GetEntries(std::int64_t first,
                                                                  std::int64_t last) override;

    // Lines whose level is above `threshold` are left out (initially 3).
    void SetThreshold(int threshold);
    // A limit of 0 (the default) lets the file grow; otherwise writing wraps to the first record
    // once the write position has passed the limit.
    void SetFileSizeLimit(std::uint32_t limit) { m_fileSizeLimit = limit; }

  private:
    void rebuildHistory(const std::string& path, std::int64_t writePosition);
    void writeHeader();

    std::mutex m_mutex;  // guards the threshold and the file name
    std::uint32_t m_fileSizeLimit = 0;
    int m_threshold = 3;
    std::string m_fileName;
    std::fstream m_stream;
    std::int64_t m_nextSequence = 0;
    LogHistory m_history;
};

}  // namespace ovtx::log::log_perf::v4
