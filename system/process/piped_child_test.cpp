#include "system/process/piped_child.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace ovtx::system::process::v1;
using namespace std::chrono_literals;

TEST(PipedChildTest, LinesGoThroughAndEndOfInputEndsChild) {
    PipedChild cat = PipedChild::spawn("/bin/cat", {});
    ASSERT_TRUE(cat.valid());
    ASSERT_TRUE(cat.writeLine("first"));
    ASSERT_TRUE(cat.writeLine("second"));
    EXPECT_EQ(cat.readLine(30s), "first");
    EXPECT_EQ(cat.readLine(30s), "second");
    cat.closeInput();
    EXPECT_EQ(cat.readLine(30s), std::nullopt);
    const auto status = cat.wait(30s);
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(status->exited);
    EXPECT_EQ(status->code, 0);
}

TEST(PipedChildTest, KilledChild_ReportsSignalAndWritesFail) {
    PipedChild cat = PipedChild::spawn("/bin/cat", {});
    ASSERT_TRUE(cat.kill(PipedChild::Signal::Kill));
    const auto status = cat.wait(30s);
    ASSERT_TRUE(status.has_value());
    EXPECT_FALSE(status->exited);
    EXPECT_EQ(status->signal, 9);
    EXPECT_FALSE(cat.writeLine("nobody reads this"));  // no SIGPIPE for the parent
}

TEST(PipedChildTest, MissingProgram_ExitsWith127) {
    PipedChild missing = PipedChild::spawn("/nonexistent/program", {"x"});
    ASSERT_TRUE(missing.valid());
    const auto status = missing.wait(30s);
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(status->code, 127);
}

}  // namespace
