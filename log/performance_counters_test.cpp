#include "log/performance_counters.h"

#include "log/testing/capturing_logger.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace {

using ovtx::log::log_perf::v4::testing::CapturingLogger;

using ovtx::log::log_perf::v4::PerformanceCounters;
using ovtx::log::log_perf::v4::Timestamp;
using ovtx::system::process_stats::v1::IProcessStats;
using ovtx::system::process_stats::v1::ProcessSample;

struct FakeProcessStats : IProcessStats {
    explicit FakeProcessStats(ProcessSample fixed, unsigned processors = 1)
        : fixed(fixed), processors(processors) {}
    ProcessSample sample() override { return fixed; }
    unsigned logicalProcessors() const override { return processors; }
    ProcessSample fixed;
    unsigned processors;
};

std::vector<std::string> columns(const std::string& line) {
    std::vector<std::string> parts;
    std::stringstream stream(line);
    std::string part;
    while (std::getline(stream, part, ',')) {
        parts.push_back(part);
    }
    return parts;
}

class PerformanceCountersTest : public ::testing::Test {
  protected:
    PerformanceCounters makeCounters(ProcessSample sample = {}, unsigned processors = 1) {
        return PerformanceCounters(m_logger, std::make_unique<FakeProcessStats>(sample, processors),
                                   [this] { return m_now; });
    }
    std::string nextLine(PerformanceCounters& counters) {
        return counters.reportLine(counters.takeSnapshot(Timestamp{1795268123, 0}));
    }

    CapturingLogger m_logger;
    std::uint64_t m_now = 1000;
};

TEST_F(PerformanceCountersTest, FirstLine_HoldsTheNamesOnly) {
    auto counters = makeCounters();
    counters.RegisterBufferFull("video");
    EXPECT_EQ(nextLine(counters),
              "Cpu,TotalCpu,WorkingSet,PrivateBytes,NumBufferFull,NumResync,NumTsDiscontinuity,CycleTime,"
              "Deprecated,"
              "Date,NumDecPictures,VirtualSize,HandleCount,NumPoliticChoices,buffer_full_video,"
              "LastDeltaNumOverAllBufferFull,NumPeriodThresholdReached,NeedRestart");
}

TEST_F(PerformanceCountersTest, ValueLine_CarriesProcessFiguresAndCounters) {
    ProcessSample sample;
    sample.processCpuPercent = 150;  // one and a half processors out of two
    sample.totalCpuPercent = 80;
    sample.frequencyPercent = 50;
    sample.workingSet = 1000;
    sample.privateBytes = 2000;
    sample.virtualSize = 3000;
    sample.handleCount = 12;
    auto counters = makeCounters(sample, 2);
    counters.RegisterBufferFull("audio");
    nextLine(counters);
    counters.IncResync();
    counters.IncResync();
    counters.IncTsDiscontinuity();
    counters.IncDecPictures();
    counters.AddPoliticChoices(5);
    counters.NotifyBufferFull("audio");
    EXPECT_EQ(nextLine(counters), "37,40,1000,2000,1,2,1,0,0,1795268123,1,3000,12,5,1,1,0,0");
}

TEST_F(PerformanceCountersTest, UnavailableCpuFigures_ReadZeroAndTheLineStands) {
    ProcessSample sample;
    sample.processCpuPercent = 0;
    sample.totalCpuPercent = 0;
    sample.frequencyPercent = 140;  // out of range: counts as 100
    sample.workingSet = 7;
    auto counters = makeCounters(sample);
    nextLine(counters);
    const auto values = columns(nextLine(counters));
    ASSERT_EQ(values.size(), 17u);
    EXPECT_EQ(values[0], "0");
    EXPECT_EQ(values[1], "0");
    EXPECT_EQ(values[2], "7");
}

TEST_F(PerformanceCountersTest, PinAddedAfterTheNames_AppearsInValueLinesOnly) {
    auto counters = makeCounters();
    counters.RegisterBufferFull("audio");
    const auto names = columns(nextLine(counters));
    counters.RegisterBufferFull("video");
    counters.NotifyBufferFull("video");
    const auto values = columns(nextLine(counters));
    EXPECT_EQ(values.size(), names.size() + 1);
    EXPECT_EQ(std::count(names.begin(), names.end(), "buffer_full_video"), 0);
    EXPECT_EQ(values[14], "0");  // audio
    EXPECT_EQ(values[15], "1");  // video
}

TEST_F(PerformanceCountersTest, ManyNotificationsInOnePeriod_GiveOneCountedMessage) {
    auto counters = makeCounters();
    counters.RegisterBufferFull("video");
    for (int index = 0; index < 9999; ++index) {
        counters.NotifyBufferFull("video");
    }
    EXPECT_TRUE(m_logger.lines().empty());
    m_now += PerformanceCounters::kLimiterPeriodMs;
    counters.NotifyBufferFull("video");
    EXPECT_EQ(m_logger.lines(), (std::vector<std::string>{"1 Pin output buffer full : video (x10000)"}));

    // One notification in the next period is named without a count.
    m_now += PerformanceCounters::kLimiterPeriodMs;
    counters.NotifyBufferFull("video");
    EXPECT_EQ(m_logger.lines().back(), "1 Pin output buffer full : video");
    EXPECT_EQ(m_logger.lines().size(), 2u);
}

TEST_F(PerformanceCountersTest, UnknownPin_IsLoggedEveryTimeAndNotCounted) {
    auto counters = makeCounters();
    counters.NotifyBufferFull("teletext");
    counters.NotifyBufferFull("teletext");
    EXPECT_EQ(m_logger.lines(), (std::vector<std::string>{"1 Pin output buffer full : teletext",
                                                          "1 Pin output buffer full : teletext"}));
    nextLine(counters);
    EXPECT_EQ(columns(nextLine(counters))[4], "0");
}

TEST_F(PerformanceCountersTest, BurstOverTheThreshold_RaisesTheOverallResults) {
    auto counters = makeCounters();
    counters.RegisterBufferFull("video");
    nextLine(counters);
    for (int index = 0; index < 1200; ++index) {
        counters.NotifyBufferFull("video");
    }
    auto values = columns(nextLine(counters));
    EXPECT_EQ(values[15], "1200");  // LastDeltaNumOverAllBufferFull
    EXPECT_EQ(values[16], "0");     // no period has finished yet
    EXPECT_EQ(values[17], "1");     // NeedRestart

    m_now += 60000;  // the one-minute period ends with this notification
    counters.NotifyBufferFull("video");
    values = columns(nextLine(counters));
    EXPECT_EQ(values[15], "1");
    EXPECT_EQ(values[16], "1");
    EXPECT_EQ(values[17], "0");
}

}  // namespace
