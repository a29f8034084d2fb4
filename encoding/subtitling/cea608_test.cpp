#include "encoding/subtitling/cea608.h"

#include <gtest/gtest.h>

#include <bit>

namespace {

using namespace ovtx::encoding::subtitling::v1;

struct ControlCase {
    Cea608Command command;
    Cea608Channel channel;
    Cea608Pair expected;
};

class Cea608ControlTest : public testing::TestWithParam<ControlCase> {};

TEST_P(Cea608ControlTest, Control_HasTheBytesDecodersKnow) {
    EXPECT_EQ(cea608Control(GetParam().command, GetParam().channel), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    KnownCodes, Cea608ControlTest,
    testing::Values(ControlCase{Cea608Command::ResumeCaptionLoading, Cea608Channel::CC1, {0x94, 0x20}},
                    ControlCase{Cea608Command::EraseNonDisplayedMemory, Cea608Channel::CC1, {0x94, 0xAE}},
                    ControlCase{Cea608Command::EndOfCaption, Cea608Channel::CC1, {0x94, 0x2F}},
                    ControlCase{Cea608Command::EraseDisplayedMemory, Cea608Channel::CC1, {0x94, 0x2C}},
                    ControlCase{Cea608Command::ResumeCaptionLoading, Cea608Channel::CC2, {0x1C, 0x20}},
                    ControlCase{Cea608Command::ResumeCaptionLoading, Cea608Channel::CC3, {0x15, 0x20}}));

TEST(Cea608Test, PreambleAddress_RowsAndIndents) {
    EXPECT_EQ(cea608PreambleAddress(15, 0), (Cea608Pair{0x94, 0x70}));
    EXPECT_EQ(cea608PreambleAddress(14, 0), (Cea608Pair{0x94, 0xD0}));
    EXPECT_EQ(cea608PreambleAddress(1, 4), (Cea608Pair{0x91, 0x52}));
    EXPECT_EQ(cea608PreambleAddress(11, 28), (Cea608Pair{0x10, 0x5E}));
}

TEST(Cea608Test, Text_PairsCharactersWithParityAndPadsOddLength) {
    const std::vector<Cea608Pair> pairs = cea608Text("BEEPS");
    ASSERT_EQ(pairs.size(), 3u);
    EXPECT_EQ(pairs[0], (Cea608Pair{0xC2, 0x45}));  // 'B' has two ones, 'E' three
    EXPECT_EQ(pairs[1], (Cea608Pair{0x45, 0xD0}));
    EXPECT_EQ(pairs[2], (Cea608Pair{0xD3, 0x80}));
    for (const Cea608Pair& pair : pairs) {
        EXPECT_EQ(std::popcount(pair.first) % 2, 1);
        EXPECT_EQ(std::popcount(pair.second) % 2, 1);
    }
    EXPECT_EQ(cea608Null(), (Cea608Pair{0x80, 0x80}));
}

}  // namespace
