#include "encoding/picture/packed_to_planar.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace ovtx::encoding::picture::v1;

constexpr std::uint8_t kUntouched = 0xA5;

// Planes at a chosen distance from a 64-byte boundary, with guard bytes after them.
struct Planes {
    Planes(int width, int height, std::size_t misalignment)
        : bytes(static_cast<std::size_t>(width / 2 * 2) * (height / 2 * 2) * 3 / 2),
          block(bytes + 192, kUntouched) {
        offset = (64 - reinterpret_cast<std::uintptr_t>(block.data()) % 64) % 64 + misalignment;
    }
    std::uint8_t* data() { return block.data() + offset; }
    std::vector<std::uint8_t> picture() const { return {&block[offset], &block[offset] + bytes}; }
    bool guardUntouched() const {
        return std::all_of(block.begin() + static_cast<std::ptrdiff_t>(offset + bytes), block.end(),
                           [](std::uint8_t b) { return b == kUntouched; });
    }
    std::size_t bytes;
    std::vector<std::uint8_t> block;
    std::size_t offset;
};

std::vector<std::uint8_t> randomSource(std::int64_t pitch, int height) {
    std::mt19937 random(static_cast<unsigned>(pitch * 131 + height));
    std::vector<std::uint8_t> source(static_cast<std::size_t>(pitch * height));
    for (std::uint8_t& byte : source) {
        byte = static_cast<std::uint8_t>(random());
    }
    return source;
}

struct Shape {
    int width;
    int height;
    int extraPitch;  // bytes of padding after each source line
};

class PackedToPlanarPathsTest : public testing::TestWithParam<Shape> {};

// Every vector path, with cached and streamed stores at every alignment of the planes, gives the
// scalar path's bytes and writes nothing past the planes.
TEST_P(PackedToPlanarPathsTest, VectorPaths_MatchScalarByteForByte) {
    const auto [width, height, extraPitch] = GetParam();
    const std::int64_t pitch = 2 * width + extraPitch;
    const std::vector<std::uint8_t> source = randomSource(pitch, height);
    Planes expected(width, height, 0);
    ASSERT_EQ(convertPackedToPlanar(source.data(), pitch, expected.data(), width, height,
                                    {ConvertPath::Scalar, StoreMode::Cached}),
              kConvertDone);
    for (ConvertPath path : {ConvertPath::Sse2, ConvertPath::Avx2, ConvertPath::Auto}) {
        if (!convertPathAvailable(path)) {
            continue;
        }
        for (StoreMode store : {StoreMode::Cached, StoreMode::Streaming, StoreMode::Auto}) {
            for (std::size_t misalignment : {0, 16, 8, 1}) {
                SCOPED_TRACE(testing::Message()
                             << "path " << static_cast<int>(path) << " store " << static_cast<int>(store)
                             << " misalignment " << misalignment);
                Planes planes(width, height, misalignment);
                ASSERT_EQ(
                    convertPackedToPlanar(source.data(), pitch, planes.data(), width, height, {path, store}),
                    kConvertDone);
                EXPECT_EQ(planes.picture(), expected.picture());
                EXPECT_TRUE(planes.guardUntouched());
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Widths, PackedToPlanarPathsTest,
                         testing::Values(Shape{32, 2, 0}, Shape{64, 4, 0}, Shape{720, 6, 0},
                                         Shape{1920, 4, 0}, Shape{2, 2, 0}, Shape{30, 4, 0}, Shape{34, 2, 0},
                                         Shape{98, 6, 6}, Shape{67, 5, 2}, Shape{33, 3, 0}));

// Two rows of four pixels: luma of both rows, byte 2 of the even row's groups in the second
// plane and byte 0 in the third; the odd row's chroma is dropped.
TEST(PackedToPlanarTest, TinyPicture_PlanesAreLumaThenByte2ThenByte0OfTheEvenRow) {
    const std::vector<std::uint8_t> source = {
        0x10, 0x11, 0x12, 0x13, 0x20, 0x21, 0x22, 0x23,  // even row: Cb Y Cr Y, Cb Y Cr Y
        0x90, 0x91, 0x92, 0x93, 0xA0, 0xA1, 0xA2, 0xA3,  // odd row
    };
    for (ConvertPath path : {ConvertPath::Scalar, ConvertPath::Auto}) {
        std::vector<std::uint8_t> planes(12, kUntouched);
        ASSERT_EQ(convertPackedToPlanar(source.data(), 8, planes.data(), 4, 2, {path}), kConvertDone);
        EXPECT_EQ(planes, (std::vector<std::uint8_t>{0x11, 0x13, 0x21, 0x23, 0x91, 0x93, 0xA1, 0xA3,  //
                                                     0x12, 0x22, 0x10, 0x20}));
    }
}

// Odd sizes are rounded down to even, and the planes are laid out for the rounded size.
TEST(PackedToPlanarTest, OddSize_RoundsDownToEven) {
    const std::vector<std::uint8_t> source = randomSource(10, 3);
    Planes rounded(5, 3, 0);
    Planes even(4, 2, 0);
    ASSERT_EQ(convertPackedToPlanar(source.data(), 10, rounded.data(), 5, 3), kConvertDone);
    ASSERT_EQ(convertPackedToPlanar(source.data(), 10, even.data(), 4, 2), kConvertDone);
    EXPECT_EQ(rounded.picture(), even.picture());
    EXPECT_TRUE(rounded.guardUntouched());
}

// Null pointers come before sizes; nothing is written on failure.
TEST(PackedToPlanarTest, BadArguments_GiveTheirCodeAndWriteNothing) {
    const std::vector<std::uint8_t> source(64, 0x55);
    std::vector<std::uint8_t> planes(64, kUntouched);
    EXPECT_EQ(convertPackedToPlanar(nullptr, 16, planes.data(), 8, 4), kConvertNullPointer);
    EXPECT_EQ(convertPackedToPlanar(source.data(), 16, nullptr, 8, 4), kConvertNullPointer);
    EXPECT_EQ(convertPackedToPlanar(nullptr, 16, planes.data(), 1, 1), kConvertNullPointer);
    EXPECT_EQ(convertPackedToPlanar(source.data(), 16, planes.data(), 1, 4), kConvertTooSmall);
    EXPECT_EQ(convertPackedToPlanar(source.data(), 16, planes.data(), 8, 1), kConvertTooSmall);
    EXPECT_EQ(convertPackedToPlanar(source.data(), 16, planes.data(), -8, 4), kConvertTooSmall);
    EXPECT_EQ(planes, std::vector<std::uint8_t>(64, kUntouched));
}

}  // namespace
