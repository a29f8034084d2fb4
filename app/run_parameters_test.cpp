#include "app/run_parameters.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace ovtx::app::sdi_tap::v1;

struct ParseCase {
    const char* name;
    std::vector<std::string> arguments;  // without the program path
    std::uint32_t portLimit;
    bool accepted;
    std::string message;  // what stands ahead of the usage text
};

void PrintTo(const ParseCase& c, std::ostream* os) {
    *os << c.name;
}

class ParseArgumentsTest : public ::testing::TestWithParam<ParseCase> {};

TEST_P(ParseArgumentsTest, AcceptsOrRejectsWithTheExactMessage) {
    const ParseCase& c = GetParam();
    std::vector<std::string> arguments{"sdi_tap"};
    arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
    RunParameters parameters;
    bool pattern = false;
    std::ostringstream errors;
    EXPECT_EQ(parseArguments(arguments, parameters, c.portLimit, pattern, errors), c.accepted);
    EXPECT_EQ(errors.str(), c.message);
}

const std::string kMandatory = "Arguments -port and -fourHDquads are mandatory and exclusive.\n";
const std::string kBadFormat = "Invalid argument : videoformat \n";

INSTANTIATE_TEST_SUITE_P(
    CommandLine, ParseArgumentsTest,
    ::testing::Values(
        ParseCase{"NoArguments", {}, 1, false, kMandatory},
        ParseCase{"PortZeroNoBoard", {"-sdiport", "0", "-videoformat", "3"}, 1, true, ""},
        ParseCase{"PortOneNoBoard", {"-sdiport", "1", "-videoformat", "3"}, 1, false, "SdiPort must be 0\n"},
        ParseCase{"PortBeyondBoard",
                  {"-sdiport", "8", "-videoformat", "3"},
                  8,
                  false,
                  "SdiPort must be in [0;7]\n"},
        ParseCase{"OutputChannelsCount", {"-sdiport", "7", "-videoformat", "3"}, 8, true, ""},
        ParseCase{"UpperCase", {"-SDIPORT", "0", "-VideoFormat", "3", "-PRINT"}, 1, true, ""},
        ParseCase{"NegativePortFailsInRangeCheck",
                  {"-sdiport", "-1", "-videoformat", "3"},
                  1,
                  false,
                  "SdiPort must be 0\n"},
        ParseCase{"PortWithoutDigitsIsZero", {"-sdiport", "x", "-videoformat", "3"}, 1, true, ""},
        ParseCase{"HugePortSaturates",
                  {"-sdiport", "99999999999", "-videoformat", "3"},
                  1,
                  false,
                  "SdiPort must be 0\n"},
        ParseCase{"PortMissingNumber",
                  {"-videoformat", "3", "-sdiport"},
                  1,
                  false,
                  "Expected number after -sdiport\n"},
        ParseCase{"FormatMissingNumber",
                  {"-sdiport", "0", "-videoformat"},
                  1,
                  false,
                  "Expected number after -videoformat\n"},
        ParseCase{
            "PortAndQuads", {"-sdiport", "0", "-fourhdquads", "-videoformat", "3"}, 1, false, kMandatory},
        ParseCase{"QuadsWith4KFormat", {"-fourhdquads", "-videoformat", "101"}, 1, false, kBadFormat},
        ParseCase{"QuadsWithHdFormat",
                  {"-fourHDquads", "-videoformat", "3"},
                  1,
                  false,
                  "Invalid argument : videoformat 0 is not a 4K format\n"},
        ParseCase{"FormatOmitted", {"-sdiport", "0"}, 1, false, kBadFormat},
        ParseCase{"Format36Passes", {"-sdiport", "0", "-videoformat", "36"}, 1, true, ""},
        ParseCase{"Format37Fails", {"-sdiport", "0", "-videoformat", "37"}, 1, false, kBadFormat},
        ParseCase{
            "RepeatedOptionLastStands", {"-sdiport", "5", "-sdiport", "0", "-videoformat", "3"}, 8, true, ""},
        ParseCase{"Sampling", {"-sdiport", "0", "-videoformat", "3", "-sampling_2", "44.1"}, 1, true, ""},
        ParseCase{"SamplingEightEatsNoValue",
                  {"-sdiport", "0", "-videoformat", "3", "-sampling_8", "48"},
                  1,
                  false,
                  ""},
        ParseCase{"SamplingEightAlone", {"-sdiport", "0", "-videoformat", "3", "-sampling_8"}, 1, true, ""},
        ParseCase{
            "SamplingWithoutValue", {"-sdiport", "0", "-videoformat", "3", "-sampling_1"}, 1, false, ""},
        ParseCase{
            "SamplingBadValue", {"-sdiport", "0", "-videoformat", "3", "-sampling_1", "96"}, 1, false, ""},
        ParseCase{"UnknownOption", {"-sdiport", "0", "-videoformat", "3", "-verbose"}, 1, false, ""}),
    [](const ::testing::TestParamInfo<ParseCase>& info) { return info.param.name; });

