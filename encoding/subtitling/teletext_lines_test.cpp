#include "encoding/subtitling/teletext_lines.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace ovtx::encoding::subtitling::v1;
using ovtx::cpp_utils::cpp_tools::v1::SafeArray;

// A packet as a board's slicer gives it on a VBI line: run-in, framing code, then the packet with
// the first bit sent in each byte's high bit.
TeletextLine slicedLine(const TeletextPacket& packet) {
    TeletextLine line{0xAA, 0xAA, 0xE4};
    std::transform(packet.begin(), packet.end(), line.begin() + 3, reverseBits);
    return line;
}

TeletextLine header(int magazine, int page, bool subtitle) {
    TeletextPageHeader fields;
    fields.magazine = magazine;
    fields.page = page;
    fields.subtitle = subtitle;
    return slicedLine(pageHeaderPacket(fields));
}

// Packet 8/30 format 1 announcing the initial page with these two digits.
TeletextLine initialPage(int units, int tens) {
    TeletextPacket packet = displayRowPacket(8, 30, "");
    packet[2] = hamming84(0);
    packet[3] = hamming84(static_cast<std::uint8_t>(units));
    packet[4] = hamming84(static_cast<std::uint8_t>(tens));
    return slicedLine(packet);
}

TEST(TeletextLinesTest, Address_GivesMagazineBitsAndRow) {
    struct Case {
        int magazine;
        int row;
        int magazineBits;
    };
    for (const Case c : {Case{8, 0, 0}, Case{1, 0, 1}, Case{5, 22, 5}, Case{7, 31, 7}, Case{8, 30, 0}}) {
        const TeletextLineAddress address =
            teletextLineAddress(slicedLine(displayRowPacket(c.magazine, c.row, "")));
        EXPECT_EQ(address.magazine, c.magazineBits) << c.magazine << "/" << c.row;
        EXPECT_EQ(address.row, c.row) << c.magazine << "/" << c.row;
    }
}

TEST(TeletextLinesTest, HeaderDataUnitId_IsThreeForSubtitlePages) {
    EXPECT_EQ(dataUnitIdOfHeader(header(8, 0x88, true)), kDataUnitEbuSubtitle);
    EXPECT_EQ(dataUnitIdOfHeader(header(1, 0x00, false)), kDataUnitEbuNonSubtitle);
}

TEST(TeletextLinesTest, CapturedDataUnit_HoldsThePacketAsSliced) {
    const TeletextPacket packet = displayRowPacket(3, 5, "Row five");
    std::uint8_t unit[kTeletextDataUnitSize];
    writeCapturedDataUnit(unit, kDataUnitEbuSubtitle, lineOffsetByte(7), slicedLine(packet));
    std::uint8_t expected[kTeletextDataUnitSize];
    writeTeletextDataUnit(expected, kDataUnitEbuSubtitle, lineOffsetByte(7), packet);
    EXPECT_TRUE(std::equal(unit, unit + kTeletextDataUnitSize, expected));
}

struct AncCase {
    std::string name;
    std::vector<unsigned short> words;
    bool counts;
};

class TeletextAncPacketTest : public testing::TestWithParam<AncCase> {};

TEST_P(TeletextAncPacketTest, WordChecks_DecideWhetherThePacketCarriesALine) {
    const std::vector<unsigned short>& words = GetParam().words;
    const std::optional<TeletextLine> line =
        teletextLineFromAncPacket(SafeArray<unsigned short>(words.data(), words.size()));
    ASSERT_EQ(line.has_value(), GetParam().counts);
    if (line) {
        for (std::size_t i = 0; i < kTeletextLineBytes; ++i) {
            const unsigned expected = i + 2 < words.size() ? words[i + 2] & 0xFFu : 0u;
            EXPECT_EQ((*line)[i], expected) << i;
        }
    }
}

std::vector<unsigned short> ancWords(unsigned lineWord, unsigned dataUnitId, std::size_t size = 47) {
    std::vector<unsigned short> words{static_cast<unsigned short>(lineWord),
                                      static_cast<unsigned short>(dataUnitId)};
    for (std::size_t i = 2; i < size; ++i) {
        words.push_back(static_cast<unsigned short>(0x100 | (i * 7 & 0xFF)));
    }
    return words;
}

