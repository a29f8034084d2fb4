#include <gtest/gtest.h>

#include <deque>
#include <vector>

#include "pattern/frame_pacer.h"
#include "pattern/frame_rational.h"
#include "pattern/pattern_format.h"
#include "pattern/tick_clock.h"
#include "simulcast/capture_records.h"

namespace {

using namespace ovtx::pattern::pattern_source::v1;
namespace records = ovtx::simulcast::capture_records::v1;

TEST(FrameRationalTest, ReduceInvertMultiplyAndConvert) {
    const FrameRational period = FrameRational{1001 * 7, 30000 * 7}.reduced();
    EXPECT_EQ(period.numerator, 1001);
    EXPECT_EQ(period.denominator, 30000);
    EXPECT_EQ(FrameRational(3, -6).reduced().numerator, -1);
    EXPECT_EQ(FrameRational(3, -6).reduced().denominator, 2);
    const FrameRational product = period * FrameRational{2, 3};
    EXPECT_EQ(product.numerator, 2002) << "multiplication doesn't reduce";
    EXPECT_EQ(product.denominator, 90000);
    EXPECT_EQ((period * 3).numerator, 3003);
    EXPECT_EQ(period.inverted().numerator, 30000);
    EXPECT_DOUBLE_EQ(period.inverted().toDouble(), 30000.0 / 1001.0);
}

TEST(FrameRationalTest, FloorRoundsTowardsMinusInfinity) {
    EXPECT_EQ((FrameRational{7, 2}).floor(), 3);
    EXPECT_EQ((FrameRational{-7, 2}).floor(), -4);
    EXPECT_EQ((FrameRational{7, -2}).floor(), -4);
    EXPECT_EQ((FrameRational{-8, 2}).floor(), -4);
    EXPECT_EQ((FrameRational{0, 5}).floor(), 0);
}

TEST(FrameRationalTest, FrameTimesAreExactAt2997) {
    const FrameRational period = patternFormat(4).period;
    EXPECT_EQ(period.numerator, 1001);
    EXPECT_EQ(period.denominator, 30000);
    EXPECT_EQ(frameTime(1, period), 333666);
    EXPECT_EQ(frameTime(30000, period), 10010000000);
    // A month of frames stays exact, with no drift against the closed form.
    const std::int64_t month = 30LL * 24 * 3600 * 30;
    EXPECT_EQ(frameTime(month, period), month * 1001 * 10000000 / 30000);
    // And far beyond, where the unreduced product would leave 64 bits.
    const std::int64_t decade = 10LL * 365 * 24 * 3600 * 60;
    EXPECT_EQ(frameTime(decade, patternFormat(10).period), decade / 6 * 1001000);
}

TEST(FrameRationalTest, FramesDueFollowTheMillisecondCount) {
    const FrameRational p25 = patternFormat(3).period;
    EXPECT_EQ(framesDue(1000, p25), 25);
    EXPECT_EQ(framesDue(39, p25), 0);
    EXPECT_EQ(framesDue(40, p25), 1);
    const FrameRational p2997 = patternFormat(4).period;
    EXPECT_EQ(framesDue(1000, p2997), 29);
    EXPECT_EQ(framesDue(1001, p2997), 30);
}

TEST(TickClockTest, AddsDifferencesAndSurvivesTheWrap) {
    TickClock clock;
    EXPECT_EQ(clock.update(1000), 1000u);
    EXPECT_EQ(clock.update(1500), 1500u);
    EXPECT_EQ(clock.update(0xFFFFFFF0u), 0xFFFFFFF0u);
    // Past the wrap: the new tick plus the complement of the last one.
    EXPECT_EQ(clock.update(20), std::uint64_t{0xFFFFFFF0u} + 20 + 0x0F);
    EXPECT_EQ(clock.update(30), std::uint64_t{0xFFFFFFF0u} + 20 + 0x0F + 10);
    EXPECT_EQ(clock.total(), std::uint64_t{0xFFFFFFF0u} + 20 + 0x0F + 10);
}

struct FormatCase {
    int code;
    std::int64_t numerator;
    std::int64_t denominator;
    int width;
    int height;
};

class PatternFormatTest : public testing::TestWithParam<FormatCase> {};

TEST_P(PatternFormatTest, PeriodAndSizeByCode) {
    const FormatCase& c = GetParam();
    const PatternFormat format = patternFormat(c.code);
    EXPECT_EQ(format.period.numerator, c.numerator);
    EXPECT_EQ(format.period.denominator, c.denominator);
    EXPECT_EQ(format.width, c.width);
    EXPECT_EQ(format.height, c.height);
}

INSTANTIATE_TEST_SUITE_P(
    Table, PatternFormatTest,
    testing::Values(FormatCase{0, 1, 25, 720, 576}, FormatCase{2, 1001, 30000, 720, 480},
                    FormatCase{3, 1, 25, 1920, 1080}, FormatCase{6, 1001, 30000, 1920, 1080},
                    FormatCase{8, 1001, 60000, 1280, 720}, FormatCase{12, 1, 30, 1920, 1080},
                    FormatCase{13, 1, 60, 1280, 720}, FormatCase{101, 1001, 24000, 3840, 2160},
                    FormatCase{106, 1, 24, 3840, 2160}, FormatCase{108, 1, 60, 3840, 2160},
                    // codes the command line lets pass and the table doesn't know
                    FormatCase{1, 1, 1, -1, -1}, FormatCase{36, 1, 1, -1, -1}, FormatCase{-1, 1, 1, -1, -1}));

TEST(PatternFormatSizesTest, VideoChunkBytesAndCaptionBudget) {
    const auto videoChunk = [](int code, int depth) {
        return pictureBytes(patternFormat(code), depth) + records::kPatternVideoExtraBytes;
    };
    EXPECT_EQ(videoChunk(3, 10), 6220848);
    EXPECT_EQ(videoChunk(3, 8), 3110448);
    EXPECT_EQ(videoChunk(1, 8), 49) << "an unknown format has a picture of 1 byte";
    EXPECT_EQ(captionBudget(patternFormat(3).period), 48);
    EXPECT_EQ(captionBudget(patternFormat(4).period), 40);
    EXPECT_EQ(captionBudget(patternFormat(9).period), 24);
    EXPECT_EQ(captionBudget(patternFormat(10).period), 20);
}

// A scripted world: one tick per pass (the last one repeats), a stop event the test can set.
class ScriptedEnvironment : public IPaceEnvironment {
  public:
    std::deque<std::uint32_t> ticks;
    bool stopSet = false;
    int passes = 0;
    int maxPasses = 1000;
    std::vector<std::chrono::milliseconds> sleeps;

