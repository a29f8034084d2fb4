// Test support: a fixture whose named objects carry names unique to the test case and the
// process, and which checks that none of them stays in /dev/shm after the test.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "system/ipc/test_processes.h"

namespace ovtx::system::ipc::v2::testing {

class ShmTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        m_prefix = "ipc_test_" + std::to_string(::getpid()) + "_" + info->name() + "_";
    }
    void TearDown() override {
        const std::vector<std::string> left = shmEntries(m_prefix);
        EXPECT_EQ(left, std::vector<std::string>{});
        removeShmEntries(left);
    }

    // The test's name for an object: the prefix, then `suffix`.
    std::string name(const std::string& suffix) const { return m_prefix + suffix; }

    std::string m_prefix;
};

}  // namespace ovtx::system::ipc::v2::testing
