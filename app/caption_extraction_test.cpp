#include "app/caption_extraction.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "app/simulated_slots_test_helper.h"
#include "log/testing/capturing_logger.h"

namespace {

using namespace ovtx::app::sdi_tap::v1;
using ovtx::app::sdi_tap::v1::testing::SimulatedSlots;
using ovtx::simulcast::capture_records::v1::CaptionRecord;

// The records of `frames` slots of port 0 and what -print told. That the entries read back as
// the captions sent is checked end to end, through the daemon's records.
struct CaptionRun {
    CaptionRun(const std::string& port, std::int32_t format, int frames) {
        SimulatedSlots slots(port, format);
        EngineReport report(logger, true);
        CaptionExtraction captions(slots.api(), report);
        for (int frame = 0; frame < frames; ++frame) {
            captions.extract(slots.next(), slots.boardStandard(), records.emplace_back(), frame, frame + 1);
        }
    }
    std::array<std::uint32_t, 5> entry(std::size_t frame, std::size_t i) const {
        const auto& e = records.at(frame).entries[i];
        return {e.markerBits, e.ccValid, e.ccType, e.ccData1, e.ccData2};
    }

    ovtx::log::log_perf::v4::testing::CapturingLogger logger;
    std::vector<CaptionRecord> records;
};

TEST(CaptionExtractionTest, NtscLine21_TwoEntriesNullBeforeTheCaption_PalHasNoEntries) {
    CaptionRun ntsc(R"({"signal": [{"format": 2}], "captions": [{"at": 2, "text": "ON LINE 21"}]})", 2, 1);
    EXPECT_EQ(ntsc.records[0].count, 2);  // no caption yet: the null pair in both fields
    EXPECT_EQ(ntsc.entry(0, 0), (std::array<std::uint32_t, 5>{31, 1, 0, 128, 128}));
    EXPECT_EQ(ntsc.entry(0, 1), (std::array<std::uint32_t, 5>{31, 1, 1, 128, 128}));
    CaptionRun pal(R"({"signal": [{"format": 0}], "captions": [{"at": 0, "text": "X"}]})", 0, 1);
    EXPECT_EQ(pal.records[0].count, 0);
    EXPECT_EQ(pal.records[0].end, 1);
}

// A caption distribution packet on `line` of frames 0 to 2 with the words after its header.
std::string cdp(int line, const std::string& body = "225, 252, 65, 66, 116, 0, 1, 0") {
    return R"({"at": 0, "frames": 3, "did": "0x61", "sdid": "0x01", "line": )" + std::to_string(line) +
           R"(, "words": [150, 105, 16, 63, 67, 0, 1, 114, )" + body + "]}";
}

struct PacketCase {
    std::string name;
    std::string packets;  // raw ones; the board's own (24 entries) ride on line 9
    int count;
    std::string logged;
};
void PrintTo(const PacketCase& c, std::ostream* out) {
    *out << c.name;
}

class CaptionPacketTest : public ::testing::TestWithParam<PacketCase> {};

TEST_P(CaptionPacketTest, LastLineWithAPacketDecides_AFailureLeavesNoEntries) {
    CaptionRun run(R"({"signal": [{"format": 3}], "captions": [{"at": 0, "text": "X"}], "anc": [)" +
                       GetParam().packets + "]}",
                   3, 1);
    EXPECT_EQ(run.records[0].count, GetParam().count);
    if (GetParam().count == 1) {
        EXPECT_EQ(run.entry(0, 0), (std::array<std::uint32_t, 5>{31, 1, 0, 65, 66}));
    }
    const std::string& logged = GetParam().logged;
    EXPECT_EQ(run.logger.lines(), logged.empty() ? std::vector<std::string>{} : std::vector{"2 " + logged});
}

const std::string kFailure = "Error while parsing ClosedCaption  : Trying access offset ";

INSTANTIATE_TEST_SUITE_P(
    Packets, CaptionPacketTest,
    ::testing::Values(
        PacketCase{"LaterLineDecides", cdp(10), 1, ""}, PacketCase{"EarlierLineIsOverridden", cdp(8), 24, ""},
        PacketCase{"FirstPacketOfTheLineCounts", cdp(9), 24, ""},
        PacketCase{
            "TimeCodeServicesAndFutureSections",
            R"({"at": 0, "frames": 3, "did": "0x61", "sdid": 1, "line": 10, "words": [150, 105, 0, 63, 227,
                0, 1, 113, 1, 2, 3, 4, 114, 225, 252, 65, 66, 115, 225, 1, 2, 3, 4, 5, 6, 7, 128, 2, 1, 2,
                116, 0, 1, 0]})",
            1, ""},
        PacketCase{"ThreeWords",
                   R"({"at": 0, "frames": 3, "did": "0x61", "sdid": 1, "line": 10, "words": [150, 105, 3]})",
                   0, kFailure + "4 in buffer of size 3\n"},
        PacketCase{"CountBeyondThePacket", cdp(10, "227, 252, 65, 66, 116, 0, 1, 0"), 0,
                   kFailure + "16 in buffer of size 16\n"},
        PacketCase{"BadPacketOnAnEarlierLine", cdp(5, "225"), 0, kFailure + "9 in buffer of size 9\n"},
        PacketCase{"PacketsNotCounted",
                   cdp(10) + R"(], "errors": [{"operation": "VHD_SlotAncGetNbPackets", "code": 2})", 0,
                   "Cannot get number of packets on line 1 - Y samples."}),
    [](const ::testing::TestParamInfo<PacketCase>& info) { return info.param.name; });

}  // namespace
