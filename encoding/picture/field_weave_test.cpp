#include "encoding/picture/field_weave.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

namespace {

using namespace ovtx::encoding::picture::v1;

// Every line of the source carries its own number in each 16-bit word, so that a row of the
// result tells which source line it came from.
std::vector<std::uint8_t> numberedLines(int lines, std::int64_t pitch) {
    std::vector<std::uint8_t> source(static_cast<std::size_t>(lines * pitch));
    for (int line = 0; line < lines; ++line) {
        for (std::int64_t i = 0; i + 1 < pitch; i += 2) {
            source[static_cast<std::size_t>(line * pitch + i)] = static_cast<std::uint8_t>(line & 0xFF);
            source[static_cast<std::size_t>(line * pitch + i + 1)] = static_cast<std::uint8_t>(line >> 8);
        }
    }
    return source;
}

int lineNumberAt(const std::uint8_t* at) {
    return at[0] | (at[1] << 8);
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
    const std::vector<std::uint8_t> source = numberedLines(static_cast<int>(sourceBytes / pitch), pitch);
    ASSERT_EQ(source.size(), sourceBytes);
    std::vector<std::uint8_t> working(static_cast<std::size_t>(c.height * pitch), 0xEE);

    weavePackedFields(source.data(), working.data(), c.width, c.height, pitch, c.boardStandard);

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

TEST(PackedFrameCopyTest, PaddedPitch_CopiesLinesAndLeavesThePadding) {
    const std::vector<std::uint8_t> source = numberedLines(3, 10);
    std::vector<std::uint8_t> working(30, 0xEE);
    copyPackedFrame(source.data(), working.data(), 4, 3, 10);
    for (int row = 0; row < 3; ++row) {
        EXPECT_EQ(lineNumberAt(working.data() + row * 10 + 6), row);
        EXPECT_EQ(working[static_cast<std::size_t>(row * 10 + 8)], 0xEE);
    }
}

struct PlanarCase {
    const char* name;
    int width;
    int height;
    bool tenBit;
};

class PlanarInterleaveTest : public testing::TestWithParam<PlanarCase> {
  protected:
    std::size_t sampleBytes() const { return GetParam().tenBit ? 2 : 1; }
    std::size_t frameBytes() const {
        return static_cast<std::size_t>(GetParam().width * GetParam().height) * sampleBytes() * 3 / 2;
    }
};

// Each plane arrives as its first field's lines, then its second's, and leaves woven.
TEST_P(PlanarInterleaveTest, Planes_AreWovenFieldByField) {
    const auto [name, width, height, tenBit] = GetParam();
    const std::int64_t lumaLine = width * static_cast<std::int64_t>(sampleBytes());
    const std::vector<std::uint8_t> source =
        numberedLines(static_cast<int>(frameBytes() / (lumaLine / 2)), lumaLine / 2);
    std::vector<std::uint8_t> picture(frameBytes());

    interleavePlanarFields(source.data(), source.size(), picture.data(), width, height, tenBit);

    // In half-luma-line units: luma is 2 per row and h rows, each chroma plane 1 per row, h/2 rows.
    struct Plane {
        int firstUnit;
        int unitsPerRow;
        int rows;
    };
    const Plane planes[] = {
        {0, 2, height}, {2 * height, 1, height / 2}, {2 * height + height / 2, 1, height / 2}};
    for (const Plane& plane : planes) {
        const int firstFieldRows = (plane.rows + 1) / 2;
        for (int row = 0; row < plane.rows; ++row) {
            const int sourceRow = row % 2 == 0 ? row / 2 : firstFieldRows + row / 2;
            const int unit = plane.firstUnit + row * plane.unitsPerRow;
            for (int part = 0; part < plane.unitsPerRow; ++part) {
                ASSERT_EQ(lineNumberAt(picture.data() + (unit + part) * (lumaLine / 2)),
                          plane.firstUnit + sourceRow * plane.unitsPerRow + part)
                    << "plane at " << plane.firstUnit << " row " << row;
            }
        }
    }
}

TEST_P(PlanarInterleaveTest, OneByteShort_ThrowsAndWritesNothing) {
    const auto [name, width, height, tenBit] = GetParam();
    const std::vector<std::uint8_t> source(frameBytes());
    std::vector<std::uint8_t> picture(frameBytes(), 0xEE);
    EXPECT_THAT(
        [&] {
            interleavePlanarFields(source.data(), source.size() - 1, picture.data(), width, height, tenBit);
        },
        testing::ThrowsMessage<std::runtime_error>(
            testing::StrEq("Unexpected frame size in Interleave function")));
    EXPECT_EQ(picture, std::vector<std::uint8_t>(frameBytes(), 0xEE));
}

INSTANTIATE_TEST_SUITE_P(Depths, PlanarInterleaveTest,
                         testing::Values(PlanarCase{"Hd8Bit", 1920, 1080, false},
                                         PlanarCase{"Hd10Bit", 1920, 1080, true},
                                         PlanarCase{"OddHalfHeight", 8, 6, false}),
                         [](const testing::TestParamInfo<PlanarCase>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace
