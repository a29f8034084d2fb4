#include "log/performance_counters.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace ovtx::log::log_perf::v4 {

namespace {

constexpr std::uint64_t kPeriodLengthsMs[] = {864000000, 86400000, 43200000, 21600000,
                                              3600000,   1800000,  600000,   60000};

constexpr const char* kLeadingColumns[] = {"Cpu",
                                           "TotalCpu",
                                           "WorkingSet",
                                           "PrivateBytes",
                                           "NumBufferFull",
                                           "NumResync",
                                           "NumTsDiscontinuity",
                                           "CycleTime",
                                           "Deprecated",
                                           "Date",
                                           "NumDecPictures",
                                           "VirtualSize",
                                           "HandleCount",
                                           "NumPoliticChoices"};

constexpr const char* kTrailingColumns[] = {"LastDeltaNumOverAllBufferFull", "NumPeriodThresholdReached",
                                            "NeedRestart"};

std::uint64_t steadyMilliseconds() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
}

std::int64_t frequencyPercent(std::int64_t measured) {
    return measured < 0 || measured >= 100 ? 100 : measured;
}

void appendColumn(std::string& line, const std::string& value) {
    if (!line.empty()) {
        line += ',';
    }
    line += value;
}

template <typename Number>
void appendValue(std::string& line, Number value) {
    appendColumn(line, std::to_string(value));
}

}  // namespace

PerformanceCounters::PerformanceCounters(i_logger::v0::ILogger& logger,
                                         std::unique_ptr<system::process_stats::v1::IProcessStats> stats,
                                         TickSource tick)
    : m_logger(logger),
      m_stats(std::move(stats)),
      m_tick(tick ? std::move(tick) : TickSource(steadyMilliseconds)) {
    const std::uint64_t now = m_tick();
    for (std::uint64_t length : kPeriodLengthsMs) {
        m_periods.emplace(length, Period{length, now, 0, 0});
    }
}

void PerformanceCounters::IncResync() {
    std::lock_guard lock(m_countersMutex);
    ++m_numResync;
}

void PerformanceCounters::IncTsDiscontinuity() {
    std::lock_guard lock(m_countersMutex);
    ++m_numTsDiscontinuity;
}

void PerformanceCounters::IncDecPictures() {
    std::lock_guard lock(m_countersMutex);
    ++m_numDecPictures;
}

void PerformanceCounters::AddPoliticChoices(int count) {
    std::lock_guard lock(m_countersMutex);
    m_numPoliticChoices += count;
}

void PerformanceCounters::RegisterBufferFull(const std::string& name) {
    std::lock_guard lock(m_countersMutex);
    Pin pin;
    pin.limiter.start = m_tick();
    m_pins.emplace(name, pin);
}

void PerformanceCounters::countOverall(std::uint64_t now) {
    std::lock_guard lock(m_overallMutex);
    ++m_overall;
    for (auto& [length, period] : m_periods) {
        if (now - period.start >= period.lengthMs) {
            period.lastCount = period.runningCount;
            period.runningCount = 0;
            period.start = now;
        } else {
            ++period.runningCount;
        }
    }
}

void PerformanceCounters::NotifyBufferFull(const std::string& name) {
    const std::uint64_t now = m_tick();
    countOverall(now);

    // The message is logged with the pin map held; Log never takes this lock, so no cycle.
    std::lock_guard lock(m_countersMutex);
    const auto found = m_pins.find(name);
    if (found == m_pins.end()) {
        m_logger.Log(kBufferFullLevel, "Pin output buffer full : %s", name.c_str());
        return;
    }
    Pin& pin = found->second;
    ++pin.limiter.count;
    std::int64_t taken = 0;
    if (now - pin.limiter.start >= pin.limiter.periodMs) {
        pin.limiter.start = now;
        taken = pin.limiter.count;
        pin.limiter.count = 0;
    }
    ++pin.count;
    if (taken == 1) {
        m_logger.Log(kBufferFullLevel, "Pin output buffer full : %s", name.c_str());
    } else if (taken > 1) {
        m_logger.Log(kBufferFullLevel, "Pin output buffer full : %s (x%d)", name.c_str(),
                     static_cast<int>(taken));
    }
}

