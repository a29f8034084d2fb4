#include "log/log_perf.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "log/prefixed_logger.h"
#include "log/testing/recording_sink.h"

namespace {

using ovtx::log::log_perf::v4::LibLogPerf;
using ovtx::log::log_perf::v4::LogQueue;
using ovtx::log::log_perf::v4::testing::RecordingSink;
using ovtx::log::prefixed_logger::v0::PrefixedLogger;
using ovtx::system::process_stats::v1::IProcessStats;
using ovtx::system::process_stats::v1::ProcessSample;

struct FixedProcessStats : IProcessStats {
    ProcessSample sample() override { return ProcessSample{}; }
    unsigned logicalProcessors() const override { return 1; }
};

class LibLogPerfTest : public ::testing::Test {
  protected:
    // A report period far beyond any test, so that only messages wake the logger's thread.
    std::unique_ptr<LibLogPerf> makeLogger() {
        return std::make_unique<LibLogPerf>(std::make_unique<FixedProcessStats>(), std::chrono::hours(24));
    }

    RecordingSink m_sink;
};

TEST_F(LibLogPerfTest, Message_ReachesTheSinkWithLevelAndTime) {
    auto logger = makeLogger();
    logger->AddSink(&m_sink);
    const auto before = std::chrono::system_clock::now();
    logger->Log(1, "Board(s) %d", 2);
    ASSERT_TRUE(m_sink.waitForLines(1));
    const auto line = m_sink.lines()[0];
    EXPECT_EQ(line.level, 1);
    EXPECT_EQ(line.text, "Board(s) 2");
    const auto stamped = std::chrono::system_clock::time_point(
        std::chrono::seconds(line.when.seconds) + std::chrono::milliseconds(line.when.milliseconds));
    EXPECT_GE(stamped, std::chrono::time_point_cast<std::chrono::milliseconds>(before));
    EXPECT_LT(line.when.milliseconds, 1000);
}

TEST_F(LibLogPerfTest, LineEnds_BecomeOneLine) {
    auto logger = makeLogger();
    logger->AddSink(&m_sink);
    logger->Log(2, "first\r\nsecond\nthird\r");
    logger->Log(2, "%s", "a\r\r\nb");
    ASSERT_TRUE(m_sink.waitForLines(2));
    EXPECT_EQ(m_sink.texts(), (std::vector<std::string>{"first second third", "a b"}));
}

TEST_F(LibLogPerfTest, LongText_IsCutToTheFormatBuffer) {
    auto logger = makeLogger();
    logger->AddSink(&m_sink);
    const std::string longText(3000, 'x');
    logger->Log(2, "%s", longText.c_str());
    ASSERT_TRUE(m_sink.waitForLines(1));
    EXPECT_EQ(m_sink.texts()[0], std::string(LibLogPerf::kFormatBufferSize - 1, 'x'));
}

TEST_F(LibLogPerfTest, FullQueue_OverflowsOnceAndRecoversWhenEmptied) {
    auto logger = makeLogger();
    logger->AddSink(&m_sink);
    m_sink.hold();
    logger->Log(2, "held");
    ASSERT_TRUE(m_sink.waitForLines(1));  // the logger's thread now sits in the sink
    for (std::size_t index = 1; index <= LogQueue::kLimit + 50; ++index) {
        logger->Log(2, "message %zu", index);
    }
    m_sink.release();
    // held, messages 1 to 1000, the overflow line; message 1001 and all later ones are lost.
    ASSERT_TRUE(m_sink.waitForLines(LogQueue::kLimit + 2));
    logger->Log(3, "after");
    ASSERT_TRUE(m_sink.waitForLines(LogQueue::kLimit + 3));

    const auto lines = m_sink.lines();
    ASSERT_EQ(lines.size(), LogQueue::kLimit + 3);
    EXPECT_EQ(lines[LogQueue::kLimit].text, "message 1000");
    EXPECT_EQ(lines[LogQueue::kLimit + 1].text, "Overflowed message queue.");
    EXPECT_EQ(lines[LogQueue::kLimit + 1].level, 0);
    EXPECT_EQ(lines[LogQueue::kLimit + 2].text, "after");

    // The queue was emptied, so a second burst is reported again.
    m_sink.hold();
    logger->Log(2, "held again");
    ASSERT_TRUE(m_sink.waitForLines(LogQueue::kLimit + 4));
    for (std::size_t index = 1; index <= LogQueue::kLimit + 1; ++index) {
        logger->Log(2, "burst %zu", index);
    }
    m_sink.release();
    ASSERT_TRUE(m_sink.waitForLines(2 * LogQueue::kLimit + 5));
    logger.reset();
    const auto all = m_sink.lines();
    ASSERT_EQ(all.size(), 2 * LogQueue::kLimit + 5);
    EXPECT_EQ(all.back().text, "Overflowed message queue.");
}

TEST_F(LibLogPerfTest, Destruction_DeliversEveryAcceptedMessage) {
    auto logger = makeLogger();
    logger->AddSink(&m_sink);
    m_sink.hold();
    logger->Log(2, "held");
    ASSERT_TRUE(m_sink.waitForLines(1));
    for (int index = 0; index < 500; ++index) {
        logger->Log(2, "pending %d", index);
    }
    // The stop request arrives while the thread is still in the sink with 500 messages queued.
    std::thread destroyer([&] { logger.reset(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    m_sink.release();
    destroyer.join();
    const auto texts = m_sink.texts();
    ASSERT_EQ(texts.size(), 501u);
    EXPECT_EQ(texts.back(), "pending 499");
}

TEST_F(LibLogPerfTest, EverySinkOnce_ReceivesEachMessageAndNullIsIgnored) {
    RecordingSink second;
    auto logger = makeLogger();
    logger->AddSink(&m_sink);
    logger->AddSink(nullptr);
    logger->AddSink(&second);
    logger->AddSink(&second);
    logger->Log(2, "both");
    logger.reset();
    EXPECT_EQ(m_sink.texts(), (std::vector<std::string>{"both"}));
    EXPECT_EQ(second.texts(), (std::vector<std::string>{"both"}));
}

TEST_F(LibLogPerfTest, PerformanceSink_GetsTheNamesFirstAtLevelTwo) {
    RecordingSink performance;
    auto logger = makeLogger();
    logger->SetPerformanceSink(&performance);
    logger->ReportPerformance();
    logger->ReportPerformance();
    const auto lines = performance.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].level, 2);
    EXPECT_EQ(lines[0].text.rfind("Cpu,TotalCpu,", 0), 0u);
    EXPECT_EQ(lines[1].text.rfind("0,0,", 0), 0u);
}

TEST_F(LibLogPerfTest, LoggerThread_ReportsOnItsPeriod) {
    RecordingSink performance;
    LibLogPerf logger(std::make_unique<FixedProcessStats>(), std::chrono::milliseconds(20));
    logger.SetPerformanceSink(&performance);
    ASSERT_TRUE(performance.waitForLines(3));
}

TEST_F(LibLogPerfTest, PrefixedLogger_PutsItsPrefixBeforeTheWholeText) {
    auto logger = makeLogger();
    logger->AddSink(&m_sink);
    PrefixedLogger prefixed(logger.get(), "Web service /sdi_tap/0: ");
    prefixed.Log(1, "answer %d for %s", 404, "/x");
    ASSERT_TRUE(m_sink.waitForLines(1));
    EXPECT_EQ(m_sink.lines()[0].level, 1);
    EXPECT_EQ(m_sink.texts()[0], "Web service /sdi_tap/0: answer 404 for /x");
}

}  // namespace
