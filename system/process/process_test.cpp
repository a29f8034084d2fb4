#include "system/process/process.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "system/process/piped_child.h"
#include "testing/files.h"

namespace {

using namespace ovtx::system::process::v1;
using namespace std::chrono_literals;

// The helper in `mode`; under AddressSanitizer the faults must reach the process's own handling.
PipedChild startHelper(const char* mode) {
    SpawnOptions options;
    options.environment = {{"ASAN_OPTIONS", "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0"}};
    return PipedChild::spawn(ovtx::test_support::v1::binaryPath("process_fault_helper"), {mode}, options);
}

TEST(FaultHandlingTest, FaultsEndWithTheirOwnCodesOrSignal) {
    const std::pair<const char*, ExitStatus> cases[] = {
        {"terminate", ExitStatus::exitedWith(kExitTerminate)},
        {"pure", ExitStatus::exitedWith(kExitPureVirtualCall)},
        {"oom", ExitStatus::exitedWith(kExitOutOfMemory)},
        {"segv", ExitStatus::killedBy(SIGSEGV)},
    };
    for (const auto& [mode, status] : cases) {
        EXPECT_EQ(startHelper(mode).wait(30s), status) << mode;
    }
}

TEST(ConsoleControlTest, EachStopSignalReachesTheHandler) {
    const PipedChild::Signal signals[] = {PipedChild::Signal::Interrupt, PipedChild::Signal::Terminate,
                                          PipedChild::Signal::Hangup, PipedChild::Signal::Quit};
    for (const PipedChild::Signal signal : signals) {
        PipedChild helper = startHelper("console");
        // The handler is installed and SIGPIPE was survived.
        ASSERT_EQ(helper.readLine(30s), "ready");
        helper.kill(signal);
        EXPECT_EQ(helper.wait(30s), ExitStatus::exitedWith(42)) << static_cast<int>(signal);
    }
}

}  // namespace
