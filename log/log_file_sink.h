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
// A file never keeps the sink from starting. One whose records can't be read (a number field that
// is no number) is moved aside as "<name>.corrupt-<UTC time>" and a new file is started. With a
// size limit, a file far over it (written without the limit, or under a larger one) is moved aside
// as "<name>.oversize-<UTC time>" and the new file starts with its newest lines, half the limit's
// worth, so that opening reads at most about the limit. Either way the sink says so, naming both
// files, in the new file (level 1) and to its notice handler (standard error by default).
//
//   LogFileSink file(50000);
//   file.SetFileSizeLimit(kDaemonLogFileSizeLimit);
//   file.SetFile(root + "/Logs/sdi_tap.0.log");
//   logger.AddSink(&file);
//   auto newest = file.GetEntries(-10, -1);
#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "log/log_sink.h"

namespace ovtx::log::log_perf::v4 {

// The size limit of the daemon's log file: 8 MiB hold the 50000 lines of its history with texts of
// up to about 110 bytes, and open in well under a second.
inline constexpr std::uint32_t kDaemonLogFileSizeLimit = 8 * 1024 * 1024;

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
    // How far a file may pass its size limit before it counts as over it: a wrapped file keeps the
    // record that passed the limit at its end, and a record is at most about 1100 bytes.
    static constexpr std::int64_t kLimitAllowance = 4096;

    // No file is open until SetFile; `historyLimit` lines are remembered.
    explicit LogFileSink(std::size_t historyLimit);

    LogFileSink(const LogFileSink&) = delete;
    LogFileSink& operator=(const LogFileSink&) = delete;

    // Opens `path` (creating it with an empty header when missing), rebuilds the history from it
    // and positions writing at its header's position. Does nothing if `path` is open already and
    // the stream is good; an empty path closes the file. A file that can't be read or is far over
    // the size limit is moved aside (see above). Throws std::ios_base::failure when the file
    // cannot be opened, and std::runtime_error when a file to be moved aside can't be.
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
    // Set it before SetFile, so that a file far over the limit is handled when it is opened.
    void SetFileSizeLimit(std::uint32_t limit) { m_fileSizeLimit = limit; }

    // Receives each notice of a file moved aside; the default writes it as a line to std::cerr.
    void SetNoticeHandler(std::function<void(const std::string&)> handler) {
        m_noticeHandler = std::move(handler);
    }

  private:
    void rebuildHistory(const std::string& path, std::int64_t writePosition);
    // Both move the file aside, start a new one and give the notice; the first gives nothing for a
    // file within the limit.
    std::string replaceOversizeFile(const std::string& path);
    std::string replaceUnreadableFile(const std::string& path, const std::string& reason);
    void report(const std::string& notice);
    void writeHeader();

    std::mutex m_mutex;  // guards the threshold and the file name
    std::uint32_t m_fileSizeLimit = 0;
    int m_threshold = 3;
    std::string m_fileName;
    std::fstream m_stream;
    std::int64_t m_nextSequence = 0;
    LogHistory m_history;
    std::function<void(const std::string&)> m_noticeHandler;
};

}  // namespace ovtx::log::log_perf::v4
