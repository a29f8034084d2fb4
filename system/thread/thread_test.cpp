#include "system/thread/thread.h"

#include "log/testing/capturing_logger.h"
#include "system/process/process.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using ovtx::log::log_perf::v4::testing::CapturingLogger;

using ovtx::system::thread::v1::parseCpuList;
using ovtx::system::thread::v1::placeCurrentThreadOnProcessorGroup;
using ovtx::system::thread::v1::processorGroups;
using ovtx::system::thread::v1::Thread;

TEST(ThreadTest, Destructor_WaitsForTheBody) {
    std::atomic<bool> finished{false};
    {
        Thread thread("test_body", [&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            finished = true;
        });
    }
    EXPECT_TRUE(finished);
}

TEST(ThreadDeathTest, ThrowingBody_EndsTheProcessWithTheTerminateCode) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            ovtx::system::process::v1::installFaultHandling();
            Thread thread("test_throw", [] { throw std::runtime_error("job failed"); });
        },
        ::testing::ExitedWithCode(3), "Thread test_throw ended by an exception: job failed");
}

struct CpuListCase {
    const char* text;
    std::vector<int> expected;
};

TEST(ThreadTest, CpuList_ParsesKernelNotation) {
    const CpuListCase cases[] = {
        {"0", {0}}, {"0-3", {0, 1, 2, 3}}, {"0-1,4,6-7", {0, 1, 4, 6, 7}},
        {"", {}},   {"3-1,5", {5}},        {"x,2", {2}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(parseCpuList(c.text), c.expected) << c.text;
    }
}

TEST(ThreadTest, ProcessorGroups_CoverTheProcessorWeRunOn) {
    const auto groups = processorGroups();
    ASSERT_FALSE(groups.empty());
    for (const auto& group : groups) {
        EXPECT_FALSE(group.processors.empty()) << "group " << group.group;
    }
}

TEST(ThreadTest, GroupPlacement_SucceedsOrLogsTheFailure) {
    CapturingLogger logger;
    const bool placed = placeCurrentThreadOnProcessorGroup(&logger);
    if (placed) {
        EXPECT_TRUE(logger.lines().empty());
    } else {
        ASSERT_EQ(logger.lines().size(), 1u);
        EXPECT_EQ(logger.lines()[0].rfind("1 Thread group affinity failed Group=", 0), 0u)
            << logger.lines()[0];
    }
}

}  // namespace
