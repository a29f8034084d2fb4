#include "encoding/subtitling/teletext_lines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

using namespace ovtx::encoding::subtitling::v1;
using ovtx::cpp_utils::cpp_tools::v1::SafeArray;

// A packet as a board's slicer gives it: run-in, framing code, then each byte high bit first.
TeletextLine slicedLine(const TeletextPacket& packet) {
    TeletextLine line{0xAA, 0xAA, 0xE4};
    std::transform(packet.begin(), packet.end(), line.begin() + 3, reverseBits);
    return line;
}

TeletextLine header(int magazine, int page, bool subtitle) {
    return slicedLine(
        pageHeaderPacket({.magazine = magazine, .page = page, .subtitle = subtitle, .text = ""}));
}

// Packet 8/30 format 1 announcing the initial page with these two digits.
TeletextLine initialPage(int units, int tens) {
    TeletextPacket packet = displayRowPacket(8, 30, "");
    packet[2] = hamming84(0);
    packet[3] = hamming84(static_cast<std::uint8_t>(units));
    packet[4] = hamming84(static_cast<std::uint8_t>(tens));
    return slicedLine(packet);
}

TEST(TeletextDescriptorListTest, InitialPage_ReadsEachDigitsBitsReversed_AndOtherHeadersFollowIt) {
    TeletextDescriptorList list;
    EXPECT_EQ(list.learn(header(1, 0x00, false)), DescriptorOutcome::Ignored);  // no initial page yet
    EXPECT_EQ(list.learn(slicedLine(displayRowPacket(1, 30, ""))),
              DescriptorOutcome::Ignored);  // not magazine 8
    EXPECT_EQ(list.learn(header(8, 0x88, true)), DescriptorOutcome::Added);
    EXPECT_EQ(list.learn(initialPage(2, 1)), DescriptorOutcome::Added);
    EXPECT_EQ(list.initialPage(), 0x84);  // 2 (0010) reads as 4 (0100), 1 (0001) as 8 (1000)
    EXPECT_EQ(list.learn(header(3, 0x45, false)), DescriptorOutcome::Rewritten);
    EXPECT_EQ(list.learn(header(8, 0xFF, true)), DescriptorOutcome::Ignored);
    std::uint8_t bytes[kMaxTeletextDescriptors * 5 + 2];
    const std::size_t size = writeTeletextDescriptor(bytes, list.entries());
    EXPECT_EQ(std::vector(bytes, bytes + size),
              (std::vector<std::uint8_t>{0x46, 10, 'u', 'n', 'd', 0x10, 0x88, 'u', 'n', 'd', 0x09, 0x84}));
}

TEST(TeletextDescriptorListTest, FullList_RefusesANewPageAndStillRewritesAKnownOne) {
    TeletextDescriptorList list;
    for (int page = 0; page < 20; ++page) {
        ASSERT_EQ(list.learn(header(1, page, true)), DescriptorOutcome::Added);
    }
    EXPECT_EQ(list.learn(header(1, 0x20, true)), DescriptorOutcome::ListFull);
    EXPECT_EQ(list.learn(header(1, 0x07, true)), DescriptorOutcome::Rewritten);
    ASSERT_EQ(list.entries().size(), 20u);
    EXPECT_EQ(list.entries()[19].page, 19);
}

TEST(TeletextLinesTest, AncPacket_CountsByItsFirstTwoWords) {
    const std::vector<std::pair<std::vector<unsigned short>, bool>> packets{
        {{16, 2}, true},      {{31, 3}, true},       {{153, 0xC0}, true},  {{0x29B, 0x103}, true},
        {{15, 2, 44}, false}, {{156, 2, 44}, false}, {{16, 4, 44}, false}, {{16}, false}};
    for (const auto& [words, counts] : packets) {
        EXPECT_EQ(teletextLineFromAncPacket(SafeArray(words.data(), words.size())).has_value(), counts)
            << words[0];
    }
    const std::vector<unsigned short> words{16, 3, 0x12C, 0x61, 0xE4};  // shorter than a line: zeros after it
    const std::optional<TeletextLine> line = teletextLineFromAncPacket(SafeArray(words.data(), words.size()));
    ASSERT_TRUE(line);
    EXPECT_EQ(std::vector(line->begin(), line->begin() + 4),
              (std::vector<std::uint8_t>{0x2C, 0x61, 0xE4, 0}));
}

}  // namespace
