// The saver's thread: saves after changes, retries, gives up, periodic checks and a prompt stop.
#include "network/restful_web_service/auto_saver.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "log/testing/capturing_logger.h"
#include "testing/shm.h"

namespace {

using ovtx::log::log_perf::v4::testing::CapturingLogger;
using ovtx::network::restful_web_service::v3::AutoSaver;
using ovtx::test_support::v1::eventually;
using namespace std::chrono_literals;

// A save that fails its first `failures` calls.
struct CountingSave {
    std::atomic<int> calls{0};
    std::atomic<int> failures{0};
    std::atomic<int> checks{0};

    void save() {
        if (++calls <= failures) {
            throw std::runtime_error("disk full");
        }
    }
};

std::vector<std::string> failureLines(int count) {
    return std::vector<std::string>(static_cast<std::size_t>(count), "0 Full save unsuccessful : disk full");
}

class AutoSaverTest : public ::testing::Test {
  protected:
    std::unique_ptr<AutoSaver> makeSaver(bool checkPeriodically, std::chrono::milliseconds pause) {
        return std::make_unique<AutoSaver>(
            &m_logger, [this] { m_save.save(); }, [this] { ++m_save.checks; }, checkPeriodically, pause);
    }

    CapturingLogger m_logger;
    CountingSave m_save;
};

TEST_F(AutoSaverTest, Change_IsSavedOnTheSaversThread) {
    auto saver = makeSaver(false, 1ms);
    EXPECT_EQ(m_save.calls, 0);
    saver->OnChange();
    EXPECT_TRUE(eventually([&] { return m_save.calls == 1; }, 10s));
    saver.reset();
    EXPECT_EQ(m_save.calls, 1);
    EXPECT_EQ(m_save.checks, 0) << "no periodic check was asked for";
    EXPECT_EQ(m_logger.lines(), std::vector<std::string>{});
}

TEST_F(AutoSaverTest, FailingSaves_AreTriedTenTimesThenGivenUpUntilTheNextChange) {
    const struct {
        int failures;
        int calls;
        bool givenUp;
    } cases[] = {{3, 4, false}, {9, 10, false}, {10, 10, true}, {25, 10, true}};
    for (const auto& entry : cases) {
        CapturingLogger logger;
        CountingSave save;
        save.failures = entry.failures;
        AutoSaver saver(
            &logger, [&] { save.save(); }, [] {}, false, 1ms);
        saver.OnChange();
        std::vector<std::string> expected = failureLines(std::min(entry.failures, 10));
        if (entry.givenUp) {
            expected.push_back("0 Unsuccesful AutoSaving after 10 tries");
        }
        EXPECT_TRUE(eventually([&] { return logger.lines().size() == expected.size(); }, 10s))
            << entry.failures;
        EXPECT_TRUE(eventually([&] { return save.calls == entry.calls; }, 10s)) << entry.failures;
        EXPECT_EQ(logger.lines(), expected) << entry.failures;
    }
}

TEST_F(AutoSaverTest, ChangeAfterGivingUp_StartsAnew) {
    m_save.failures = 10;
    auto saver = makeSaver(false, 1ms);
    saver->OnChange();
    ASSERT_TRUE(eventually([&] { return m_logger.lines().size() == 11; }, 10s));
    saver->OnChange();
    EXPECT_TRUE(eventually([&] { return m_save.calls == 11; }, 10s));
    saver.reset();
    EXPECT_EQ(m_logger.lines().size(), 11u);
}

TEST_F(AutoSaverTest, StopDuringRetryPause_EndsAtOnce) {
    m_save.failures = 100;
    auto saver = makeSaver(false, std::chrono::minutes(10));
    saver->OnChange();
    ASSERT_TRUE(eventually([&] { return m_logger.lines().size() == 1; }, 10s));
    const auto start = std::chrono::steady_clock::now();
    saver.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s) << "the stop waited for the retry pause";
    EXPECT_EQ(m_save.calls, 1);
}

TEST_F(AutoSaverTest, PeriodicCheck_RunsWhileNoChangeComes) {
    auto saver = makeSaver(true, 2ms);
    EXPECT_TRUE(eventually([&] { return m_save.checks >= 3; }, 10s));
    EXPECT_EQ(m_save.calls, 0);
    saver->OnChange();
    EXPECT_TRUE(eventually([&] { return m_save.calls == 1; }, 10s));
}

}  // namespace
