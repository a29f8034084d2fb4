// Reads a daemon's log file back, for end-to-end tests: the lines in writing order, as the file
// sink rebuilds them after a restart (numbered afresh from 0 for a file that never wrapped).
//
//   const auto lines = readLogFile(root + "/Logs/sdi_tap.0.log");
//   EXPECT_TRUE(containsText(lines, "API initialisation Failure"));
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "log/log_file_sink.h"

namespace ovtx::log::log_perf::v4::testing {

// The file's lines, oldest first; nothing when the file does not exist. Read it once the writer
// has ended: the reader takes the file over for the time of the call.
inline std::vector<HistoryEntry> readLogFile(const std::string& path, std::size_t limit = 50000) {
    std::vector<HistoryEntry> lines;
    if (!std::filesystem::exists(path)) {
        return lines;
    }
    LogFileSink reader(limit);
    reader.SetFile(path);
    for (auto& [sequence, entry] : reader.GetEntries(0, -1)) {
        lines.push_back(std::move(entry));
    }
    return lines;
}

inline bool containsText(const std::vector<HistoryEntry>& lines, const std::string& text) {
    return std::any_of(lines.begin(), lines.end(),
                       [&](const HistoryEntry& line) { return line.text == text; });
}

}  // namespace ovtx::log::log_perf::v4::testing
