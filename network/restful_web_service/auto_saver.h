// Keeps a web service's tree on disk: saves it in the background after changes.
//
// `OnChange` only marks the tree as changed and returns at once, so a request pays nothing for
// saving. The saver's own thread then calls the save function. A failed save is logged and tried
// again after the retry pause, up to the number of tries; after the last failure the saver gives
// up on that change and waits for the next one. With `checkPeriodically`, the thread also calls
// the check function every five retry pauses while no change comes, so that changes made around
// the REST layer still reach the disk.
//
//   AutoSaver saver(&logger, [&] { saveTree(); }, [&] { saveTreeIfChanged(); }, false);
//   saver.OnChange();        // from any thread; the save runs on the saver's thread
//   // destruction stops the thread, also in the middle of a retry pause
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include "log/i_logger.h"
#include "network/restful_web_service_request_handler/on_change_notifier.h"
#include "system/thread/thread.h"

namespace ovtx::network::restful_web_service::v3 {

class AutoSaver : public restful_web_service_request_handler::v0::IOnChangeNotifier {
  public:
    static constexpr std::chrono::milliseconds kDefaultRetryPause{3000};
    static constexpr int kTries = 10;

    // `save` and `check` run on the saver's thread and report a failure by throwing; `logger`
    // must outlive the saver. Log lines, all at level 0: "Full save unsuccessful : <text>" for
    // each failed try, "Unsuccesful AutoSaving after 10 tries" when a change could not be saved.
    AutoSaver(log::i_logger::v0::ILogger* logger, std::function<void()> save, std::function<void()> check,
              bool checkPeriodically, std::chrono::milliseconds retryPause = kDefaultRetryPause);
    // Stops the thread and waits for it; a save under way is finished first.
    ~AutoSaver() override;

    AutoSaver(const AutoSaver&) = delete;
    AutoSaver& operator=(const AutoSaver&) = delete;

    void OnChange() override;

  private:
    void run();
    // Up to kTries saves; false when stopped during a retry pause.
    bool saveWithRetries();
    // False when stopped within `pause`.
    bool pauseUnlessStopped(std::chrono::milliseconds pause);

    log::i_logger::v0::ILogger* m_logger;
    std::function<void()> m_save;
    std::function<void()> m_check;
    bool m_checkPeriodically;
    std::chrono::milliseconds m_retryPause;

    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_changed = false;
    bool m_stopping = false;
    std::unique_ptr<system::thread::v1::Thread> m_thread;  // last: it runs on the members above
};

}  // namespace ovtx::network::restful_web_service::v3
