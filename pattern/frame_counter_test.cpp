#include "pattern/frame_counter.h"

#include <gtest/gtest.h>

namespace {

using ovtx::pattern::pattern_source::v1::FrameCounter;
using ovtx::pattern::pattern_source::v1::FrameRational;

TEST(FrameCounterTest, Terminal_CountsEveryFrameOnOneLine) {
    const FrameCounter counter(FrameRational{1, 25}, true);
    EXPECT_EQ(counter.textAfterFrame(0), "\rGenerated frame #0");
    EXPECT_EQ(counter.textAfterFrame(1), "\rGenerated frame #1");
    EXPECT_EQ(counter.textAfterFrame(1499), "\rGenerated frame #1499");
}

TEST(FrameCounterTest, NoTerminal_WritesALineForTheFirstFrameOfEachMinute) {
    struct Case {
        FrameRational period;
        std::int64_t frame;
        const char* text;
    };
    const Case cases[] = {
        {{1, 25}, 0, "Generated frame #0\n"},
        {{1, 25}, 1, ""},
        {{1, 25}, 1499, ""},
        {{1, 25}, 1500, "Generated frame #1500\n"},
        {{1, 25}, 1501, ""},
        {{1, 25}, 3000, "Generated frame #3000\n"},
        // At 29.97 a minute does not end on a frame: frame 1798 starts at 59.99 s, 1799 at 60.02 s.
        {{1001, 30000}, 1798, ""},
        {{1001, 30000}, 1799, "Generated frame #1799\n"},
        {{1001, 60000}, 3596, ""},
        {{1001, 60000}, 3597, "Generated frame #3597\n"},
    };
    for (const Case& c : cases) {
        const FrameCounter counter(c.period, false);
        EXPECT_EQ(counter.textAfterFrame(c.frame), c.text) << c.period.denominator << " frame " << c.frame;
    }
}

}  // namespace
