#include "encoding/subtitling/teletext_coding.h"

#include <gtest/gtest.h>
#include <libzvbi.h>

#include <vector>

namespace {

using namespace ovtx::encoding::subtitling::v1;

TEST(TeletextCodingTest, HammingBytesDecodeToTheirNibbleAndSurviveOneBitError) {
    for (int nibble = 0; nibble < 16; ++nibble) {
        SCOPED_TRACE(nibble);
        const std::uint8_t coded = hamming84(static_cast<std::uint8_t>(nibble));
        EXPECT_EQ(coded, vbi_ham8(static_cast<unsigned>(nibble)));
        EXPECT_EQ(vbi_unham8(coded), nibble);
        for (int flipped = 0; flipped < 8; ++flipped) {
            EXPECT_EQ(vbi_unham8(coded ^ (1u << flipped)), nibble) << "bit " << flipped;
        }
    }
}

TEST(TeletextCodingTest, ParityAndBitReversalAgreeWithTheReferenceDecoder) {
    for (int value = 0; value < 256; ++value) {
        SCOPED_TRACE(value);
        const auto byte = static_cast<std::uint8_t>(value);
        EXPECT_EQ(vbi_unpar8(withOddParity(byte)), value & 0x7F);
        EXPECT_EQ(reverseBits(byte), vbi_rev8(byte));
    }
}

TEST(TeletextCodingTest, PageHeader_CarriesAddressPageAndControlBits) {
    TeletextPageHeader header;
    header.magazine = 8;
    header.page = 0x88;
    header.subcode = 0x1234 & 0x3F7F;
    header.erasePage = true;
    header.subtitle = true;
    header.suppressHeader = true;
    header.magazineSerial = true;
    header.text = "HDR";
    const TeletextPacket packet = pageHeaderPacket(header);

    const int address = vbi_unham16p(packet.data());
    EXPECT_EQ(address & 7, 0) << "magazine 8 is sent as 0";
    EXPECT_EQ(address >> 3, 0) << "row 0";
    EXPECT_EQ(vbi_unham16p(packet.data() + 2), 0x88);
    const int s1 = vbi_unham8(packet[4]), s2 = vbi_unham8(packet[5]);
    const int s3 = vbi_unham8(packet[6]), s4 = vbi_unham8(packet[7]);
    EXPECT_EQ(s1 | (s2 & 7) << 4 | s3 << 8 | (s4 & 3) << 12, 0x1234 & 0x3F7F);
    EXPECT_EQ(s2 & 8, 8) << "C4 erase page";
    EXPECT_EQ(s4 & 4, 0) << "C5 newsflash";
    EXPECT_EQ(s4 & 8, 8) << "C6 subtitle";
    EXPECT_EQ(vbi_unham8(packet[8]), 1) << "C7 only";
    EXPECT_EQ(vbi_unham8(packet[9]), 1) << "C11 only";
    EXPECT_EQ(vbi_unpar8(packet[10]), 'H');
    EXPECT_EQ(vbi_unpar8(packet[12]), 'R');
    EXPECT_EQ(vbi_unpar8(packet[41]), ' ');
}

TEST(TeletextCodingTest, DisplayRow_AddressesRowAndPadsWithSpaces) {
    const TeletextPacket packet = displayRowPacket(3, 23, "Beep");
    const int address = vbi_unham16p(packet.data());
    EXPECT_EQ(address & 7, 3);
    EXPECT_EQ(address >> 3, 23);
    std::string text;
    for (std::size_t i = 2; i < packet.size(); ++i) {
        const int c = vbi_unpar8(packet[i]);
        ASSERT_GE(c, 0) << "parity error at " << i;
        text.push_back(static_cast<char>(c));
    }
    EXPECT_EQ(text, "Beep" + std::string(36, ' '));
}

TEST(TeletextCodingTest, DataUnit_FramesThePacketWithReversedBits) {
    const TeletextPacket packet = displayRowPacket(8, 1, "x");
    std::uint8_t unit[kTeletextDataUnitSize + 1];
    unit[kTeletextDataUnitSize] = 0x5A;
    writeTeletextDataUnit(unit, kDataUnitEbuSubtitle, lineOffsetByte(7), packet);
    EXPECT_EQ(unit[0], 0x03);
    EXPECT_EQ(unit[1], 0x2C);
    EXPECT_EQ(unit[2], 0x67);
    EXPECT_EQ(unit[3], 0xE4);
    for (std::size_t i = 0; i < packet.size(); ++i) {
        EXPECT_EQ(unit[4 + i], vbi_rev8(packet[i])) << i;
    }
    EXPECT_EQ(unit[kTeletextDataUnitSize], 0x5A) << "wrote past the unit";
    // Reversed, the Hamming data bits stand at 6, 4, 2 and 0, where a demultiplexer reads them.
    const std::uint8_t mrag = unit[4];
    const int magazine = ((mrag >> 6) & 1) + 2 * ((mrag >> 4) & 1) + (mrag & 4);
    EXPECT_EQ(magazine, 0);
    EXPECT_EQ(mrag & 1, 1) << "row 1";
}

TEST(TeletextCodingTest, LineOffsetByte_FollowsTheKeyRule) {
    EXPECT_EQ(lineOffsetByte(0), 0x60);
    EXPECT_EQ(lineOffsetByte(22), 0x76);
    EXPECT_EQ(lineOffsetByte(23), 0x5E);
    EXPECT_EQ(lineOffsetByte(25), 0x40);
}

TEST(TeletextCodingTest, Descriptor_EmptyAndWithEntries) {
    std::uint8_t out[2 + 2 * kTeletextDescriptorEntrySize] = {};
    EXPECT_EQ(writeTeletextDescriptor(out, {}), 2u);
    EXPECT_EQ(out[0], 0x46);
    EXPECT_EQ(out[1], 0x00);

    const std::vector<TeletextDescriptorEntry> entries = {
        {{'u', 'n', 'd'}, kTeletextTypeSubtitle, 0, 0x88},
        {{'e', 'n', 'g'}, kTeletextTypeInitialPage, 1, 0x00},
    };
    ASSERT_EQ(writeTeletextDescriptor(out, entries), 12u);
    const std::vector<std::uint8_t> expected = {0x46, 10,  'u', 'n', 'd',  0x10,
                                                0x88, 'e', 'n', 'g', 0x09, 0x00};
    EXPECT_EQ(std::vector<std::uint8_t>(out, out + 12), expected);
}

}  // namespace
