#include "encoding/picture/field_weave.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace {

using namespace ovtx::encoding::picture::v1;

// Every line of the source is its own number in 16-bit words, so that a row of the result tells
// which source line it came from.
std::vector<std::uint16_t> numberedLines(std::size_t lines, std::size_t pitch) {
    std::vector<std::uint16_t> source(lines * pitch / 2);
    for (std::size_t i = 0; i < source.size(); ++i) {
        source[i] = static_cast<std::uint16_t>(i * 2 / pitch);
    }
    return source;
}

int lineNumberAt(const std::uint8_t* at) {
    std::uint16_t number = 0;
    std::memcpy(&number, at, sizeof number);
    return number;
}

struct WeaveCase {
    const char* name;
    int width;
    int height;
    std::uint32_t boardStandard;
    int firstFieldLine;   // source line of row 0
    int secondFieldLine;  // source line of row 1
};

class PackedFieldWeaveTest : public testing::TestWithParam<WeaveCase> {};

TEST_P(PackedFieldWeaveTest, Fields_GoToEvenThenOddRowsFromTheirSourceLines) {
    const WeaveCase& c = GetParam();
    const std::int64_t pitch = 2 * c.width;
    const std::size_t sourceBytes = packedFieldsSourceBytes(c.width, c.height, pitch, c.boardStandard);
    const std::vector<std::uint16_t> source = numberedLines(sourceBytes / pitch, pitch);
    ASSERT_EQ(source.size() * 2, sourceBytes);
    std::vector<std::uint8_t> working(static_cast<std::size_t>(c.height * pitch), 0xEE);

    weavePackedFields(reinterpret_cast<const std::uint8_t*>(source.data()), working.data(), c.width, c.height,
                      pitch, c.boardStandard);

    for (int row = 0; row < c.height; ++row) {
        const int expected = (row % 2 == 0 ? c.firstFieldLine : c.secondFieldLine) + row / 2;
        const std::uint8_t* line = working.data() + row * pitch;
        ASSERT_EQ(lineNumberAt(line), expected) << "row " << row;
        ASSERT_EQ(lineNumberAt(line + pitch - 2), expected) << "end of row " << row;
    }
}

INSTANTIATE_TEST_SUITE_P(Standards, PackedFieldWeaveTest,
                         testing::Values(WeaveCase{"Pal", 720, 576, 6, 0, 288},  // no line skipped
                                         WeaveCase{"Ntsc", 720, 480, kNtscBoardStandard, 3, 3 + 240 + 4},
                                         WeaveCase{"Hd1080i", 1920, 1080, 2, 0, 540}),
                         [](const testing::TestParamInfo<WeaveCase>& info) {
                             return std::string(info.param.name);
                         });

TEST(PackedFieldWeaveTest, SourceBytes_CountTheNtscLinesAround) {
    EXPECT_EQ(packedFieldsSourceBytes(720, 576, 1440, 6), 576u * 1440u);
    EXPECT_EQ(packedFieldsSourceBytes(720, 480, 1440, kNtscBoardStandard), 487u * 1440u);
    EXPECT_EQ(packedFieldsSourceBytes(720, 576, 1500, 6), 575u * 1500u + 1440u);
}

// A planar frame of 2 x 8 samples: for each sample of the woven picture, the number of the
// delivered sample that lands there (each plane comes as its field 0 lines, then its field 1 lines).
const std::vector<int> kWovenSamples = {0,  1,  8,  9,  2, 3, 10, 11,
                                        4,  5,  12, 13, 6, 7, 14, 15,  // luma: 8 rows
                                        16, 18, 17, 19,                // second plane: 4 rows
                                        20, 22, 21, 23};               // third plane

class PlanarInterleaveTest : public testing::TestWithParam<bool> {};

// Each plane arrives as its first field's lines followed by its second's, and leaves woven; 10-bit
// samples weave as pairs of bytes.
TEST_P(PlanarInterleaveTest, Planes_AreWovenFieldByField) {
    const int sampleBytes = GetParam() ? 2 : 1;
    std::vector<std::uint8_t> source(kWovenSamples.size() * sampleBytes);
    for (std::size_t i = 0; i < source.size(); ++i) {
        source[i] = static_cast<std::uint8_t>(i);
    }
    std::vector<std::uint8_t> expected;
    for (int sample : kWovenSamples) {
        for (int byte = 0; byte < sampleBytes; ++byte) {
            expected.push_back(static_cast<std::uint8_t>(sample * sampleBytes + byte));
        }
    }
    std::vector<std::uint8_t> picture(source.size());
    interleavePlanarFields(source.data(), source.size(), picture.data(), 2, 8, GetParam());
    EXPECT_EQ(picture, expected);
}

TEST_P(PlanarInterleaveTest, OneByteShort_ThrowsAndWritesNothing) {
    const std::size_t frameBytes = 720 * 576 * 3 / 2 * (GetParam() ? 2 : 1);
    const std::vector<std::uint8_t> source(frameBytes);
    std::vector<std::uint8_t> picture(frameBytes, 0xEE);
    EXPECT_THAT(
        [&] { interleavePlanarFields(source.data(), frameBytes - 1, picture.data(), 720, 576, GetParam()); },
        testing::ThrowsMessage<std::runtime_error>(
            testing::StrEq("Unexpected frame size in Interleave function")));
    EXPECT_EQ(picture, std::vector<std::uint8_t>(frameBytes, 0xEE));
}

INSTANTIATE_TEST_SUITE_P(Depths, PlanarInterleaveTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& info) {
                             return info.param ? "TenBit" : "EightBit";
                         });

}  // namespace
