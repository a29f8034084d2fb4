#include "app/teletext_extraction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "app/simulated_slots_test_helper.h"
#include "encoding/subtitle_text/subtitle_decoder.h"
#include "log/testing/capturing_logger.h"
#include "system/sdi/simulated_board/signal_content.h"

namespace {

using namespace ovtx::app::sdi_tap::v1;
using namespace ovtx::app::sdi_tap::v1::testing;
using ovtx::encoding::subtitle_text::v1::SubtitleDecoder;
using ovtx::log::log_perf::v4::testing::CapturingLogger;
using ovtx::simulcast::capture_records::v1::TeletextRecord;
namespace ttx = ovtx::encoding::subtitling::v1;

constexpr std::int32_t kPal = 0;
constexpr std::int32_t k1080p25 = 3;

// The records of `frames` slots of port 0 described by `port`, and what the report said.
struct TeletextRun {
    TeletextRun(const std::string& port, std::int32_t format, int frames) {
        SimulatedSlots slots(port, format);
        EngineReport report(logger, true);
        TeletextExtraction teletext(slots.api(), report);
        for (int frame = 0; frame < frames; ++frame) {
            TeletextRecord& record = records.emplace_back();
            std::fill_n(reinterpret_cast<unsigned char*>(&record), sizeof record,
                        0xEE);  // chunks aren't cleared
            teletext.extract(slots.next(), slots.boardStandard(), slots.lines(), record, frame, frame + 1);
        }
    }
    std::vector<std::uint8_t> descriptor(std::size_t frame) const {
        const TeletextRecord& record = records.at(frame);
        return {record.descriptor, record.descriptor + std::min<std::size_t>(record.descriptorLength, 102)};
    }
    std::size_t units(std::size_t frame) const { return (records.at(frame).dataLength - 1) / 46; }
    const std::uint8_t* unit(std::size_t frame, std::size_t index) const {
        return records.at(frame).data + 1 + 46 * index;
    }
    std::size_t logged(const std::string& line) {
        const std::vector<std::string> lines = logger.lines();
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
    }

    CapturingLogger logger;
    std::vector<TeletextRecord> records;
};

const std::string kPages = R"("teletext": {"pages": [
    {"magazine": 8, "page": "0x88", "subtitle": true, "rows": {"20": "First subtitle row", "22": "Second row"}},
    {"magazine": 1, "page": "0x00", "rows": {"1": "Index page", "2": "News 101"}}], "initialPage": "0x112"})";

// A subtitle page (3 packets), an index page (3 packets), a closing header for each magazine and
// packet 8/30: nine lines a frame, in this order.
const std::vector<std::uint8_t> kDataUnitIds{3, 3, 3, 2, 2, 2, 2, 2, 2};

// The subtitle page's descriptor entry, then the initial page's: 0x12 with each digit's bits in
// reverse order is 0x84.
const std::vector<std::uint8_t> kDescriptor{0x46, 10, 'u', 'n', 'd', 0x10, 0x88, 'u', 'n', 'd', 0x09, 0x84};

struct SignalCase {
    std::string name;
    std::string signal;
    std::int32_t format;
    int firstKey;  // of the first line: its table index on SD, its line number on HD
};

class TeletextSignalTest : public ::testing::TestWithParam<SignalCase> {};

TEST_P(TeletextSignalTest, PagesReadBackThroughADecoder_WithTheirDataUnitsAndDescriptor) {
    const SignalCase& c = GetParam();
    TeletextRun run(R"({"signal": [{"format": )" + c.signal + "}], " + kPages + "}", c.format, 3);
    SubtitleDecoder decoder;
    for (std::size_t frame = 0; frame < run.records.size(); ++frame) {
        const TeletextRecord& record = run.records[frame];
        ASSERT_EQ(record.magic, 0x5454);
        ASSERT_EQ(record.dataLength, 1u + 46 * kDataUnitIds.size());
        EXPECT_EQ(record.data[0], 0x10);
        EXPECT_EQ(record.start, static_cast<std::int64_t>(frame));
        for (std::size_t i = 0; i < kDataUnitIds.size(); ++i) {
            const std::uint8_t* unit = run.unit(frame, i);
            EXPECT_EQ(unit[0], kDataUnitIds[i]) << i;
            EXPECT_EQ(unit[1], 0x2C);
            EXPECT_EQ(unit[2], ttx::lineOffsetByte(c.firstKey + static_cast<int>(i)));
            EXPECT_EQ(unit[3], 0xE4);
        }
        decoder.feedTeletextData({record.data, record.dataLength});
    }
    EXPECT_EQ(run.descriptor(2), kDescriptor);
    EXPECT_EQ(decoder.teletextText(0x888), "First subtitle row Second row");
    EXPECT_EQ(decoder.teletextText(0x100), "Index page News 101");
}

INSTANTIATE_TEST_SUITE_P(Signals, TeletextSignalTest,
                         ::testing::Values(SignalCase{"PalVbiLines", "0", kPal, 1},
                                           SignalCase{"HdAncillaryPackets", "3", k1080p25, 12}),
                         [](const ::testing::TestParamInfo<SignalCase>& info) { return info.param.name; });

