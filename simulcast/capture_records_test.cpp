#include "simulcast/capture_records.h"

#include <gtest/gtest.h>

namespace {

using namespace ovtx::simulcast::capture_records::v1;

TEST(CaptureRecordsTest, ChannelName_IsPrefixAndPortWithNothingBetween) {
    EXPECT_EQ(channelName(kVideoPrefix, "2"), "08A59B6C_B5E7_47f9_BC06_B06CB0484FC1_Sdi_Writer_Video_2");
    EXPECT_EQ(channelName(kStopEventPrefix, "4K"), "08A59B6C_B5E7_47f9_BC06_B06CB0484FC1_Sdi_Stop_Event_4K");
    EXPECT_NE(channelName(kAudioPrefix, "0"), channelName(kAudioPrefix, "4K"));
    for (const auto prefix : {kStopEventPrefix, kVideoPrefix, kAudioPrefix, kCaptionPrefix, kTeletextPrefix,
                              kClockPrefix, kVideoFormatPrefix}) {
        EXPECT_TRUE(prefix.starts_with(kNameFamily)) << prefix;
        EXPECT_TRUE(prefix.ends_with("_")) << prefix;
    }
}

struct ChunkSizeCase {
    int width;
    int height;
    std::int32_t eightBit;
    std::int32_t tenBit;
};

class CaptureVideoChunkBytesTest : public ::testing::TestWithParam<ChunkSizeCase> {};

TEST_P(CaptureVideoChunkBytesTest, MatchesPublishedTable) {
    const ChunkSizeCase c = GetParam();
    EXPECT_EQ(captureVideoChunkBytes(c.width, c.height, false), c.eightBit);
    EXPECT_EQ(captureVideoChunkBytes(c.width, c.height, true), c.tenBit);
    EXPECT_EQ(patternVideoChunkBytes(c.width, c.height, 8), c.eightBit + 16);
    EXPECT_EQ(patternVideoChunkBytes(c.width, c.height, 10), c.tenBit + 16);
}

INSTANTIATE_TEST_SUITE_P(Formats, CaptureVideoChunkBytesTest,
                         ::testing::Values(ChunkSizeCase{720, 576, 622112, 1244192},
                                           ChunkSizeCase{720, 480, 518432, 1036832},
                                           ChunkSizeCase{1280, 720, 1382432, 2764832},
                                           ChunkSizeCase{1920, 1080, 3110432, 6220832},
                                           ChunkSizeCase{3840, 2160, 12441632, 24883232}));

struct RateInfo {
    std::int64_t rateNumerator;
    std::int64_t rateDenominator;
};

TEST(CaptureRecordsTest, FrameTimes_OneTruncatingDivisionNeverAccumulated) {
    const RateInfo ntsc{30000, 1001};
    EXPECT_EQ(frameStartTime(0, ntsc), 0);
    EXPECT_EQ(frameStartTime(1, ntsc), 333666);  // 333666.67 truncated
    EXPECT_EQ(frameEndTime(1, ntsc), 667333);
    EXPECT_EQ(frameStartTime(2, ntsc), 667333);
    // After a day of frames the time is still exact, where adding 333666 each frame drifts.
    const std::int64_t day = 30000LL * 86400 / 1001;
    EXPECT_EQ(frameStartTime(day, ntsc), day * 10000000 * 1001 / 30000);
    EXPECT_NE(frameStartTime(day, ntsc), day * 333666);
    EXPECT_EQ(frameStartTime(25, 25, 1), 10000000);
    EXPECT_EQ(frameEndTime(24, 25, 1), 10000000);
}

}  // namespace
