// The bounded queue between the callers of `Log` and the logger's thread.
//
// It holds at most 1000 messages. The message that finds it full is replaced by one line of level
// 0, "Overflowed message queue.", and from then on every message is dropped until the consumer has
// emptied the queue; so a burst loses messages but never grows memory, and the loss shows once.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <mutex>
#include <optional>
#include <string>

#include "log/log_sink.h"

namespace ovtx::log::log_perf::v4 {

struct LogMessage {
    int level = 0;
    std::string text;
    Timestamp timestamp;
};

class LogQueue {
  public:
    static constexpr std::size_t kLimit = 1000;

    // What ended a wait.
    enum class Wake { Stop, Message, Timeout };

    // Appends the message, or the overflow line, or drops it (see above). Never blocks for long.
    void push(LogMessage message);

    // Waits until stop is asked, a message is announced or the timeout passes, in that order of
    // precedence. Each announcement is handed to exactly one Message wake.
    Wake wait(std::chrono::milliseconds timeout);

    // Takes the front message; the overflow mark is cleared when this leaves the queue empty.
    std::optional<LogMessage> pop();

    // Asks the waiting consumer to stop; the request is consumed by the wait that reports it.
    void stop();

    std::size_t size();

  private:
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::list<LogMessage> m_messages;
    std::size_t m_length = 0;
    std::size_t m_announced = 0;  // messages released to the consumer and not yet claimed by a wait
    bool m_overflowed = false;
    bool m_stopRequested = false;
};

}  // namespace ovtx::log::log_perf::v4
