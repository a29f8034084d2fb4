#include "system/process/piped_child.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace ovtx::system::process::v1;
using namespace std::chrono_literals;

TEST(PipedChildTest, LinesGoThroughAndEndOfInputEndsChild) {
    PipedChild cat = PipedChild::spawn("/bin/cat", {});
    ASSERT_TRUE(cat.valid());
    EXPECT_EQ(cat.ask("first"), "first");
    ASSERT_TRUE(cat.writeLine("second"));
    EXPECT_EQ(cat.readLine(), "second");
    cat.closeInput();
    EXPECT_EQ(cat.readLine(), std::nullopt);
    EXPECT_EQ(cat.wait(), ExitStatus::exitedWith(0));
}

TEST(PipedChildTest, KilledOrMissingChild_ReportsHowItEnded) {
    PipedChild cat = PipedChild::spawn("/bin/cat", {});
    ASSERT_TRUE(cat.kill(PipedChild::Signal::Kill));
    EXPECT_EQ(cat.wait(), ExitStatus::killedBy(9));
    EXPECT_FALSE(cat.writeLine("nobody reads this"));  // no SIGPIPE for the parent
    EXPECT_EQ(PipedChild::spawn("/nonexistent/program", {"x"}).wait(), ExitStatus::exitedWith(127));
}

TEST(PipedChildTest, EnvironmentAndCapturedStandardError_ReachTheParent) {
    SpawnOptions options;
    options.environment = {{"SDI_TAP_PIPED_CHILD_TEST", "marker"}};
    options.captureStandardError = true;
    PipedChild shell =
        PipedChild::spawn("/bin/sh", {"-c", "echo $SDI_TAP_PIPED_CHILD_TEST >&2; sleep 30"}, options);
    EXPECT_TRUE(shell.waitForStandardError("marker\n", 30s));
    EXPECT_TRUE(shell.running());
    EXPECT_FALSE(shell.waitForStandardError("never written", 50ms));
    EXPECT_EQ(shell.standardError(), "marker\n");
}

}  // namespace