TEST(TeletextExtractionTest, FrameWithoutLines_WritesTheEmptyDescriptorAndKeepsTheList) {
    TeletextRun run(R"({"signal": [{"format": 0}], )" + kPages +
                        R"(, "errors": [{"operation": "VHD_SlotVbiGetLine", "at": 2, "code": 2}]})",
                    kPal, 3);
    EXPECT_EQ(run.descriptor(0), kDescriptor);
    EXPECT_EQ(run.records[1].dataLength, 0u);
    EXPECT_EQ(run.descriptor(1), (std::vector<std::uint8_t>{0x46, 0x00}));
    EXPECT_EQ(run.logged("2 Cannot get VBI Data. Result = 0x00000002"), 64u);
    EXPECT_EQ(run.descriptor(2), kDescriptor);
    EXPECT_EQ(run.units(2), kDataUnitIds.size());
}

TEST(TeletextExtractionTest, SdLinesWithoutTeletext_AreToldOneByOne) {
    TeletextRun run(R"({"signal": [{"format": 0}], "wss": [{"at": 0, "aspect": "16:9"}]})", kPal, 1);
    EXPECT_EQ(run.records[0].dataLength, 0u);
    EXPECT_EQ(run.descriptor(0), (std::vector<std::uint8_t>{0x46, 0x00}));
    EXPECT_EQ(run.logged("2 Line 23 doesn't contained VBI Teletext"), 1u);
    EXPECT_EQ(run.logged("2 exe VBI Teletext Subtitle NOT digitilize... Line 7 empty"), 1u);
    EXPECT_EQ(run.logged("2 exe VBI Teletext Subtitle NOT digitilize... Line 335 empty"), 1u);
    // The 31 entries the table leaves empty.
    EXPECT_EQ(run.logged("2 Cannot get VBI Data. Result = 0x00000006"), 31u);
    EXPECT_EQ(run.logger.lines().size(), 64u);
}

// Twenty-one subtitle pages in magazine 1: the list keeps the first twenty, tells the
// twenty-first once a frame, and rewrites the known ones in place.
TEST(TeletextExtractionTest, FullDescriptorList_KeepsItsEntriesAndTellsTheNewPage) {
    std::string pages;
    for (int page = 0; page < 21; ++page) {
        pages += std::string(pages.empty() ? "" : ", ") + R"({"magazine": 1, "subtitle": true, "page": )" +
                 std::to_string(page) + "}";
    }
    TeletextRun run(R"({"signal": [{"format": 3}], "teletext": {"pages": [)" + pages + "]}}", k1080p25, 2);
    for (std::size_t frame = 0; frame < 2; ++frame) {
        const std::vector<std::uint8_t> descriptor = run.descriptor(frame);
        ASSERT_EQ(descriptor.size(), 102u);
        EXPECT_EQ(descriptor[1], 100);
        for (std::size_t entry = 0; entry < 20; ++entry) {
            EXPECT_EQ(descriptor[2 + 5 * entry + 3], 0x11);  // type 2, magazine 1
            EXPECT_EQ(descriptor[2 + 5 * entry + 4], entry);
        }
    }
    EXPECT_EQ(run.logged("1 Trying to add teletext descriptor, but list is full"), 2u);
}

// The board's own packets fill lines 12 to 37, raw ones 40 to 47: 34 lines, of which the record
// holds 32 and no byte beyond its chunk.
TEST(TeletextExtractionTest, MoreLinesThanTheRecordHolds_LeavesTheLastOnesOut) {
    std::string rows;
    for (int row = 1; row <= 24; ++row) {
        rows += std::string(rows.empty() ? "" : ", ") + "\"" + std::to_string(row) + R"(": "row")";
    }
    std::string raw;
    const std::vector<std::uint16_t> words = ovtx::system::sdi::simulated_board::v1::teletextAncWords(
        ttx::displayRowPacket(2, 5, "raw"), false, 7);
    std::string wordList;
    for (const std::uint16_t word : words) {
        wordList += (wordList.empty() ? "" : ", ") + std::to_string(word);
    }
    for (int line = 40; line < 48; ++line) {
        raw += std::string(raw.empty() ? "" : ", ") +
               R"({"at": 0, "frames": 9, "did": "0x41", "sdid": "0x08", "line": )" + std::to_string(line) +
               R"(, "words": [)" + wordList + "]}";
    }
    TeletextRun run(
        R"({"signal": [{"format": 3}], "teletext": {"pages": [{"magazine": 1, "page": "0x23", "rows": {)" +
            rows + R"(}}]}, "anc": [)" + raw + "]}",
        k1080p25, 1);
    EXPECT_EQ(run.records[0].dataLength, 1473u);
    EXPECT_EQ(run.unit(0, 31)[2], ttx::lineOffsetByte(45));
    EXPECT_EQ(run.logged("2 Teletext record full: 2 line(s) of this frame left out"), 1u);
    EXPECT_EQ(reinterpret_cast<const std::uint8_t*>(&run.records[0])[1607], 0xEE);
}

}  // namespace
