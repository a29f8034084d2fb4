#include "system/signals/stop_signals.h"

#include <signal.h>

#include <atomic>

namespace ovtx::system::signals::v1 {

namespace {

std::atomic<bool> g_stopRequested{false};
std::atomic<StopHandler> g_handler{nullptr};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<StopHandler>::is_always_lock_free,
              "the stop state is touched from a signal handler");

extern "C" void onStopSignal(int signalNumber) {
    g_stopRequested.store(true);
    if (const StopHandler handler = g_handler.load()) {
        handler(signalNumber);
    }
}

}  // namespace

bool installStopSignals(StopHandler handler) {
    g_handler.store(handler);
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: a blocking call returns EINTR, so a waiting loop gets to look at the flag.
    action.sa_flags = 0;
    return ::sigaction(SIGINT, &action, nullptr) == 0 && ::sigaction(SIGTERM, &action, nullptr) == 0;
}

bool stopRequested() {
    return g_stopRequested.load();
}

void requestStop() {
    g_stopRequested.store(true);
}

void clearStopRequest() {
    g_stopRequested.store(false);
}

}  // namespace ovtx::system::signals::v1
