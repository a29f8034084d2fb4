#include "pattern/sample_fill.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

using namespace ovtx::pattern::pattern_source::v1;

// Offsets that leave the start off every boundary, sizes on both sides of the streaming limit.
class SampleFillTest : public testing::TestWithParam<std::size_t> {};

TEST_P(SampleFillTest, FillsExactlyTheRangeAtAnyAlignment) {
    const std::size_t count = GetParam();
    for (std::size_t offset : {0u, 1u, 7u, 15u}) {
        std::vector<std::uint16_t> words(count + 40, 0xBEEF);
        fillWords(words.data() + offset, count, 960);
        EXPECT_TRUE(std::all_of(words.begin(), words.begin() + offset, [](auto w) { return w == 0xBEEF; }));
        EXPECT_EQ(std::count(words.begin() + offset, words.begin() + offset + count, 960),
                  static_cast<std::ptrdiff_t>(count))
            << "offset " << offset;
        EXPECT_TRUE(
            std::all_of(words.begin() + offset + count, words.end(), [](auto w) { return w == 0xBEEF; }));

        std::vector<std::uint8_t> bytes(count + 40, 0xEE);
        fillBytes(bytes.data() + offset, count, 240);
        EXPECT_TRUE(std::all_of(bytes.begin(), bytes.begin() + offset, [](auto b) { return b == 0xEE; }));
        EXPECT_EQ(std::count(bytes.begin() + offset, bytes.begin() + offset + count, 240),
                  static_cast<std::ptrdiff_t>(count));
        EXPECT_TRUE(
            std::all_of(bytes.begin() + offset + count, bytes.end(), [](auto b) { return b == 0xEE; }));
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, SampleFillTest,
                         testing::Values(0, 1, 33, 4096, 262143, 262144, 300001, 1 << 20));

}  // namespace
