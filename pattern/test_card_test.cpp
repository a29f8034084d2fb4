#include "pattern/test_card.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "pattern/pattern_format.h"
#include "simulcast/capture_records.h"

namespace {

using namespace ovtx::pattern::pattern_source::v1;
namespace records = ovtx::simulcast::capture_records::v1;

// A video chunk of one format, filled with a byte no card writes, and views on its planes.
class TestCardTest : public testing::Test {
  protected:
    void make(int code, int bitDepth) {
        format = patternFormat(code);
        depth = bitDepth;
        chunk.assign(static_cast<std::size_t>(pictureBytes(format, depth) + records::kPatternVideoExtraBytes),
                     0xA5);
        card = std::make_unique<TestCard>(format.width, format.height);
    }

    void write(std::int64_t frameNumber) {
        card->writeTestCard(chunk.data(), frameNumber, format.period, depth);
    }

    const records::VideoRecordHeader& header() const {
        return *reinterpret_cast<const records::VideoRecordHeader*>(chunk.data());
    }

    // Sample `index` counted from the start of the planes.
    int sample(std::size_t index) const {
        const std::uint8_t* planes = chunk.data() + records::kVideoPictureOffset;
        if (depth <= 8) {
            return planes[index];
        }
        std::uint16_t word;
        std::memcpy(&word, planes + 2 * index, 2);
        return word;
    }
    std::size_t lumaSamples() const { return static_cast<std::size_t>(format.width) * format.height; }
    int luma(int x, int y) const { return sample(static_cast<std::size_t>(y) * format.width + x); }
    int cr(int x, int y) const {
        return sample(lumaSamples() + static_cast<std::size_t>(y / 2) * (format.width / 2) + x / 2);
    }
    int cb(int x, int y) const {
        return sample(lumaSamples() * 5 / 4 + static_cast<std::size_t>(y / 2) * (format.width / 2) + x / 2);
    }
    bool inPanel(int x, int y) const {
        return x >= TestCard::kPanelX && x < TestCard::kPanelX + TestCard::kPanelWidth &&
               y >= TestCard::kPanelY && y < TestCard::kPanelY + TestCard::kPanelHeight;
    }

    // Every sample of all three planes outside the panel, compared with the expected levels.
    void expectBackground(int lumaTop, int lumaTopRows, int lumaRest, int chroma) const {
        for (int y = 0; y < format.height; ++y) {
            for (int x = 0; x < format.width; ++x) {
                if (inPanel(x, y)) {
                    continue;
                }
                const int expected = y < lumaTopRows ? lumaTop : lumaRest;
                ASSERT_EQ(luma(x, y), expected) << "luma at " << x << "," << y;
                if (x % 2 == 0 && y % 2 == 0) {
                    ASSERT_EQ(cr(x, y), chroma) << "Cr at " << x << "," << y;
                    ASSERT_EQ(cb(x, y), chroma) << "Cb at " << x << "," << y;
                }
            }
        }
    }