INSTANTIATE_TEST_SUITE_P(Packets, TeletextAncPacketTest,
                         testing::Values(AncCase{"Subtitle", ancWords(0x17, 0x03), true},
                                         AncCase{"NonSubtitle", ancWords(0x10, 0x02), true},
                                         AncCase{"InvertedId", ancWords(0x1F, 0xC0), true},
                                         AncCase{"LineWord153", ancWords(153, 0x02), true},
                                         AncCase{"ParityBitsAbove", ancWords(0x215, 0x103), true},
                                         AncCase{"LineWord15", ancWords(15, 0x02), false},
                                         AncCase{"LineWord156", ancWords(156, 0x02), false},
                                         AncCase{"DataUnitId4", ancWords(0x10, 0x04), false},
                                         AncCase{"OneWord", {0x10}, false},
                                         AncCase{"TwoWords", ancWords(0x10, 0x02, 2), true},
                                         AncCase{"ShortPacket", ancWords(0x10, 0x02, 20), true}),
                         [](const testing::TestParamInfo<AncCase>& info) { return info.param.name; });

TEST(TeletextDescriptorListTest, SubtitleHeader_GivesTypeTwoWithMagazineBitsAndPage) {
    TeletextDescriptorList list;
    EXPECT_EQ(list.learn(header(8, 0x88, true)), DescriptorOutcome::Added);
    EXPECT_EQ(list.learn(header(2, 0x50, true)), DescriptorOutcome::Added);
    ASSERT_EQ(list.entries().size(), 2u);
    EXPECT_EQ(list.entries()[0].type, kTeletextTypeSubtitle);
    EXPECT_EQ(list.entries()[0].magazine, 0);  // magazine 8 is sent as 0
    EXPECT_EQ(list.entries()[0].page, 0x88);
    EXPECT_EQ(list.entries()[1].magazine, 2);
    EXPECT_EQ(list.entries()[1].page, 0x50);
    EXPECT_EQ(std::string(list.entries()[0].language.data(), 3), "und");
}

TEST(TeletextDescriptorListTest, InitialPage_ReadsEachDigitsBitsReversed_AndOtherHeadersFollowIt) {
    TeletextDescriptorList list;
    EXPECT_EQ(list.learn(header(1, 0x00, false)), DescriptorOutcome::Ignored);  // no initial page yet
    EXPECT_EQ(list.learn(slicedLine(displayRowPacket(1, 5, "row"))), DescriptorOutcome::Ignored);
    EXPECT_EQ(list.learn(slicedLine(displayRowPacket(1, 30, ""))),
              DescriptorOutcome::Ignored);  // not magazine 8
    EXPECT_EQ(list.learn(initialPage(2, 1)), DescriptorOutcome::Added);
    // Units 2 (0010) read as 4 (0100), tens 1 (0001) as 8 (1000).
    EXPECT_EQ(list.initialPage(), 0x84);
    EXPECT_EQ(list.learn(header(1, 0x00, false)), DescriptorOutcome::Rewritten);
    EXPECT_EQ(list.learn(header(3, 0x45, false)), DescriptorOutcome::Rewritten);
    ASSERT_EQ(list.entries().size(), 1u);
    EXPECT_EQ(list.entries()[0].type, kTeletextTypeInitialPage);
    EXPECT_EQ(list.entries()[0].magazine, 1);
    EXPECT_EQ(list.entries()[0].page, 0x84);
}

TEST(TeletextDescriptorListTest, PageFF_IsSkipped) {
    TeletextDescriptorList list;
    EXPECT_EQ(list.learn(header(8, 0xFF, true)), DescriptorOutcome::Ignored);
    EXPECT_EQ(list.learn(initialPage(0xF, 0xF)), DescriptorOutcome::Ignored);
    EXPECT_EQ(list.initialPage(), 0xFF);
    EXPECT_TRUE(list.entries().empty());
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

}  // namespace
