#include "system/sdi/simulated_board/vbi_lines.h"

#include <gtest/gtest.h>
#include <libzvbi.h>

#include <array>
#include <vector>

#include "encoding/subtitling/cea608.h"
#include "encoding/subtitling/teletext_coding.h"
#include "system/sdi/deltacast_io/device_api.h"

namespace {

using namespace ovtx::system::sdi::simulated_board::v1;
namespace subtitling = ovtx::encoding::subtitling::v1;
namespace device = ovtx::system::sdi::deltacast_io::v1;

// What libzvbi's own raw decoder reads from the 720 samples of one rendered line.
std::vector<vbi_sliced> zvbiDecode(Scanning scanning, std::span<const std::uint8_t> samples,
                                   unsigned int services) {
    vbi_raw_decoder decoder;
    vbi_raw_decoder_init(&decoder);
    decoder.scanning = scanning == Scanning::Lines625 ? 625 : 525;
    decoder.sampling_format = VBI_PIXFMT_YUV420;
    decoder.sampling_rate = static_cast<int>(kSdSampleRate);
    decoder.bytes_per_line = kSdLineSamples;
    decoder.offset = scanning == Scanning::Lines625 ? 132 : 122;
    decoder.start[0] = scanning == Scanning::Lines625 ? 23 : 21;
    decoder.count[0] = 1;
    decoder.start[1] = 0;
    decoder.count[1] = 0;
    decoder.interlaced = false;
    decoder.synchronous = true;
    vbi_raw_decoder_add_services(&decoder, services, 1);
    std::vector<std::uint8_t> raw(samples.begin(), samples.end());
    std::vector<vbi_sliced> sliced(2);
    const int count = vbi_raw_decode(&decoder, raw.data(), sliced.data());
    vbi_raw_decoder_destroy(&decoder);
    sliced.resize(static_cast<std::size_t>(count));
    return sliced;
}

std::vector<std::uint8_t> slice(std::span<const std::uint8_t> samples, float bitRate, std::uint32_t bits) {
    std::vector<std::uint8_t> out((bits + 7) / 8);
    std::uint32_t given = bits;
    EXPECT_EQ(sliceBits(samples, kSdSampleRate, bitRate, out.data(), given), device::kDeviceOk);
    EXPECT_EQ(given, bits);
    return out;
}

TEST(VbiSlicerTest, TeletextSlicesToRunInFramingCodeAndPacket) {
    const subtitling::TeletextPacket packet = subtitling::displayRowPacket(8, 22, "Simulated subtitle row");
    const VbiLineData data{7, VbiService::TeletextB, {packet.begin(), packet.end()}};
    const VbiLines lines = renderVbiLines(Scanning::Lines625, {&data, 1});
    const std::vector<std::uint8_t> bytes = slice(lines.line(7), device::kTeletextBitRate, 360);
    ASSERT_EQ(bytes.size(), 45u);
    EXPECT_EQ(bytes[0], 0xAA);
    EXPECT_EQ(bytes[1], 0xAA);
    EXPECT_EQ(bytes[2], 0xE4);
    for (std::size_t i = 0; i < packet.size(); ++i) {
        EXPECT_EQ(bytes[3 + i], subtitling::reverseBits(packet[i])) << i;
    }
}

// The payload of line 21 starts at bit 5 of the second byte, each byte sent low bit first.
TEST(VbiSlicerTest, Line21SlicesToTheCaptionLayoutThatLibzvbiAgreesWith) {
    for (const subtitling::Cea608Pair pair :
         {subtitling::cea608Text("HI")[0], subtitling::cea608Null(),
          subtitling::cea608Control(subtitling::Cea608Command::EndOfCaption)}) {
        const VbiLineData data{21, VbiService::Caption525, {pair.first, pair.second}};
        const VbiLines lines = renderVbiLines(Scanning::Lines525, {&data, 1});
        const std::vector<vbi_sliced> reference =
            zvbiDecode(Scanning::Lines525, lines.line(21), VBI_SLICED_CAPTION_525);
        ASSERT_EQ(reference.size(), 1u);
        EXPECT_EQ(reference[0].data[0], pair.first);
        const std::vector<std::uint8_t> b = slice(lines.line(21), device::kCaptionBitRate, 32);
        std::uint32_t word = 0;
        for (const std::uint8_t byte : b) {
            word = word << 8 | byte;
        }
        std::uint8_t first = 0;
        std::uint8_t second = 0;
        for (int bit = 0; bit < 8; ++bit) {
            first |= static_cast<std::uint8_t>(((word >> (21 - bit)) & 1) << bit);
            second |= static_cast<std::uint8_t>(((word >> (13 - bit)) & 1) << bit);
        }
        EXPECT_EQ(first, pair.first);
        EXPECT_EQ(second, pair.second);
        EXPECT_EQ((word >> 22) & 7, 1u) << "start bits 0 0 1 before the payload";
    }
}

TEST(VbiSlicerTest, WssSlicesToTheWholeLinePatterns) {
    const std::array<std::pair<std::uint8_t, std::array<std::uint8_t, 10>>, 2> cases{{
        {0x08, {0xf8, 0xe3, 0x8e, 0x38, 0xf1, 0xe0, 0xf8, 0xe3, 0x8f, 0xc0}},  // 4:3 full format
        {0x07, {0xf8, 0xe3, 0x8e, 0x38, 0xf1, 0xe0, 0xff, 0x1c, 0x70, 0x38}},  // 16:9 full format
    }};
    for (const auto& [value, pattern] : cases) {
        const VbiLineData data{23, VbiService::Wss625, {value, 0x00}};
        const VbiLines lines = renderVbiLines(Scanning::Lines625, {&data, 1});
        const std::vector<vbi_sliced> reference =
            zvbiDecode(Scanning::Lines625, lines.line(23), VBI_SLICED_WSS_625);
        ASSERT_EQ(reference.size(), 1u);
        EXPECT_EQ(reference[0].data[0], value);
        const std::vector<std::uint8_t> bytes = slice(lines.line(23), device::kWssBitRate, 80);
        EXPECT_EQ(bytes, std::vector<std::uint8_t>(pattern.begin(), pattern.end())) << int(value);
    }
}

TEST(VbiSlicerTest, BlankLineHasNoRunIn) {
    const VbiLines lines = renderVbiLines(Scanning::Lines625, {});
    std::uint8_t out[45];
    std::uint32_t bits = 360;
    EXPECT_EQ(sliceBits(lines.line(9), kSdSampleRate, device::kTeletextBitRate, out, bits),
              device::kDeviceOperationFailed);
}

}  // namespace
