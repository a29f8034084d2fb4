#include "system/process/process.h"
#include "system/process/testing/test_files.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

namespace {

using namespace ovtx::system::process::v1;

std::string helperPath() {
    return ovtx::system::process::testing::binaryPath("process_fault_helper");
}

// Starts the helper with `mode`, returns its pid; its stdout is `readFd` when asked for.
pid_t startHelper(const char* mode, int* readFd = nullptr) {
    int pipeFds[2] = {-1, -1};
    if (readFd != nullptr && ::pipe(pipeFds) != 0) {
        return -1;
    }
    const std::string path = helperPath();
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (readFd != nullptr) {
            ::dup2(pipeFds[1], STDOUT_FILENO);
            ::close(pipeFds[0]);
            ::close(pipeFds[1]);
        }
        // Under AddressSanitizer the faults must reach the process's own handling.
        ::setenv("ASAN_OPTIONS", "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0", 1);
        ::execl(path.c_str(), path.c_str(), mode, static_cast<char*>(nullptr));
        ::_exit(127);
    }
    if (readFd != nullptr) {
        ::close(pipeFds[1]);
        *readFd = pipeFds[0];
    }
    return pid;
}

int waitStatus(pid_t pid) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    return status;
}

TEST(FaultHandlingTest, FaultsEndWithTheirOwnCodes) {
    const std::pair<const char*, int> cases[] = {
        {"terminate", kExitTerminate}, {"pure", kExitPureVirtualCall}, {"oom", kExitOutOfMemory}};
    for (const auto& [mode, code] : cases) {
        const int status = waitStatus(startHelper(mode));
        ASSERT_TRUE(WIFEXITED(status)) << mode;
        EXPECT_EQ(WEXITSTATUS(status), code) << mode;
    }
    EXPECT_NE(kExitTerminate, kExitPureVirtualCall);
    EXPECT_NE(kExitPureVirtualCall, kExitOutOfMemory);
}

TEST(FaultHandlingTest, FatalSignalEndsWithTheSignal) {
    const int status = waitStatus(startHelper("segv"));
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGSEGV);
}

TEST(ConsoleControlTest, EachStopSignalReachesTheHandler) {
    for (int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        int out = -1;
        const pid_t pid = startHelper("console", &out);
        ASSERT_GT(pid, 0);
        char ready[6] = {};
        ASSERT_EQ(::read(out, ready, 5), 5);  // the handler is installed and SIGPIPE was survived
        ::close(out);
        ::kill(pid, signalNumber);
        const int status = waitStatus(pid);
        ASSERT_TRUE(WIFEXITED(status)) << signalNumber;
        EXPECT_EQ(WEXITSTATUS(status), 42) << signalNumber;
    }
}

}  // namespace