    PatternFormat format;
    int depth = 8;
    std::vector<std::uint8_t> chunk;
    std::unique_ptr<TestCard> card;
};

TEST_F(TestCardTest, Levels_ScaleWithTheBitDepth) {
    EXPECT_EQ(whiteLevel(8), 240);
    EXPECT_EQ(greyLevel(8), 128);
    EXPECT_EQ(whiteLevel(10), 960);
    EXPECT_EQ(greyLevel(10), 512);
    EXPECT_EQ(whiteLevel(6), 60);
}

TEST_F(TestCardTest, Frame0_IsWhiteWithThePanelAndAFullHeader) {
    make(3, 8);
    write(0);
    EXPECT_EQ(header().magic, 0x4A9E);
    EXPECT_EQ(header().standardMismatch, 0);
    EXPECT_EQ(header().discontinuity, 0);
    EXPECT_EQ(header().aspectNumerator, 4);
    EXPECT_EQ(header().aspectDenominator, 3);
    EXPECT_EQ(header().start, 0);
    EXPECT_EQ(header().end, 400000);
    expectBackground(240, 0, 240, 240);
    EXPECT_EQ(luma(TestCard::kPanelX, TestCard::kPanelY), TestCard::kPanelBackground.y);
    EXPECT_EQ(chunk.back(), 0xA5) << "the 48 bytes past the picture stay untouched";
}

TEST_F(TestCardTest, FlashCoversTheBeepAt25Fps) {
    make(0, 8);
    for (std::int64_t f : {0, 1, 2, 50, 100}) {
        write(f);
        EXPECT_EQ(luma(719, 575), 240) << "frame " << f;
        EXPECT_EQ(cr(719, 575), 240) << "frame " << f;
    }
    write(3);
    EXPECT_EQ(header().start, 1200000);
    EXPECT_EQ(luma(719, 575), 0);
    EXPECT_EQ(luma(719, 0), 128) << "the bar has begun";
}

TEST_F(TestCardTest, MidCycle_GreyBarCoversTheUpperHalf) {
    make(0, 8);
    write(25);  // start 10000000: the middle of the cycle
    expectBackground(128, 288, 0, 0);
}

TEST_F(TestCardTest, TenBits_WhiteAndGreyInWords) {
    make(2, 10);
    write(0);
    expectBackground(960, 0, 960, 960);
    write(45);  // 1.5015 s into the cycle
    const int rows = static_cast<int>(header().start * 480 / 20000000);
    EXPECT_EQ(rows, 360);
    expectBackground(512, rows, 0, 0);
}

TEST_F(TestCardTest, Swatches_HoldTheirStudioColoursAtBothDepths) {
    struct Expected {
        int y, cr, cb;
    };
    const Expected expected[6] = {{81, 239, 90},  {144, 34, 53},   {40, 109, 239},
                                  {169, 16, 165}, {106, 221, 202}, {210, 146, 16}};
    const YCrCb green = studioColour(0, 255, 0);
    EXPECT_EQ(green.y, 144);
    EXPECT_EQ(green.cr, 34);
    EXPECT_EQ(green.cb, 53);
    for (int bitDepth : {8, 10}) {
        make(3, bitDepth);
        write(7);
        const int shift = bitDepth - 8;
        for (int i = 0; i < 6; ++i) {
            SCOPED_TRACE("depth " + std::to_string(bitDepth) + " swatch " + std::to_string(i));
            // The middle of the swatch box, in picture coordinates.
            const int x = TestCard::kPanelX + TestCard::kSwatchX + TestCard::kSwatchWidth / 2;
            const int y = TestCard::kPanelY + TestCard::kSwatchY + i * TestCard::kSwatchHeight + 16;
            EXPECT_EQ(luma(x, y), expected[i].y << shift);
            EXPECT_EQ(cr(x, y), expected[i].cr << shift);
            EXPECT_EQ(cb(x, y), expected[i].cb << shift);
        }
    }
}

TEST_F(TestCardTest, PanelText_IsDrawnInsideThePanelOnly) {
    make(3, 8);
    if (!card->hasFont()) {
        GTEST_SKIP() << "no font installed";
    }
    write(25);
    const auto brightInRows = [&](int top, int bottom) {
        int bright = 0;
        for (int y = TestCard::kPanelY + top; y < TestCard::kPanelY + bottom; ++y) {
            for (int x = TestCard::kPanelX; x < TestCard::kPanelX + TestCard::kSwatchX; ++x) {
                bright += luma(x, y) > 128 ? 1 : 0;
            }
        }
        return bright;
    };
    EXPECT_GT(brightInRows(0, 32), 50) << "clock row";
    EXPECT_GT(brightInRows(32, 96), 50) << "caption rows";
    EXPECT_GT(brightInRows(96, 288), 50) << "colour names";
    // Outside the panel the picture is the plain bar and black.
    expectBackground(128, 540, 0, 0);
}

TEST_F(TestCardTest, TenBitPanel_IsTheEightBitPanelShifted) {
    // From the caption row down: the clock row may show another second in the second picture.
    const int firstRow = TestCard::kPanelY + 32;
    make(7, 8);
    write(60);
    std::vector<int> eightBit;
    for (int y = firstRow; y < TestCard::kPanelY + TestCard::kPanelHeight; ++y) {
        for (int x = TestCard::kPanelX; x < TestCard::kPanelX + TestCard::kPanelWidth; ++x) {
            eightBit.push_back(luma(x, y));
        }
    }
    make(7, 10);
    write(60);
    std::size_t i = 0;
    for (int y = firstRow; y < TestCard::kPanelY + TestCard::kPanelHeight; ++y) {
        for (int x = TestCard::kPanelX; x < TestCard::kPanelX + TestCard::kPanelWidth; ++x) {
            ASSERT_EQ(luma(x, y), eightBit[i++] << 2) << x << "," << y;
        }
    }
}

TEST_F(TestCardTest, CaptionText_NamesSizeRateAndFrame) {
    make(4, 8);
    EXPECT_EQ(card->captionText(1234, format.period), "1920x1080 30Hz DAR 4/3\nFrame #1234\n");
    make(0, 8);
    EXPECT_EQ(card->captionText(0, format.period), "720x576 25Hz DAR 4/3\nFrame #0\n");
}

TEST_F(TestCardTest, UnknownFormat_WritesTheHeaderOnlyInItsSmallChunk) {
    make(1, 8);
    ASSERT_EQ(chunk.size(), 49u);
    write(3);  // ASan would catch a write past the chunk
    EXPECT_EQ(header().magic, 0x4A9E);
    EXPECT_EQ(header().start, 30000000);
    EXPECT_EQ(header().end, 40000000);
    EXPECT_TRUE(std::all_of(chunk.begin() + 32, chunk.end(), [](std::uint8_t b) { return b == 0xA5; }));
}

}  // namespace
