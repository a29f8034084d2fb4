// Child side of the process tests: triggers one fault, or waits for a console stop signal.
#include "system/process/process.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>
#include <thread>

namespace {

std::atomic<bool> g_stopped{false};

struct Base {
    Base() { callPure(); }
    virtual ~Base() = default;
    void callPure() { pure(); }
    virtual void pure() = 0;
};
struct Derived : Base {
    void pure() override {}
};

}  // namespace

int main(int argc, char** argv) {
    using namespace ovtx::system::process::v1;
    installFaultHandling();
    const char* what = argc > 1 ? argv[1] : "";
    if (std::strcmp(what, "terminate") == 0) {
        std::terminate();
    }
    if (std::strcmp(what, "pure") == 0) {
        Derived derived;
    }
    if (std::strcmp(what, "oom") == 0) {
        std::get_new_handler()();
    }
    if (std::strcmp(what, "segv") == 0) {
        std::raise(SIGSEGV);
    }
    if (std::strcmp(what, "console") == 0) {
        setConsoleControlHandler([] { g_stopped.store(true); });
        std::raise(SIGPIPE);  // ignored
        std::puts("ready");
        std::fflush(stdout);
        while (!g_stopped.load()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return 42;
    }
    return 0;
}
