#include "encoding/subtitling/caption_data.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/expect_failure.h"

namespace {

using namespace ovtx::encoding::subtitling::v1;
using ovtx::cpp_utils::cpp_tools::v1::SafeArray;
using ovtx::test_support::v1::expectFailure;

// A line 21 as the slicer gives it: the run-in's last bits, the start bits 0 0 1 at line bits 7
// to 9, then each byte low bit first from line bit 10.
std::array<std::uint8_t, 4> slicedLine21(Cea608Pair pair) {
    std::uint32_t line = 0x55u << 24 | 1u << (31 - 9);
    for (int i = 0; i < 8; ++i) {
        line |= static_cast<std::uint32_t>((pair.first >> i) & 1) << (31 - (10 + i));
        line |= static_cast<std::uint32_t>((pair.second >> i) & 1) << (31 - (18 + i));
    }
    return {static_cast<std::uint8_t>(line >> 24), static_cast<std::uint8_t>(line >> 16),
            static_cast<std::uint8_t>(line >> 8), static_cast<std::uint8_t>(line)};
}

TEST(CaptionDataTest, Line21Bits_GiveThePairWithItsParity) {
    for (const Cea608Pair pair :
         {Cea608Pair{0x94, 0x2F}, Cea608Pair{0x80, 0x80}, Cea608Pair{0xC1, 0x01}, Cea608Pair{0x01, 0xFE}}) {
        EXPECT_EQ(cea608PairFromLine21(slicedLine21(pair)), pair)
            << int(pair.first) << " " << int(pair.second);
    }
}

// The words of a caption distribution packet: header with `flags`, the sections asked for, the
// footer. Words carry their byte in the low byte and parity bits above it, which must not count.
struct Cdp {
    std::uint8_t flags = 0x43;
    bool timeCode = false;
    std::vector<std::array<std::uint8_t, 3>> triples;
    int claimedCount = -1;  // cc_count written, the real count when negative
    int services = 0;
    std::vector<std::uint8_t> futureSection;  // id, length and bytes, as sent
    bool footer = true;

    std::vector<unsigned short> words() const {
        std::vector<std::uint8_t> bytes{0x96, 0x69, 0, 0x3F, flags, 0x12, 0x34};
        if (timeCode) {
            bytes.insert(bytes.end(), {0x71, 0x10, 0x20, 0x30, 0x40});
        }
        if ((flags & 0x40) != 0) {
            const int count = claimedCount < 0 ? static_cast<int>(triples.size()) : claimedCount;
            bytes.insert(bytes.end(), {0x72, static_cast<std::uint8_t>(0xE0 | count)});
            for (const auto& triple : triples) {
                bytes.insert(bytes.end(), triple.begin(), triple.end());
            }
        }
        if ((flags & 0x20) != 0) {
            bytes.insert(bytes.end(), {0x73, static_cast<std::uint8_t>(0xE0 | services)});
            bytes.insert(bytes.end(), static_cast<std::size_t>(services) * 7, 0x20);
        }
        bytes.insert(bytes.end(), futureSection.begin(), futureSection.end());
        if (footer) {
            bytes.insert(bytes.end(), {0x74, 0x12, 0x34, 0xAB});
        }
        std::vector<unsigned short> words;
        for (const std::uint8_t byte : bytes) {
            words.push_back(static_cast<unsigned short>(0x200 | byte));
        }
        return words;
    }
};

struct CdpCase {
    std::string name;
    Cdp packet;
    int expectedCount;    // entries parsed, -1 when the walk fails
    std::string failure;  // the failure's text
};

class CaptionDistributionPacketTest : public testing::TestWithParam<CdpCase> {};

TEST_P(CaptionDistributionPacketTest, Walk_GivesTheEntriesOrFailsAtTheBound) {
    const std::vector<unsigned short> words = GetParam().packet.words();
    CcDataList list;
    if (GetParam().expectedCount < 0) {
        expectFailure(
            [&] {
                parseCaptionDistributionPacket(SafeArray<unsigned short>(words.data(), words.size()), list);
            },
            GetParam().failure);
        return;
    }
    parseCaptionDistributionPacket(SafeArray<unsigned short>(words.data(), words.size()), list);
    ASSERT_EQ(list.count, GetParam().expectedCount);
    for (std::size_t i = 0; i < list.count; ++i) {
        const auto& sent = GetParam().packet.triples[i];
        EXPECT_EQ(list.entries[i].markerBits, sent[0] >> 3);
        EXPECT_EQ(list.entries[i].valid, (sent[0] >> 2) & 1);
        EXPECT_EQ(list.entries[i].type, sent[0] & 3);
        EXPECT_EQ(list.entries[i].data1, sent[1]);
        EXPECT_EQ(list.entries[i].data2, sent[2]);
    }
}

const std::vector<std::array<std::uint8_t, 3>> kTwoFieldsAndPadding{
    {0xFC, 0x94, 0x2F}, {0xFD, 0x80, 0x80}, {0xFA, 0x00, 0x00}, {0x05, 0x41, 0x42}};

Cdp cdp(auto change) {
    Cdp packet;
    packet.triples = kTwoFieldsAndPadding;
    change(packet);
    return packet;
}

INSTANTIATE_TEST_SUITE_P(
    Packets, CaptionDistributionPacketTest,
    testing::Values(CdpCase{"WellFormed", cdp([](Cdp&) {}), 4, ""},
                    CdpCase{"TimeCodeSection", cdp([](Cdp& p) { p.flags = 0xC3, p.timeCode = true; }), 4, ""},
                    CdpCase{"ServiceInfoAndFutureSection", cdp([](Cdp& p) {
                                p.flags = 0x63, p.services = 2, p.futureSection = {0x80, 3, 1, 2, 3};
                            }),
                            4, ""},
                    CdpCase{"NoCcData", cdp([](Cdp& p) { p.flags = 0x03; }), 0, ""},
                    CdpCase{"CountOfThirtyOne", cdp([](Cdp& p) {
                                p.triples.resize(31, {0xFA, 0, 0});
                            }),
                            31, ""},
                    CdpCase{"CountBeyondThePacket", cdp([](Cdp& p) { p.claimedCount = 6; }), -1,
                            "Trying access offset 25 in buffer of size 25\n"},
                    CdpCase{"NoFooter", cdp([](Cdp& p) { p.footer = false; }), -1,
                            "Trying access offset 21 in buffer of size 21\n"},
                    CdpCase{"FutureSectionPastTheEnd", cdp([](Cdp& p) {
                                p.futureSection = {0xEF, 40};
                            }),
                            -1, "Trying access offset 63 in buffer of size 27\n"}),
    [](const testing::TestParamInfo<CdpCase>& info) { return info.param.name; });

TEST(CaptionDataTest, CdpOfThreeWords_FailsAtOffset4) {
    const unsigned short words[] = {0x96, 0x69, 0x03};
    CcDataList list;
    expectFailure([&] { parseCaptionDistributionPacket(SafeArray<unsigned short>(words, 3), list); },
                  "Trying access offset 4 in buffer of size 3\n");
}

}  // namespace
