#include "app/wss_reading.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/simulated_slots_test_helper.h"
#include "log/testing/capturing_logger.h"

namespace {

using namespace ovtx::app::sdi_tap::v1;

struct WssCase {
    std::string name;
    std::string port;  // keys of port 0 beside its PAL signal
    std::int32_t wssLineIndex;
    std::vector<std::string> aspect;  // of slots 0, 1, ... (input frames 1, 2, ...)
    std::vector<std::string> logged;
};
void PrintTo(const WssCase& c, std::ostream* out) {
    *out << c.name;
}

class WssReadingTest : public ::testing::TestWithParam<WssCase> {};

TEST_P(WssReadingTest, Aspect_FollowsTheTwoKnownLinesAndKeepsTheLastOne) {
    const WssCase& c = GetParam();
    ovtx::app::sdi_tap::v1::testing::SimulatedSlots slots(R"({"signal": [{"format": 0}], )" + c.port + "}",
                                                          0);
    ovtx::log::log_perf::v4::testing::CapturingLogger logger;
    EngineReport report(logger, true);
    AspectRatio stored = kAspect4x3;
    std::vector<std::string> aspects;
    for (std::size_t frame = 0; frame < c.aspect.size(); ++frame) {
        const AspectRatio aspect =
            readWssAspect(slots.api(), report, slots.next(), slots.lines(), c.wssLineIndex, stored);
        aspects.push_back(std::to_string(aspect.numerator) + ":" + std::to_string(aspect.denominator));
    }
    EXPECT_EQ(aspects, c.aspect);
    EXPECT_EQ(logger.lines(), c.logged);
}

const std::string kWide =
    R"("wss": [{"at": 0, "aspect": "16:9"}, {"at": 3, "aspect": "4:3"}, {"at": 4, "value": "0x000E"},
                                     {"at": 5, "aspect": "16:9"}, {"at": 6, "value": "0x0001"})";

INSTANTIATE_TEST_SUITE_P(
    Signals, WssReadingTest,
    ::testing::Values(
        WssCase{"KnownLinesAndOthers", kWide + "]", 0, {"16:9", "16:9", "4:3", "4:3", "16:9", "16:9"}, {}},
        WssCase{"FailureAfterAWideFrame",
                R"("wss": [{"at": 0, "aspect": "16:9"}, {"at": 3, "value": "0x000E"}],
                   "errors": [{"operation": "VHD_SlotVbiGetLine", "at": 2, "code": 2}])",
                0,
                {"16:9", "4:3", "16:9"},
                {"2 ERROR : Cannot get VBI Data on line 23 - Y samples. Result = 0x00000002"}},
        WssCase{"BlankLine",
                R"("wss": [{"at": 2, "aspect": "16:9"}])",
                0,
                {"4:3", "16:9"},
                {"2 exe VBI WSS *NOT* found... Line 23 doesn't contain any information"}},
        WssCase{"LinesNotSetUp",
                kWide + "]",
                -1,
                {"4:3"},
                {"2 ERROR : Cannot get VBI Data on line 23 - Y samples. Result = 0x00000005"}}),
    [](const ::testing::TestParamInfo<WssCase>& info) { return info.param.name; });

}  // namespace
