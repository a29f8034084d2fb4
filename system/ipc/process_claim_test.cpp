#include "system/ipc/process_claim.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "system/ipc/testing/ipc_helper.h"
#include "testing/shm.h"

namespace {

using namespace ovtx::system::ipc::v2;
using namespace ovtx::system::ipc::v2::testing;
using namespace ovtx::test_support::v1;
using namespace std::chrono_literals;

TEST(ProcessClaimTest, HeldByAnotherProcess_IsRefusedNamesItsHolderAndIsFreedByItsKill) {
    const std::string name = uniqueName("claim");
    PipedChild other = startIpcHelper();
    ASSERT_EQ(other.ask("claim " + name), "ok");

    ProcessClaim refused = ProcessClaim::take(name);
    EXPECT_FALSE(refused.held());
    EXPECT_EQ(refused.error(), EADDRINUSE);
    EXPECT_EQ(ProcessClaim::holder(name), other.pid());

    other.kill(PipedChild::Signal::Kill);
    ASSERT_TRUE(other.wait(10s));
    EXPECT_EQ(ProcessClaim::holder(name), std::nullopt);
    ProcessClaim mine = ProcessClaim::take(name);
    ASSERT_TRUE(mine.held());
    EXPECT_EQ(ProcessClaim::holder(name), ::getpid());

    mine.release();
    EXPECT_TRUE(ProcessClaim::take(name).held()) << "a released claim is free at once";
}

TEST(ProcessClaimTest, NameTooLongOrEmpty_IsNeverHeld) {
    EXPECT_EQ(ProcessClaim::take(std::string(101, 'x')).error(), ENAMETOOLONG);
    EXPECT_FALSE(ProcessClaim::take("").held());
    EXPECT_EQ(ProcessClaim::holder(""), std::nullopt);
}

}  // namespace
