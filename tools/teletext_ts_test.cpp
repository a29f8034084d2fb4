#include "tools/teletext_ts.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace ovtx::tools::simulcast_follow::v1;
using Bytes = std::vector<std::uint8_t>;

TEST(TeletextTsTest, Crc32_OfTheCheckStringAndOfSections) {
    const std::string check = "123456789";
    EXPECT_EQ(mpegCrc32({reinterpret_cast<const std::uint8_t*>(check.data()), check.size()}), 0x0376E6E7u);
    // A section with its CRC appended checks to 0, as a demultiplexer tests it.
    EXPECT_EQ(mpegCrc32(patSection()), 0u);
    EXPECT_EQ(mpegCrc32(pmtSection(Bytes{0x46, 0x05, 'd', 'e', 'u', 0x10, 0x88}, 3)), 0u);
}

TEST(TeletextTsTest, Pmt_TeletextStreamWithItsDescriptor) {
    const Bytes descriptor{0x46, 0x05, 'd', 'e', 'u', 0x10, 0x88};
    const Bytes pmt = pmtSection(descriptor, 3);
    ASSERT_EQ(pmt.size(), 12u + 5 + descriptor.size() + 4);
    EXPECT_EQ(pmt[0], 0x02);
    EXPECT_EQ(((pmt[1] & 0x0F) << 8) | pmt[2], static_cast<int>(pmt.size()) - 3);
    EXPECT_EQ((pmt[5] >> 1) & 0x1F, 3) << "version";
    EXPECT_EQ(((pmt[8] & 0x1F) << 8) | pmt[9], kTeletextPid) << "PCR on the teletext PID";
    EXPECT_EQ(pmt[12], 0x06) << "private PES";
    EXPECT_EQ(((pmt[13] & 0x1F) << 8) | pmt[14], kTeletextPid);
    EXPECT_EQ(Bytes(pmt.begin() + 17, pmt.begin() + 17 + 7), descriptor);
}

// EN 300 472: a header of 0x24 bytes and a whole packet a multiple of 184 bytes, reached with
// stuffing data units.
TEST(TeletextTsTest, Pes_SizedToWholeTransportPayloads) {
    const struct {
        std::size_t units;
        std::size_t pesBytes;
    } cases[] = {{1, 184}, {2, 184}, {3, 184}, {4, 368}, {7, 368}, {8, 552}, {32, 1656}};
    for (const auto& c : cases) {
        Bytes data{0x10};
        for (std::size_t u = 0; u < c.units; ++u) {
            Bytes unit(46, static_cast<std::uint8_t>(u));
            unit[0] = 0x03;
            unit[1] = 0x2C;
            data.insert(data.end(), unit.begin(), unit.end());
        }
        const Bytes pes = teletextPes(data, 0x1'2345'6789);
        ASSERT_EQ(pes.size(), c.pesBytes) << c.units;
        EXPECT_EQ(Bytes(pes.begin(), pes.begin() + 4), (Bytes{0, 0, 1, 0xBD}));
        EXPECT_EQ((pes[4] << 8) | pes[5], static_cast<int>(pes.size()) - 6);
        EXPECT_EQ(pes[8], 0x24);
        EXPECT_EQ(Bytes(pes.begin() + 9, pes.begin() + 14), (Bytes{0x29, 0x8D, 0x15, 0xCF, 0x13})) << "PTS";
        EXPECT_EQ(Bytes(pes.begin() + 45, pes.begin() + 45 + static_cast<std::ptrdiff_t>(data.size())), data);
        if (pes.size() > 45 + data.size()) {
            EXPECT_EQ(pes[45 + data.size()], 0xFF) << "stuffing data unit";
            EXPECT_EQ(pes[45 + data.size() + 1], 0x2C);
        }
    }
}

TEST(TeletextTsTest, Packets_StartFlagStuffingAndContinuity) {
    std::uint8_t continuity = 14;
    const Bytes payload(200, 0xAB);
    const Bytes packets = tsPackets(0x0100, payload, continuity);
    ASSERT_EQ(packets.size(), 2 * kTsPacketSize);
    EXPECT_EQ(Bytes(packets.begin(), packets.begin() + 4), (Bytes{0x47, 0x41, 0x00, 0x1E}));
    EXPECT_EQ(Bytes(packets.begin() + 188, packets.begin() + 192), (Bytes{0x47, 0x01, 0x00, 0x3F}));
    EXPECT_EQ(packets[192], 184 - 16 - 1) << "adaptation field length before 16 bytes of payload";
    EXPECT_EQ(packets[188 + 188 - 16 - 1], 0xFF);
    EXPECT_EQ(packets[188 + 188 - 16], 0xAB);
    EXPECT_EQ(continuity, 0);
}

TEST(TeletextTsTest, PcrPacket_BaseAndExtension) {
    const std::int64_t pcr = (std::int64_t{0x1'2345'6789} * 300) + 299;
    const Bytes packet = pcrPacket(0x0100, pcr, 5);
    ASSERT_EQ(packet.size(), kTsPacketSize);
    EXPECT_EQ(Bytes(packet.begin(), packet.begin() + 6), (Bytes{0x47, 0x01, 0x00, 0x25, 183, 0x10}));
    std::uint64_t base = 0;
    for (int i = 6; i < 10; ++i) {
        base = (base << 8) | packet[i];
    }
    base = (base << 1) | (packet[10] >> 7);
    EXPECT_EQ(base, 0x1'2345'6789u);
    EXPECT_EQ(((packet[10] & 1) << 8) | packet[11], 299);
}

}  // namespace
