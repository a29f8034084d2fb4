#include "system/signals/stop_signals.h"

#include <gtest/gtest.h>

#include <csignal>

namespace {

using namespace ovtx::system::signals::v1;

int g_seenSignal = 0;

void remember(int signalNumber) {
    g_seenSignal = signalNumber;
}

class StopSignalsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        clearStopRequest();
        g_seenSignal = 0;
    }
    void TearDown() override { clearStopRequest(); }
};

TEST_F(StopSignalsTest, InterruptAndTerminate_SetFlagAndCallHandler) {
    ASSERT_TRUE(installStopSignals(remember));
    for (const int signalNumber : {SIGINT, SIGTERM}) {
        clearStopRequest();
        EXPECT_FALSE(stopRequested());
        std::raise(signalNumber);
        EXPECT_TRUE(stopRequested());
        EXPECT_EQ(g_seenSignal, signalNumber);
    }
}

TEST_F(StopSignalsTest, RequestStop_SetsFlagWithoutHandler) {
    ASSERT_TRUE(installStopSignals(remember));
    requestStop();
    EXPECT_TRUE(stopRequested());
    EXPECT_EQ(g_seenSignal, 0);
}

}  // namespace
