#include "pattern/teletext_source.h"

#include <gtest/gtest.h>

#include <vector>

#include "encoding/subtitle_text/subtitle_decoder.h"
#include "pattern/frame_rational.h"
#include "pattern/pattern_format.h"
#include "simulcast/capture_records.h"

namespace {

using namespace ovtx::pattern::pattern_source::v1;
using ovtx::encoding::subtitle_text::v1::SubtitleDecoder;
namespace records = ovtx::simulcast::capture_records::v1;

class TeletextSourceTest : public testing::Test {
  protected:
    const records::TeletextRecord& write(std::int64_t start, std::int64_t end) {
        source.writeRecord(chunk.data(), start, end);
        return *reinterpret_cast<const records::TeletextRecord*>(chunk.data());
    }
    std::span<const std::uint8_t> data(const records::TeletextRecord& record) const {
        return {record.data, record.dataLength};
    }

    TeletextSource source;
    std::vector<std::uint8_t> chunk =
        std::vector<std::uint8_t>(records::kPatternTeletextSize.chunkBytes, 0xEE);
};

TEST_F(TeletextSourceTest, Record_AnnouncesPage888AsSubtitlesAndFramesItsUnits) {
    const records::TeletextRecord& record = write(0, 400000);
    EXPECT_EQ(record.magic, 0x5454);
    EXPECT_EQ(record.start, 0);
    EXPECT_EQ(record.end, 400000);
    ASSERT_EQ(record.descriptorLength, 7u);
    const std::vector<std::uint8_t> descriptor(record.descriptor, record.descriptor + 7);
    EXPECT_EQ(descriptor, (std::vector<std::uint8_t>{0x46, 5, 'u', 'n', 'd', 0x10, 0x88}))
        << "type 2 (subtitle), magazine 8 as 0, page 0x88";
    ASSERT_EQ(record.dataLength, 1u + 3 * 46) << "header, the row, the closing header";
    EXPECT_EQ(record.data[0], 0x10);
    for (std::size_t unit = 0; unit < 3; ++unit) {
        const std::uint8_t* u = record.data + 1 + unit * 46;
        EXPECT_EQ(u[0], 0x03) << "EBU subtitle data";
        EXPECT_EQ(u[1], 0x2C);
        EXPECT_EQ(u[2], 0x60 | (7 + unit));
        EXPECT_EQ(u[3], 0xE4);
    }
    // The demultiplexer's reading of the first header: magazine bits 0, row 0, a subtitle page.
    const std::uint8_t* b = record.data + 1 - 3;  // so that b[3] is the first byte of the packet
    const int magazine = ((b[3] >> 6) & 1) + 2 * ((b[3] >> 4) & 1) + (b[3] & 4);
    EXPECT_EQ(magazine, 0);
    EXPECT_EQ(b[10] & 1, 1) << "C6";
    EXPECT_EQ(chunk[134 + record.dataLength], 0xEE) << "nothing past the data";
}

TEST_F(TeletextSourceTest, OutsideTheBeep_TheRecordClearsThePage) {
    const records::TeletextRecord& record = write(1000000, 1400000);
    EXPECT_EQ(record.descriptorLength, 7u);
    EXPECT_EQ(record.dataLength, 1u + 2 * 46);
}

// libzvbi's page cache reads "Beep" on page 888 during each beep and an empty page otherwise.
TEST_F(TeletextSourceTest, ReferenceDecoder_ReadsBeepOnPage888DuringTheBeepOnly) {
    const FrameRational period = patternFormat(0).period;
    SubtitleDecoder decoder;
    EXPECT_FALSE(decoder.teletextText(0x888).has_value());
    for (std::int64_t f = 0; f < 110; ++f) {
        const std::int64_t start = frameTime(f, period);
        const records::TeletextRecord& record = write(start, frameTime(f + 1, period));
        decoder.feedTeletextData(data(record));
        const std::optional<std::string> text = decoder.teletextText(0x888);
        ASSERT_TRUE(text.has_value()) << "frame " << f;
        const bool inBeep = f % 50 <= 2;
        ASSERT_EQ(*text, inBeep ? "Beep" : "") << "frame " << f;
    }
}

}  // namespace
