// The process's performance figures and the counters other subsystems feed, as one
// comma-separated line a second.
//
// The first line holds the column names, every later one the values:
//
//   Cpu,TotalCpu,WorkingSet,PrivateBytes,NumBufferFull,NumResync,NumTsDiscontinuity,CycleTime,
//   Deprecated,Date,NumDecPictures,VirtualSize,HandleCount,NumPoliticChoices,buffer_full_<pin>...,
//   LastDeltaNumOverAllBufferFull,NumPeriodThresholdReached,NeedRestart
//
// Pins registered after the names line get value columns only. Full-buffer notifications are also
// counted over eight sliding periods (ten days down to one minute); LastDeltaNumOverAllBufferFull
// is the number of notifications since the previous line, NumPeriodThresholdReached the number of
// periods whose last finished count reached 1000, and NeedRestart is 1 when the delta since the
// previous line reached 1000.
//
// `LibLogPerf` (log_perf.h) owns one of these; it is a class of its own so that it can be driven
// with a fake clock and fake process figures.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "log/i_logger.h"
#include "log/log_sink.h"
#include "system/process_stats/process_stats.h"

namespace ovtx::log::log_perf::v4 {

struct PerformanceSnapshot {
    std::int64_t processCpu = 0;  // percent of the machine, scaled by the frequency
    std::int64_t totalCpu = 0;    // percent of the machine, scaled by the frequency
    std::uint64_t workingSet = 0;
    std::uint64_t privateBytes = 0;
    std::uint64_t virtualSize = 0;
    std::uint64_t handleCount = 0;
    std::uint32_t memoryLoadPercent = 0;
    std::int64_t date = 0;  // seconds since 1970
    std::uint64_t numBufferFull = 0;
    std::uint64_t numResync = 0;
    std::uint64_t numTsDiscontinuity = 0;
    std::uint64_t numDecPictures = 0;
    std::int64_t numPoliticChoices = 0;
    std::map<std::string, std::uint64_t> bufferFullByPin;
    std::uint64_t lastDeltaNumOverAllBufferFull = 0;
    std::uint64_t numPeriodThresholdReached = 0;
    bool needRestart = false;
};

// Receives each snapshot as it is taken.
struct IPerformanceListener {
    virtual ~IPerformanceListener() = default;
    virtual void OnPerformance(std::int64_t processCpu, std::uint32_t memoryLoadPercent,
                               const PerformanceSnapshot& snapshot) = 0;
};

class PerformanceCounters {
  public:
    // Milliseconds of a monotonic clock.
    using TickSource = std::function<std::uint64_t()>;

    static constexpr int kBufferFullLevel = 1;
    static constexpr std::uint64_t kLimiterPeriodMs = 10000;
    static constexpr std::uint64_t kOverallThreshold = 1000;

    // Buffer-full messages go to `logger`. A null `tick` uses the steady clock.
    PerformanceCounters(i_logger::v0::ILogger& logger,
                        std::unique_ptr<system::process_stats::v1::IProcessStats> stats,
                        TickSource tick = {});

    void IncResync();
    void IncTsDiscontinuity();
    void IncDecPictures();
    void AddPoliticChoices(int count);
    void RegisterBufferFull(const std::string& name);
    void NotifyBufferFull(const std::string& name);

    // Samples the process and copies the counters.
    PerformanceSnapshot takeSnapshot(const Timestamp& now);

    // The names on the first call, the snapshot's values on every later one.
    std::string reportLine(const PerformanceSnapshot& snapshot);

  private:
    struct Limiter {
        std::uint64_t periodMs = kLimiterPeriodMs;
        std::uint64_t start = 0;
        std::int64_t count = 0;
    };
    struct Pin {
        std::uint64_t count = 0;
        Limiter limiter;
    };
    struct Period {
        std::uint64_t lengthMs = 0;
        std::uint64_t start = 0;
        std::uint64_t lastCount = 0;
        std::uint64_t runningCount = 0;
    };

    void countOverall(std::uint64_t now);
    void computeOverallResults(PerformanceSnapshot& snapshot);

    i_logger::v0::ILogger& m_logger;
    std::unique_ptr<system::process_stats::v1::IProcessStats> m_stats;
    TickSource m_tick;

    std::mutex m_countersMutex;  // the counters and the pins
    std::uint64_t m_numResync = 0;
    std::uint64_t m_numTsDiscontinuity = 0;
    std::uint64_t m_numDecPictures = 0;
    std::int64_t m_numPoliticChoices = 0;
    std::map<std::string, Pin> m_pins;

    std::mutex m_overallMutex;  // the overall count and its periods
    std::uint64_t m_overall = 0;
    std::uint64_t m_overallAtLastReport = 0;
    std::map<std::uint64_t, Period> m_periods;

    bool m_headerWritten = false;
    std::int64_t m_lastPoliticChoices = 0;
};

}  // namespace ovtx::log::log_perf::v4
