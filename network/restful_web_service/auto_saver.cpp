#include "network/restful_web_service/auto_saver.h"

#include <exception>
#include <utility>

namespace ovtx::network::restful_web_service::v3 {

AutoSaver::AutoSaver(log::i_logger::v0::ILogger* logger, std::function<void()> save,
                     std::function<void()> check, bool checkPeriodically,
                     std::chrono::milliseconds retryPause)
    : m_logger(logger),
      m_save(std::move(save)),
      m_check(std::move(check)),
      m_checkPeriodically(checkPeriodically),
      m_retryPause(retryPause),
      m_thread(std::make_unique<system::thread::v1::Thread>("auto_saver", [this] { run(); })) {}

AutoSaver::~AutoSaver() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_thread.reset();
}

void AutoSaver::OnChange() {
    {
        std::lock_guard lock(m_mutex);
        m_changed = true;
    }
    m_wake.notify_all();
}

void AutoSaver::run() {
    for (;;) {
        bool changed = false;
        {
            std::unique_lock lock(m_mutex);
            auto woken = [this] { return m_stopping || m_changed; };
            if (m_checkPeriodically) {
                m_wake.wait_for(lock, 5 * m_retryPause, woken);
            } else {
                m_wake.wait(lock, woken);
            }
            if (m_stopping) {
                return;
            }
            changed = std::exchange(m_changed, false);
        }
        if (!changed) {
            // The check saves too: a failure of it is a failed save, tried again at the next check.
            try {
                m_check();
            } catch (const std::exception& e) {
                m_logger->Log(0, "Full save unsuccessful : %s", e.what());
            }
            continue;
        }
        if (!saveWithRetries()) {
            return;
        }
    }
}

bool AutoSaver::saveWithRetries() {
    for (int attempt = 0; attempt < kTries; ++attempt) {
        try {
            m_save();
            return true;
        } catch (const std::exception& e) {
            m_logger->Log(0, "Full save unsuccessful : %s", e.what());
        }
        if (!pauseUnlessStopped(m_retryPause)) {
            return false;
        }
    }
    m_logger->Log(0, "Unsuccesful AutoSaving after %d tries", kTries);
    return true;
}

bool AutoSaver::pauseUnlessStopped(std::chrono::milliseconds pause) {
    std::unique_lock lock(m_mutex);
    return !m_wake.wait_for(lock, pause, [this] { return m_stopping; });
}

}  // namespace ovtx::network::restful_web_service::v3
