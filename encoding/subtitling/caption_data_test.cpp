#include "encoding/subtitling/caption_data.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace ovtx::encoding::subtitling::v1;
using ovtx::cpp_utils::cpp_tools::v1::SafeArray;

struct CdpCase {
    std::vector<unsigned short> words;  // parity bits above the low byte must not count
    int count;                          // -1: the walk fails at the bound
};

class CaptionDistributionPacketTest : public testing::TestWithParam<CdpCase> {};

TEST_P(CaptionDistributionPacketTest, Walk_SkipsTheSectionsTheFlagsAnnounce) {
    CcDataList list;
    const SafeArray<unsigned short> words(GetParam().words.data(), GetParam().words.size());
    if (GetParam().count < 0) {
        EXPECT_THROW(parseCaptionDistributionPacket(words, list),
                     ovtx::cpp_utils::cpp_tools::v1::SafeArrayException<unsigned short>);
        return;
    }
    parseCaptionDistributionPacket(words, list);
    ASSERT_EQ(list.count, GetParam().count);
    if (list.count > 0) {
        EXPECT_EQ(list.entries[0].markerBits, 31);
        EXPECT_EQ(list.entries[0].type, 1);
        EXPECT_EQ(list.entries[0].data1, 0x41);
        EXPECT_EQ(list.entries[1].valid, 0);
    }
}

// Header (flags at word 4), time code section (0x71), cc_data (0x72, count, FD 41 42, FA 00 00),
// service information (0x73, 1 entry of 7 bytes), a future section (0x80, 2 bytes), footer (0x74).
INSTANTIATE_TEST_SUITE_P(
    Packets, CaptionDistributionPacketTest,
    testing::Values(
        CdpCase{{0x96, 0x69, 0, 0x3F, 0x243, 0, 1, 0x72, 0xE2, 0xFD, 0x41, 0x42, 0xFA, 0, 0, 0x74, 0, 1, 0},
                2},
        CdpCase{
            {0x96, 0x69, 0,    0x3F, 0xE3, 0, 1, 0x71, 1, 2, 3,    4, 0x72, 0xE2, 0xFD, 0x41, 0x42, 0xFA, 0,
             0,    0x73, 0xE1, 1,    2,    3, 4, 5,    6, 7, 0x80, 2, 1,    2,    0x74, 0,    1,    0},
            2},
        CdpCase{{0x96, 0x69, 0, 0x3F, 0x03, 0, 1, 0x74, 0, 1, 0}, 0},
        CdpCase{{0x96, 0x69, 0, 0x3F, 0x43, 0, 1, 0x72, 0xE2, 0xFD, 0x41, 0x42, 0xFA, 0, 0, 0x74, 0, 1}, -1},
        CdpCase{{0x96, 0x69, 0, 0x3F, 0x43, 0,  1,    0x72, 0xE2, 0xFD, 0x41,
                 0x42, 0xFA, 0, 0,    0xEF, 40, 0x74, 0,    1,    0},
                -1}));

TEST(CaptionDistributionPacketTest, ThreeWords_FailWithTheBoundsText) {
    const unsigned short words[] = {0x96, 0x69, 0x03};
    CcDataList list;
    try {
        parseCaptionDistributionPacket(SafeArray<unsigned short>(words, 3), list);
        FAIL() << "no failure";
    } catch (const ovtx::cpp_utils::exception_utils::v1::OrvantaException& failure) {
        EXPECT_STREQ(failure.what(), "Trying access offset 4 in buffer of size 3\n");
    }
}

}  // namespace