void PerformanceCounters::computeOverallResults(PerformanceSnapshot& snapshot) {
    std::lock_guard lock(m_overallMutex);
    snapshot.lastDeltaNumOverAllBufferFull = m_overall - m_overallAtLastReport;
    m_overallAtLastReport = m_overall;
    snapshot.numPeriodThresholdReached =
        static_cast<std::uint64_t>(std::count_if(m_periods.begin(), m_periods.end(), [](const auto& entry) {
            return entry.second.lastCount >= kOverallThreshold;
        }));
    snapshot.needRestart = snapshot.lastDeltaNumOverAllBufferFull >= kOverallThreshold;
}

PerformanceSnapshot PerformanceCounters::takeSnapshot(const Timestamp& now) {
    PerformanceSnapshot snapshot;
    snapshot.date = now.seconds;
    if (m_stats) {
        const auto sample = m_stats->sample();
        const std::int64_t frequency = frequencyPercent(sample.frequencyPercent);
        const std::int64_t processors = std::max<std::int64_t>(1, m_stats->logicalProcessors());
        snapshot.totalCpu = std::clamp<std::int64_t>(
            std::clamp<std::int64_t>(sample.totalCpuPercent, 0, 100) * frequency / 100, 0, 100);
        snapshot.processCpu = std::min<std::int64_t>(
            std::clamp<std::int64_t>(sample.processCpuPercent / processors, 0, 100) * frequency / 100, 100);
        snapshot.workingSet = sample.workingSet;
        snapshot.privateBytes = sample.privateBytes;
        snapshot.virtualSize = sample.virtualSize;
        snapshot.handleCount = sample.handleCount;
        snapshot.memoryLoadPercent = sample.memoryLoadPercent;
    }
    {
        std::lock_guard lock(m_countersMutex);
        snapshot.numResync = m_numResync;
        snapshot.numTsDiscontinuity = m_numTsDiscontinuity;
        snapshot.numDecPictures = m_numDecPictures;
        snapshot.numPoliticChoices = m_numPoliticChoices;
        for (const auto& [name, pin] : m_pins) {
            snapshot.numBufferFull += pin.count;
            snapshot.bufferFullByPin.emplace(name, pin.count);
        }
    }
    computeOverallResults(snapshot);
    return snapshot;
}

std::string PerformanceCounters::reportLine(const PerformanceSnapshot& snapshot) {
    std::string line;
    if (!m_headerWritten) {
        for (const char* name : kLeadingColumns) {
            appendColumn(line, name);
        }
        for (const auto& [pin, count] : snapshot.bufferFullByPin) {
            appendColumn(line, "buffer_full_" + pin);
        }
        for (const char* name : kTrailingColumns) {
            appendColumn(line, name);
        }
    } else {
        appendValue(line, snapshot.processCpu);
        appendValue(line, snapshot.totalCpu);
        appendValue(line, snapshot.workingSet);
        appendValue(line, snapshot.privateBytes);
        appendValue(line, snapshot.numBufferFull);
        appendValue(line, snapshot.numResync);
        appendValue(line, snapshot.numTsDiscontinuity);
        appendValue(line, 0);  // CycleTime
        appendValue(line, 0);  // Deprecated
        appendValue(line, snapshot.date);
        appendValue(line, snapshot.numDecPictures);
        appendValue(line, snapshot.virtualSize);
        appendValue(line, snapshot.handleCount);
        appendValue(line, snapshot.numPoliticChoices);
        for (const auto& [pin, count] : snapshot.bufferFullByPin) {
            appendValue(line, count);
        }
        appendValue(line, snapshot.lastDeltaNumOverAllBufferFull);
        appendValue(line, snapshot.numPeriodThresholdReached);
        appendValue(line, snapshot.needRestart ? 1 : 0);
    }
    m_headerWritten = true;
    m_lastPoliticChoices = snapshot.numPoliticChoices;
    return line;
}

}  // namespace ovtx::log::log_perf::v4
