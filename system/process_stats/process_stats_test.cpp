#include "system/process_stats/process_stats.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <vector>

namespace {

using ovtx::system::process_stats::v1::makeProcessStats;

TEST(ProcessStatsTest, Sample_ReportsThisProcessesMemoryAndDescriptors) {
    auto stats = makeProcessStats();
    const auto before = stats->sample();
    EXPECT_GT(before.workingSet, 0u);
    EXPECT_GE(before.virtualSize, before.workingSet);
    EXPECT_GT(before.privateBytes, 0u);
    EXPECT_LE(before.memoryLoadPercent, 100u);
    EXPECT_GE(stats->logicalProcessors(), 1u);

    std::FILE* extra = std::tmpfile();
    ASSERT_NE(extra, nullptr);
    const auto after = stats->sample();
    std::fclose(extra);
    EXPECT_EQ(after.handleCount, before.handleCount + 1);
}

TEST(ProcessStatsTest, BusyLoop_ShowsAsProcessorUse) {
    auto stats = makeProcessStats();
    const auto start = std::chrono::steady_clock::now();
    volatile unsigned long spin = 0;
    while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(300)) {
        spin = spin + 1;
    }
    const auto sample = stats->sample();
    EXPECT_GT(sample.processCpuPercent, 0);
    EXPECT_GT(sample.totalCpuPercent, 0);
    EXPECT_LE(sample.totalCpuPercent, 100);
    EXPECT_GT(sample.frequencyPercent, 0);
}

}  // namespace
