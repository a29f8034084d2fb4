// A logger for tests: formats each message at once and keeps it as "<level> <text>".
//
//   CapturingLogger logger;
//   unit.run(&logger);
//   EXPECT_EQ(logger.lines(), (std::vector<std::string>{"1 Pin output buffer full : video"}));
//   EXPECT_EQ(logger.count("2 Opened input stream"), 1u);   // lines that are exactly this
//   EXPECT_EQ(logger.countContaining("Auto detected"), 2u);
#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "log/i_logger.h"

namespace ovtx::log::log_perf::v4::testing {

class CapturingLogger : public i_logger::v0::ILogger {
  public:
    void Log(int level, const char* format, ...) override __attribute__((format(printf, 3, 4))) {
        char text[1040];
        va_list args;
        va_start(args, format);
        std::vsnprintf(text, sizeof text, format, args);
        va_end(args);
        std::lock_guard lock(m_mutex);
        m_lines.push_back(std::to_string(level) + " " + text);
    }

    std::vector<std::string> lines() {
        std::lock_guard lock(m_mutex);
        return m_lines;
    }

    std::size_t count(const std::string& line) {
        std::lock_guard lock(m_mutex);
        return static_cast<std::size_t>(std::count(m_lines.begin(), m_lines.end(), line));
    }

    std::size_t countContaining(const std::string& text) {
        std::lock_guard lock(m_mutex);
        return static_cast<std::size_t>(
            std::count_if(m_lines.begin(), m_lines.end(),
                          [&](const std::string& line) { return line.find(text) != std::string::npos; }));
    }

  private:
    std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

}  // namespace ovtx::log::log_perf::v4::testing
