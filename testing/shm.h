// Named objects of a test: names unique to the process and the test case, and the check that none
// of them stays in /dev/shm afterwards.
//
//   class ChannelTest : public ShmTest {};
//   TEST_F(ChannelTest, X) { auto mapping = NamedMapping::createOrJoin(name("MAP"), 8); ... }
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace ovtx::test_support::v1 {

// The entries of /dev/shm whose names contain `part`.
std::vector<std::string> shmEntries(const std::string& part);

// The entries of /dev/shm that belong to the run on `portName`: every public name of a run ends in
// its port name, the channels' names then carry a suffix of their own.
std::vector<std::string> runObjects(const std::string& portName);

// Removes what a failed test left behind, so that one failure does not cascade.
void removeShmEntries(const std::vector<std::string>& names);

// "<tag><pid>x<test name>": a prefix no other test process or case shares.
std::string uniqueName(const std::string& tag);

class ShmTest : public ::testing::Test {
  protected:
    void SetUp() override { m_prefix = uniqueName("sdi_tap_test_") + "_"; }
    void TearDown() override {
        const std::vector<std::string> left = shmEntries(m_prefix);
        EXPECT_EQ(left, std::vector<std::string>{});
        removeShmEntries(left);
    }

    // The test's name for an object: the prefix, then `suffix`.
    std::string name(const std::string& suffix) const { return m_prefix + suffix; }

    std::string m_prefix;
};

// Polls `condition` until it holds or `timeout` passes; returns its last value.
template <typename Condition>
bool eventually(Condition&& condition, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace ovtx::test_support::v1
