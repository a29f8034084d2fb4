// The daemon's logger: a queued log front end with performance counters.
//
// `Log` formats on the caller's thread (at most 1039 characters are kept), turns the text into one
// line (line feeds become blanks, carriage returns go), stamps it and queues it; it never waits for
// a disk or a console. One thread owned by the logger hands each queued message to every sink, in
// the order of the sink set, outside the callers' lock. The queue holds 1000 messages: see
// log_queue.h for what a burst beyond that loses. Messages are not filtered here; sinks filter.
// The same thread takes a performance snapshot once a second (performance_counters.h); with no
// performance sink or listener set, the snapshot goes nowhere. On destruction every message that
// was accepted still reaches the sinks.
//
// Start-up and tear-down of the daemon:
//
//   ConsoleSink console;
//   LogFileSink file(50000);
//   LibLogPerf logger;
//   logger.AddSink(&console);
//   ...  // find the installation root
//   file.SetFile(root + "/Logs/sdi_tap." + portName + ".log");
//   logger.AddSink(&file);
//   ...  // destroyed in reverse order: logger, file, console
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "log/i_buffer_full_notifier.h"
#include "log/i_logger.h"
#include "log/log_queue.h"
#include "log/log_sink.h"
#include "log/performance_counters.h"
#include "system/process_stats/process_stats.h"
#include "system/thread/thread.h"

namespace ovtx::log::log_perf::v4 {

// A logger that also counts what the performance line reports.
struct ILogPerf : public i_logger::v0::ILogger, public i_buffer_full_notifier::v0::IBufferFullNotifier {
    // Takes the snapshot and writes the performance line; called by the logger's thread.
    virtual void ReportPerformance() = 0;
    virtual void IncResync() = 0;
    virtual void IncTsDiscontinuity() = 0;
    virtual void IncDecPictures() = 0;
    virtual void AddPoliticChoices(int count) = 0;
};

class LibLogPerf : public ILogPerf {
  public:
    static constexpr std::size_t kFormatBufferSize = 1040;

    // Starts the logger's thread with the /proc reader of the process figures.
    LibLogPerf();
    // For tests: other process figures, another report period, another clock for the counters.
    LibLogPerf(std::unique_ptr<system::process_stats::v1::IProcessStats> stats,
               std::chrono::milliseconds reportPeriod, PerformanceCounters::TickSource tick = {});
    // Stops the thread after it has handed every queued message to the sinks.
    ~LibLogPerf() override;

    LibLogPerf(const LibLogPerf&) = delete;
    LibLogPerf& operator=(const LibLogPerf&) = delete;

    // Safe from any thread; never blocks on a sink.
    void Log(int level, const char* format, ...) override __attribute__((format(printf, 3, 4)));

    void ReportPerformance() override;
    void IncResync() override;
    void IncTsDiscontinuity() override;
    void IncDecPictures() override;
    void AddPoliticChoices(int count) override;
    void RegisterBufferFull(const std::string& name) override;
    void NotifyBufferFull(const std::string& name) override;

    // Adds a sink, which must outlive the logger; null is ignored. Sinks cannot be removed.
    void AddSink(ILogSink* sink);
    // Where the performance lines go (level 2); null, the default, sends them nowhere.
    void SetPerformanceSink(ILogSink* sink);
    // Who receives each snapshot; null, the default, means nobody.
    void SetPerformanceListener(IPerformanceListener* listener);

  private:
    void run();
    void dispatch(const LogMessage& message);

    std::mutex m_logMutex;  // the lock of Log; also guards the sink set
    std::set<ILogSink*> m_sinks;
    std::vector<ILogSink*> m_dispatchSinks;  // the logger thread's copy of m_sinks
    LogQueue m_queue;
    PerformanceCounters m_counters;
    std::chrono::milliseconds m_reportPeriod;
    std::chrono::steady_clock::time_point m_lastReport;
    std::mutex m_performanceMutex;  // guards the performance sink and listener
    ILogSink* m_performanceSink = nullptr;
    IPerformanceListener* m_performanceListener = nullptr;
    std::unique_ptr<system::thread::v1::Thread> m_thread;  // last: starts once the rest exists
};

}  // namespace ovtx::log::log_perf::v4
