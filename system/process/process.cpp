#include "system/process/process.h"

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>

#if defined(__SANITIZE_ADDRESS__)
#define SDI_TAP_UNDER_SANITIZER 1
#else
#define SDI_TAP_UNDER_SANITIZER 0
#endif

namespace ovtx::system::process::v1 {
namespace {

std::atomic<ConsoleControlHandler> g_consoleHandler{nullptr};

void writeToStderr(const char* text) {
    std::size_t length = 0;
    while (text[length] != '\0') {
        ++length;
    }
    // Nothing useful can be done when the write fails on the way out.
    [[maybe_unused]] ssize_t written = ::write(STDERR_FILENO, text, length);
}

[[noreturn]] void endAtOnce(const char* what, int code) {
    writeToStderr(what);
    ::_exit(code);
}

void onFatalSignal(int signalNumber) {
    // The disposition was reset to the default on entry (SA_RESETHAND): re-raising ends the process
    // with the signal itself, without running any clean-up.
    writeToStderr("Fatal signal, ending the process\n");
    ::raise(signalNumber);
}

void onConsoleSignal(int /*signalNumber*/) {
    const int savedErrno = errno;
    if (ConsoleControlHandler handler = g_consoleHandler.load()) {
        handler();
    }
    errno = savedErrno;
}

bool installSignal(int signalNumber, void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    return ::sigaction(signalNumber, &action, nullptr) == 0;
}

}  // namespace

void installFaultHandling() {
    std::set_terminate([] { endAtOnce("Fatal: terminate called\n", kExitTerminate); });
    std::set_new_handler([] { endAtOnce("Fatal: out of memory\n", kExitOutOfMemory); });
    if (!SDI_TAP_UNDER_SANITIZER) {  // the sanitizers report these faults themselves
        for (int signalNumber : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT}) {
            installSignal(signalNumber, &onFatalSignal, SA_RESETHAND | SA_NODEFER);
        }
    }
}

bool setConsoleControlHandler(ConsoleControlHandler handler) {
    g_consoleHandler.store(handler);
    bool installed = installSignal(SIGPIPE, SIG_IGN, 0);
    for (int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        installed = installSignal(signalNumber, &onConsoleSignal, SA_RESTART) && installed;
    }
    return installed;
}

void raiseToRealtimePriority() {
    // Linux keeps the nice value per thread: raise every thread that exists already, and threads
    // created later inherit it. A refusal (no privilege) leaves the run as it is.
    DIR* tasks = ::opendir("/proc/self/task");
    if (tasks == nullptr) {
        ::setpriority(PRIO_PROCESS, 0, -20);
        return;
    }
    while (const dirent* entry = ::readdir(tasks)) {
        const int tid = std::atoi(entry->d_name);
        if (tid > 0) {
            ::setpriority(PRIO_PROCESS, static_cast<id_t>(tid), -20);
        }
    }
    ::closedir(tasks);
}

}  // namespace ovtx::system::process::v1

// A pure virtual call ends the process with its own code instead of the runtime's abort.
extern "C" void __cxa_pure_virtual() {  // NOLINT(bugprone-reserved-identifier): the runtime's hook
    ovtx::system::process::v1::endAtOnce("Fatal: pure virtual function call\n",
                                         ovtx::system::process::v1::kExitPureVirtualCall);
}