    bool keepRunning() override { return passes < maxPasses && !ticks.empty(); }
    bool stopSignalled() override {
        ++passes;
        return stopSet;
    }
    std::uint32_t tickCount() override {
        const std::uint32_t tick = ticks.front();
        if (ticks.size() > 1 || passes == 0) {
            ticks.pop_front();
        }
        return tick;
    }
    void sleep(std::chrono::milliseconds duration) override { sleeps.push_back(duration); }
};

class FramePacerTest : public testing::Test {
  protected:
    ScriptedEnvironment environment;
    std::vector<std::int64_t> made;
    std::function<void(std::int64_t)> recorder = [this](std::int64_t f) { made.push_back(f); };
};

TEST_F(FramePacerTest, OneSecondAt25Fps_MakesFrames0To24InOrder) {
    environment.ticks = {5000, 6000};
    FramePacer pacer(patternFormat(3).period, environment);
    ASSERT_TRUE(pacer.pass(recorder));
    ASSERT_EQ(made.size(), 25u);
    for (std::int64_t f = 0; f < 25; ++f) {
        EXPECT_EQ(made[static_cast<std::size_t>(f)], f);
    }
    EXPECT_TRUE(environment.sleeps.empty());
}

TEST_F(FramePacerTest, PassWithoutFrame_SleepsTenMilliseconds) {
    environment.ticks = {5000, 5039};
    FramePacer pacer(patternFormat(3).period, environment);
    ASSERT_TRUE(pacer.pass(recorder));
    EXPECT_TRUE(made.empty());
    ASSERT_EQ(environment.sleeps.size(), 1u);
    EXPECT_EQ(environment.sleeps[0], std::chrono::milliseconds(10));
}

TEST_F(FramePacerTest, StallOfOneSecond_CatchesUpInOnePassWithoutSkipping) {
    environment.ticks = {100, 140, 180, 1180};
    FramePacer pacer(patternFormat(3).period, environment);
    pacer.pass(recorder);
    pacer.pass(recorder);
    EXPECT_EQ(made.size(), 2u);
    pacer.pass(recorder);
    ASSERT_EQ(made.size(), 27u) << "25 frames in the pass after the stall";
    for (std::size_t i = 0; i < made.size(); ++i) {
        EXPECT_EQ(made[i], static_cast<std::int64_t>(i));
    }
}

TEST_F(FramePacerTest, StopDuringCatchUp_TakesEffectWhenThePassIsOver) {
    environment.ticks = {0, 2000};
    FramePacer pacer(patternFormat(3).period, environment);
    // The stop arrives while the first pass catches up on 50 frames; that pass still finishes.
    pacer.run([&](std::int64_t f) {
        made.push_back(f);
        if (f == 10) {
            environment.stopSet = true;
        }
    });
    EXPECT_EQ(made.size(), 50u);
    EXPECT_EQ(pacer.nextFrame(), 50);
    EXPECT_EQ(environment.passes, 2);
}

TEST_F(FramePacerTest, ClearedRunFlag_EndsBeforeTheNextPass) {
    environment.ticks = {0, 40, 80};
    environment.maxPasses = 2;
    FramePacer pacer(patternFormat(3).period, environment);
    pacer.run(recorder);
    EXPECT_EQ(environment.passes, 2);
    EXPECT_EQ(made.size(), 2u);
}

TEST_F(FramePacerTest, TickWrapDuringARun_KeepsThePace) {
    environment.ticks = {0xFFFFFFFFu - 500, 0xFFFFFFFFu - 100, 499};
    FramePacer pacer(patternFormat(3).period, environment);
    pacer.pass(recorder);
    EXPECT_EQ(made.size(), 10u);
    pacer.pass(recorder);
    // 999 ms by the clock's rule: the tick plus the complement of the last one.
    EXPECT_EQ(made.size(), 24u);
}

}  // namespace
