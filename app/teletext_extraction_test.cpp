#include "app/teletext_extraction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "app/simulated_slots_test_helper.h"
#include "log/testing/capturing_logger.h"

namespace {

using namespace ovtx::app::sdi_tap::v1;
using ovtx::app::sdi_tap::v1::testing::SimulatedSlots;
using ovtx::simulcast::capture_records::v1::TeletextRecord;
namespace ttx = ovtx::encoding::subtitling::v1;

// The records of `frames` slots of port 0 (a chunk's old bytes are 0xEE), and what -print told.
struct TeletextRun {
    TeletextRun(const std::string& port, std::int32_t format, int frames) {
        SimulatedSlots slots(port, format);
        EngineReport report(logger, true);
        TeletextExtraction teletext(slots.api(), report);
        for (int frame = 0; frame < frames; ++frame) {
            TeletextRecord& record = records.emplace_back();
            std::fill_n(reinterpret_cast<std::uint8_t*>(&record), sizeof record, 0xEE);
            teletext.extract(slots.next(), slots.boardStandard(), slots.lines(), record, frame, frame + 1);
        }
    }
    std::vector<std::uint8_t> descriptor(std::size_t frame) const {
        return {records[frame].descriptor, records[frame].descriptor + records[frame].descriptorLength};
    }
    ovtx::log::log_perf::v4::testing::CapturingLogger logger;
    std::vector<TeletextRecord> records;
};

// A subtitle page and an index page (3 packets each), the closing headers of magazines 8 and 1,
// packet 8/30: nine lines a frame.
const std::string kPages = R"("teletext": {"pages": [
    {"magazine": 8, "page": "0x88", "subtitle": true, "rows": {"20": "First row", "22": "Second row"}},
    {"magazine": 1, "page": "0x00", "rows": {"1": "Index page", "2": "News 101"}}], "initialPage": "0x112"})";
const std::vector<std::uint8_t> kDataUnitIds{3, 3, 3, 2, 2, 2, 2, 2, 2};
// Page 888 as a subtitle (magazine bits 0), then the initial page 0x12 read as 0x84.
const std::vector<std::uint8_t> kDescriptor{0x46, 10, 'u', 'n', 'd', 0x10, 0x88, 'u', 'n', 'd', 0x09, 0x84};

// On SD a line's key is its table index (line 7 is 1), on HD its ancillary line (from 12).
class TeletextSignalTest : public ::testing::TestWithParam<std::pair<std::int32_t, int>> {};

TEST_P(TeletextSignalTest, Lines_BecomeDataUnitsInKeyOrder_AndPagesTheDescriptor) {
    const auto [format, firstKey] = GetParam();
    TeletextRun run(R"({"signal": [{"format": )" + std::to_string(format) + "}], " + kPages + "}", format, 2);
    for (const TeletextRecord& record : run.records) {
        ASSERT_EQ(record.magic, 0x5454);
        ASSERT_EQ(record.dataLength, 1u + 46 * kDataUnitIds.size());
        for (std::size_t i = 0; i < kDataUnitIds.size(); ++i) {
            const std::uint8_t* unit = record.data + 1 + 46 * i;
            EXPECT_EQ(std::vector(unit, unit + 4),
                      (std::vector<std::uint8_t>{kDataUnitIds[i], 0x2C,
                                                 ttx::lineOffsetByte(firstKey + int(i)), 0xE4}));
        }
    }
    EXPECT_EQ(run.descriptor(1), kDescriptor);
}

INSTANTIATE_TEST_SUITE_P(SdAndHd, TeletextSignalTest, ::testing::Values(std::pair{0, 1}, std::pair{3, 12}));

TEST(TeletextExtractionTest, FrameWithoutLines_WritesTheEmptyDescriptorAndKeepsTheList) {
    TeletextRun run(R"({"signal": [{"format": 0}], )" + kPages +
                        R"(, "errors": [{"operation": "VHD_SlotVbiGetLine", "at": 2, "code": 2}]})",
                    0, 3);
    EXPECT_EQ(run.records[1].dataLength, 0u);
    EXPECT_EQ(run.descriptor(1), (std::vector<std::uint8_t>{0x46, 0x00}));
    EXPECT_EQ(run.logger.count("2 Cannot get VBI Data. Result = 0x00000002"), 64u);
    EXPECT_EQ(run.descriptor(2), kDescriptor);
    // Without teletext: the WSS line, the blank lines and the table's empty entries, each told.
    TeletextRun blank(R"({"signal": [{"format": 0}], "wss": [{"at": 0, "aspect": "16:9"}]})", 0, 1);
    EXPECT_EQ(blank.logger.count("2 Line 23 doesn't contained VBI Teletext"), 1u);
    EXPECT_EQ(blank.logger.count("2 exe VBI Teletext Subtitle NOT digitilize... Line 335 empty"), 1u);
    EXPECT_EQ(blank.logger.count("2 Cannot get VBI Data. Result = 0x00000006"), 31u);
}

// The board's packets fill lines 12 to 37, raw ones 40 to 47: the record holds 32 of the 34.
TEST(TeletextExtractionTest, MoreLinesThanTheRecordHolds_LeavesTheLastOnesOut) {
    std::string rows = R"("1": "row")";
    for (int row = 2; row <= 24; ++row) {
        rows += ", \"" + std::to_string(row) + R"(": "row")";
    }
    std::string raw;  // short packets: their lines end in zeros
    for (int line = 40; line < 48; ++line) {
        raw += std::string(raw.empty() ? "" : ", ") +
               R"({"at": 0, "frames": 3, "did": "0x41", "sdid": 8, "words": [16, 2, 44], "line": )" +
               std::to_string(line) + "}";
    }
    TeletextRun run(
        R"({"signal": [{"format": 3}], "teletext": {"pages": [{"magazine": 1, "page": "0x23", "rows": {)" +
            rows + R"(}}]}, "anc": [)" + raw + "]}",
        3, 1);
    EXPECT_EQ(run.records[0].dataLength, 1473u);
    EXPECT_EQ(run.records[0].data[1 + 46 * 31 + 2], ttx::lineOffsetByte(45));
    EXPECT_EQ(run.logger.count("2 Teletext record full: 2 line(s) of this frame left out"), 1u);
    EXPECT_EQ(reinterpret_cast<const std::uint8_t*>(&run.records[0])[1607], 0xEE);
}

}  // namespace
