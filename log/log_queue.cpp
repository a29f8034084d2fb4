#include "log/log_queue.h"

#include <utility>

namespace ovtx::log::log_perf::v4 {

namespace {
constexpr const char* kOverflowText = "Overflowed message queue.";
}

void LogQueue::push(LogMessage message) {
    // The node is made outside the lock, so that the lock covers no allocation.
    std::list<LogMessage> node;
    node.push_back(std::move(message));
    {
        std::lock_guard lock(m_mutex);
        if (m_overflowed) {
            return;
        }
        if (m_length >= kLimit) {
            m_overflowed = true;
            node.front() = LogMessage{0, kOverflowText, currentTimestamp()};
        }
        m_messages.splice(m_messages.end(), node);
        ++m_length;
        ++m_announced;
    }
    m_wake.notify_one();
}

LogQueue::Wake LogQueue::wait(std::chrono::milliseconds timeout) {
    std::unique_lock lock(m_mutex);
    m_wake.wait_for(lock, timeout, [&] { return m_stopRequested || m_announced > 0; });
    if (m_stopRequested) {
        m_stopRequested = false;
        return Wake::Stop;
    }
    if (m_announced > 0) {
        --m_announced;
        return Wake::Message;
    }
    return Wake::Timeout;
}

std::optional<LogMessage> LogQueue::pop() {
    std::list<LogMessage> node;
    {
        std::lock_guard lock(m_mutex);
        if (m_messages.empty()) {
            return std::nullopt;
        }
        node.splice(node.end(), m_messages, m_messages.begin());
        --m_length;
        if (m_length == 0) {
            m_overflowed = false;
        }
    }
    return std::move(node.front());
}

void LogQueue::stop() {
    {
        std::lock_guard lock(m_mutex);
        m_stopRequested = true;
    }
    m_wake.notify_one();
}

std::size_t LogQueue::size() {
    std::lock_guard lock(m_mutex);
    return m_length;
}

}  // namespace ovtx::log::log_perf::v4
