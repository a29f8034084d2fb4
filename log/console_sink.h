// The console sink: coloured log lines on the standard error stream.
//
// Each line reads "<time> <text>" (time as formatLogTime gives it). Lines above the threshold
// (initially 3, so everything) are left out. On a terminal the line takes the colour of its level:
// 0 bright red, 1 bright yellow, 2 the default colour, 3 bright green; the colour stays set until
// the next line, and the destructor sets the default back. Off a terminal no escape codes appear.
// Lines are written without waiting: when standard error is not being read (a full pipe), they are
// dropped rather than holding up the logger (see system/console/standard_error.h).
//
//   ConsoleSink console;
//   logger.AddSink(&console);
#pragma once

#include <mutex>

#include "log/log_sink.h"
#include "system/console/standard_error.h"

namespace ovtx::log::log_perf::v4 {

class ConsoleSink : public ILogSink {
  public:
    // Writes to the standard error stream, with colours when it is a terminal.
    ConsoleSink();
    // Writes to `output`, with colours only if `colours` is set.
    ConsoleSink(system::console::v1::NonBlockingWriter& output, bool colours);
    ~ConsoleSink() override;

    ConsoleSink(const ConsoleSink&) = delete;
    ConsoleSink& operator=(const ConsoleSink&) = delete;

    void Log(int level, const Timestamp* when, const char* text) override;

    // Lines whose level is above `threshold` are left out.
    void SetThreshold(int threshold);

  private:
    system::console::v1::NonBlockingWriter& m_output;
    bool m_colours;
    std::mutex m_mutex;
    int m_threshold = 3;
};

}  // namespace ovtx::log::log_perf::v4
