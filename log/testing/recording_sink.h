// A sink for tests: remembers every line it receives, can hold the logger's thread inside `Log`
// until released, and lets a test wait for a number of lines.
//
//   RecordingSink sink;
//   logger.AddSink(&sink);
//   logger.Log(2, "hello");
//   ASSERT_TRUE(sink.waitForLines(1));
//   EXPECT_EQ(sink.lines()[0].text, "hello");
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "log/log_sink.h"

namespace ovtx::log::log_perf::v4::testing {

class RecordingSink : public ILogSink {
  public:
    struct Line {
        int level;
        Timestamp when;
        std::string text;
    };

    void Log(int level, const Timestamp* when, const char* text) override {
        std::unique_lock lock(m_mutex);
        m_lines.push_back(Line{level, *when, text});
        m_changed.notify_all();
        m_changed.wait(lock, [&] { return !m_holding; });
    }

    // From now on, `Log` keeps the logger's thread until `release`.
    void hold() {
        std::lock_guard lock(m_mutex);
        m_holding = true;
    }

    void release() {
        std::lock_guard lock(m_mutex);
        m_holding = false;
        m_changed.notify_all();
    }

    // Waits up to `timeout` until at least `count` lines have arrived.
    bool waitForLines(std::size_t count, std::chrono::seconds timeout = std::chrono::seconds(60)) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, timeout, [&] { return m_lines.size() >= count; });
    }

    std::vector<Line> lines() {
        std::lock_guard lock(m_mutex);
        return m_lines;
    }

    std::vector<std::string> texts() {
        std::lock_guard lock(m_mutex);
        std::vector<std::string> texts;
        for (const auto& line : m_lines) {
            texts.push_back(line.text);
        }
        return texts;
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Line> m_lines;
    bool m_holding = false;
};

}  // namespace ovtx::log::log_perf::v4::testing
