#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <string>
#include <vector>

#include "log/log_perf.h"
#include "system/console/standard_error.h"

namespace ovtx::log::log_perf::v4 {

namespace {

using system::console::v1::standardErrorWriter;

// One line per message: line feeds become blanks, carriage returns go.
std::string cleanText(const char* text) {
    std::string cleaned;
    for (const char* at = text; *at != '\0'; ++at) {
        if (*at == '\n') {
            cleaned += ' ';
        } else if (*at != '\r') {
            cleaned += *at;
        }
    }
    return cleaned;
}

}  // namespace

LibLogPerf::LibLogPerf()
    : LibLogPerf(system::process_stats::v1::makeProcessStats(), std::chrono::seconds(1)) {}

LibLogPerf::LibLogPerf(std::unique_ptr<system::process_stats::v1::IProcessStats> stats,
                       std::chrono::milliseconds reportPeriod, PerformanceCounters::TickSource tick)
    : m_counters(*this, std::move(stats), std::move(tick)),
      m_reportPeriod(reportPeriod),
      m_lastReport(std::chrono::steady_clock::now()) {
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    m_thread = std::make_unique<system::thread::v1::Thread>("sdi_logger", [this] { run(); });
}

LibLogPerf::~LibLogPerf() {
    m_queue.stop();
    m_thread.reset();
}

void LibLogPerf::Log(int level, const char* format, ...) {
    std::lock_guard lock(m_logMutex);
    const Timestamp now = currentTimestamp();
    char buffer[kFormatBufferSize];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    buffer[kFormatBufferSize - 1] = '\0';
    m_queue.push(LogMessage{level, cleanText(buffer), now});
}

void LibLogPerf::AddSink(ILogSink* sink) {
    if (sink == nullptr) {
        return;
    }
    std::lock_guard lock(m_logMutex);
    m_sinks.insert(sink);
}

void LibLogPerf::SetPerformanceSink(ILogSink* sink) {
    std::lock_guard lock(m_performanceMutex);
    m_performanceSink = sink;
}

void LibLogPerf::SetPerformanceListener(IPerformanceListener* listener) {
    std::lock_guard lock(m_performanceMutex);
    m_performanceListener = listener;
}

void LibLogPerf::run() {
    while (true) {
        const auto now = std::chrono::steady_clock::now();
        const auto due = m_lastReport + m_reportPeriod;
        const auto timeout = due > now ? std::chrono::ceil<std::chrono::milliseconds>(due - now)
                                       : std::chrono::milliseconds(0);
        const LogQueue::Wake wake = m_queue.wait(timeout);
        if (wake == LogQueue::Wake::Stop) {
            break;
        }
        if (wake == LogQueue::Wake::Message) {
            if (auto message = m_queue.pop()) {
                dispatch(*message);
            }
        } else {
            m_lastReport = std::chrono::steady_clock::now();
            try {
                ReportPerformance();
            } catch (const std::exception& e) {
                standardErrorWriter().write(std::string("Performance report failed: ") + e.what() + "\n");
            }
        }
    }
    while (auto message = m_queue.pop()) {
        dispatch(*message);
    }
}

void LibLogPerf::dispatch(const LogMessage& message) {
    {
        // Reusing the vector keeps allocation out of the callers' lock.
        std::lock_guard lock(m_logMutex);
        m_dispatchSinks.assign(m_sinks.begin(), m_sinks.end());
    }
    for (ILogSink* sink : m_dispatchSinks) {
        try {
            sink->Log(message.level, &message.timestamp, message.text.c_str());
        } catch (const std::exception& e) {
            standardErrorWriter().write(std::string("Log sink failed: ") + e.what() + "\n");
        }
    }
}

void LibLogPerf::ReportPerformance() {
    const Timestamp now = currentTimestamp();
    const PerformanceSnapshot snapshot = m_counters.takeSnapshot(now);
    ILogSink* sink = nullptr;
    IPerformanceListener* listener = nullptr;
    {
        std::lock_guard lock(m_performanceMutex);
        sink = m_performanceSink;
        listener = m_performanceListener;
    }
    if (listener != nullptr) {
        listener->OnPerformance(snapshot.processCpu, snapshot.memoryLoadPercent, snapshot);
    }
    const std::string line = m_counters.reportLine(snapshot);
    if (sink != nullptr) {
        sink->Log(2, &now, line.c_str());
    }
}

void LibLogPerf::IncResync() {
    m_counters.IncResync();
}
void LibLogPerf::IncTsDiscontinuity() {
    m_counters.IncTsDiscontinuity();
}
void LibLogPerf::IncDecPictures() {
    m_counters.IncDecPictures();
}
void LibLogPerf::AddPoliticChoices(int count) {
    m_counters.AddPoliticChoices(count);
}
void LibLogPerf::RegisterBufferFull(const std::string& name) {
    m_counters.RegisterBufferFull(name);
}
void LibLogPerf::NotifyBufferFull(const std::string& name) {
    m_counters.NotifyBufferFull(name);
}

}  // namespace ovtx::log::log_perf::v4
