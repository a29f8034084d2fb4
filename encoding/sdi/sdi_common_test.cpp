#include "encoding/sdi/sdi_common.h"

#include <gtest/gtest.h>

#include <set>
#include <utility>

namespace {

using namespace ovtx::encoding::sdi::sdi_common::v2;

TEST(SdiFormatInfoTest, CodesOutsideTheTableThrow) {
    for (std::int32_t code : {-1, 1, 15, 100, 109, 1000}) {
        SCOPED_TRACE(code);
        try {
            SdiFormatInfo info(code);
            FAIL() << "accepted " << code;
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "invalid SDI video standard");
        }
        EXPECT_THROW(scanLetter(code), std::runtime_error);
        EXPECT_THROW(formatShortText(code), std::runtime_error);
        EXPECT_THROW(formatLongText(code), std::runtime_error);
        EXPECT_EQ(standardNorm(code), "<undefined>");
    }
}

TEST(SdiFormatInfoTest, DerivedFieldsFollowTheRate) {
    SdiFormatInfo i60(VS_HD_1920_1080i_60);
    EXPECT_EQ(i60.clockDivisor, 0u);
    EXPECT_FALSE(i60.dropFrame);
    EXPECT_EQ(i60.scan, 1u);
    EXPECT_EQ(i60.rateNumerator, 30);

    SdiFormatInfo i5994(VS_HD_1920_1080i_59_94);
    EXPECT_EQ(i5994.clockDivisor, 1u);
    EXPECT_TRUE(i5994.dropFrame);
    EXPECT_EQ(i5994.scan, 1u);
    EXPECT_EQ(i5994.rateNumerator, 30000);
    EXPECT_EQ(i5994.rateDenominator, 1001);
    EXPECT_EQ(i5994.wssLine, 23u);
    EXPECT_EQ(i5994.ancLine, 11u);

    SdiFormatInfo uhd(VS_4_3G_1920_1080p_59_94);
    EXPECT_EQ(uhd.width, 3840);
    EXPECT_EQ(uhd.height, 2160);
    EXPECT_EQ(uhd.boardStandard, 30u);
    EXPECT_EQ(uhd.scan, 0u);
}

TEST(SdiFormatTextTest, ShortAndLongTexts) {
    const std::pair<std::int32_t, const char*> shortTexts[] = {
        {2, "720x480i 29.97 fps"},     {13, "1280x720p 60 fps"}, {10, "1920x1080p 59.94 fps"},
        {101, "3840x2160p 23.98 fps"}, {5, "1920x1080i 25 fps"},
    };
    for (const auto& [code, text] : shortTexts) {
        EXPECT_EQ(formatShortText(code), text);
    }
    EXPECT_EQ(formatLongText(0), "Video format : PAL - 576i @ 25Hz");
    EXPECT_EQ(formatLongText(101), "Video format : 4 x SMPTE 274M - 2160p @ 23.98Hz");
    EXPECT_EQ(formatLongText(6), "Video format : SMPTE 274M - 1080i @ 29.97Hz");
    EXPECT_EQ(formatLongText(8), "Video format : SMPTE 296M - 720p @ 59.94Hz");
}

TEST(SdiFormatBoardTest, EveryFormatRoundTripsThroughTheBoardPair) {
    std::set<std::pair<std::uint32_t, std::uint32_t>> pairs;
    for (const auto& row : formatTable()) {
        SdiFormatInfo info(row.code);
        EXPECT_EQ(info.clockDivisor, row.clockDivisor) << row.name;
        EXPECT_EQ(formatCodeOf(info), row.code) << row.name;
        EXPECT_TRUE(pairs.emplace(row.boardStandard, row.clockDivisor).second) << row.name;
    }
}

TEST(SdiFormatBoardTest, PairsWithoutAFormat) {
    const std::pair<std::uint32_t, std::uint32_t> none[] = {{7, 0}, {6, 1}, {37, 0}, {3, 2}, {8, 0}, {27, 1}};
    for (const auto& [standard, divisor] : none) {
        EXPECT_EQ(formatFromBoard(standard, divisor), NO_FORMAT) << standard << "/" << divisor;
    }
    EXPECT_EQ(formatFromBoard(1, 0), VS_HD_1920_1080p_30);
    EXPECT_EQ(formatFromBoard(1, 1), VS_HD_1920_1080p_29_97);
    EXPECT_EQ(formatFromBoard(26, 1), VS_4_HD_1920_1080p_23_98);
}

TEST(SdiFormatNameTest, NamesAndDecimalNumbersAreBothKeys) {
    EXPECT_EQ(formatName(9), "3G_1920_1080p_50");
    EXPECT_EQ(formatName(104), "4_3G_1920_1080p_50");
    EXPECT_FALSE(formatName(1).has_value());
    EXPECT_EQ(formatFromName("3G_1920_1080p_50"), VS_3G_1920_1080p_50);
    EXPECT_EQ(formatFromName("9"), VS_3G_1920_1080p_50);
    EXPECT_EQ(formatFromName("108"), VS_4_3G_1920_1080p_60);
    for (const char* bad : {"1", "VS_PAL_720_576i_50", "pal_720_576i_50", ""}) {
        try {
            formatFromName(bad);
            FAIL() << "accepted " << bad;
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "Invalid enum choice");
        }
    }
}

}  // namespace