TEST(ParseArgumentsFieldsTest, FillsTheRecord) {
    RunParameters parameters;
    bool pattern = false;
    std::ostringstream errors;
    ASSERT_TRUE(parseArguments(
        {"p", "-sdiport", "2", "-videoformat", "9", "-pattern", "-use10bit", "-usetc", "-print",
         "x-SAMPLING_3y", "AUTO", "-sampling_0", "32", "-sampling_7", "44.1", "-sampling_1", "48"},
        parameters, 4, pattern, errors));
    EXPECT_TRUE(pattern);
    EXPECT_EQ(parameters.sdiPort, 2);
    EXPECT_EQ(parameters.videoFormat, 9);
    EXPECT_TRUE(parameters.use10Bit && parameters.useTimecode && parameters.print);
    EXPECT_FALSE(parameters.fourHdQuads);
    const std::array<std::uint32_t, 8> expected{3, 1, 0, 0, 0, 0, 0, 2};
    EXPECT_EQ(parameters.audioSampling, expected);
}

TEST(ParseNumberTest, BehavesAsAtoiWithSaturation) {
    EXPECT_EQ(parseNumber("  \t+42abc"), 42);
    EXPECT_EQ(parseNumber("-7"), -7);
    EXPECT_EQ(parseNumber("abc"), 0);
    EXPECT_EQ(parseNumber("- 5"), 0);
    EXPECT_EQ(parseNumber("2147483648"), 2147483647);
    EXPECT_EQ(parseNumber("-2147483648"), -2147483647 - 1);
    EXPECT_EQ(parseNumber("-99999999999999999999"), -2147483647 - 1);
}

TEST(UsageTest, TextForOnePortAndForSeveral) {
    std::ostringstream one;
    printUsage(one, "./sdi_tap", 1);
    const std::string expectedOne =
        "\nUsage: \n"
        "  1 : ./sdi_tap -sdiport <port> -videoformat <videoformat> [-print] [-usetc] [-pattern] [-use10bit] "
        "[-sampling_<X> <val>]\n"
        "  2 : ./sdi_tap -fourHDquads    -videoformat <videoformat> [-print] [-usetc] [-pattern] [-use10bit] "
        "[-sampling_<X> <val>]\n"
        "\n"
        "Usage 1 must be used for classic HD/SD video formats.\n"
        "Usage 2 must be used for 4K video formats, which use 4HD signal on 4 SDI ports.\n"
        " <port> : [0] SDI port where exe_sdi_tap is capturing SDI\n"
        " <videoformat> : [0..8] Video format of the SDI Stream\n"
        " [-print] : display debug info\n"
        " [-usetc] : use timecode\n"
        " [-pattern] : generates audio/video pattern instead of grabbing frames from the SDI board\n"
        " [-use10bit] : extract 10bit buffer video frames in SDI signal, wrie them to shared memory\n"
        " [-sampling_<X> <val>] : use 'val' as sampling rate for pair X. X in [0..7], val in "
        "(48|44.1|32|auto)\n"
        "\n"
        "Example:\n"
        "  ./sdi_tap -sdiport 2 -videoformat 2 -print\n";
    EXPECT_EQ(one.str(), expectedOne);

    std::ostringstream eight;
    printUsage(eight, "x", 8);
    EXPECT_NE(eight.str().find("\n <port> : [0..7] SDI port where exe_sdi_tap is capturing SDI\n"),
              std::string::npos);
}

TEST(FourKFormatTest, OnlyTheEightQuadCodes) {
    for (std::int32_t code = -1; code < 120; ++code) {
        EXPECT_EQ(isFourKFormat(code), code >= 101 && code <= 108) << code;
    }
}

}  // namespace
