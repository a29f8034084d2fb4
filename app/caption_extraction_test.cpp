#include "app/caption_extraction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "app/simulated_slots_test_helper.h"
#include "encoding/subtitle_text/subtitle_decoder.h"
#include "log/testing/capturing_logger.h"

namespace {

using namespace ovtx::app::sdi_tap::v1;
using namespace ovtx::app::sdi_tap::v1::testing;
using ovtx::encoding::subtitle_text::v1::SubtitleDecoder;
using ovtx::log::log_perf::v4::testing::CapturingLogger;
using ovtx::simulcast::capture_records::v1::CaptionEntry;
using ovtx::simulcast::capture_records::v1::CaptionRecord;

constexpr std::int32_t kPal = 0;
constexpr std::int32_t kNtsc = 2;
constexpr std::int32_t k1080p25 = 3;

// Marker bits, cc_valid, cc_type and the two bytes of an entry.
using Fields = std::array<std::uint32_t, 5>;
Fields fields(const CaptionEntry& entry) {
    return {entry.markerBits, entry.ccValid, entry.ccType, entry.ccData1, entry.ccData2};
}

// The records of `frames` slots of port 0 described by `port`, and what the verbose report said.
struct CaptionRun {
    CaptionRun(const std::string& port, std::int32_t format, int frames) {
        SimulatedSlots slots(port, format);
        EngineReport report(logger, true);
        CaptionExtraction captions(slots.api(), report);
        for (int frame = 0; frame < frames; ++frame) {
            CaptionRecord& record = records.emplace_back();
            std::fill_n(reinterpret_cast<unsigned char*>(&record), sizeof record,
                        0xEE);  // chunks aren't cleared
            captions.extract(slots.next(), slots.boardStandard(), record, frame * 10, frame * 10 + 10);
        }
    }
    // What a CEA-608 decoder shows of CC1 after the field 1 pairs of every record.
    std::string cc1Text() const {
        SubtitleDecoder decoder;
        for (const CaptionRecord& record : records) {
            for (std::size_t i = 0; i < record.count; ++i) {
                const CaptionEntry& entry = record.entries[i];
                if (entry.ccValid == 1 && entry.ccType == 0) {
                    decoder.feedCaptionPair(static_cast<std::uint8_t>(entry.ccData1),
                                            static_cast<std::uint8_t>(entry.ccData2));
                }
            }
        }
        return decoder.captionText();
    }

    CapturingLogger logger;
    std::vector<CaptionRecord> records;
};

TEST(CaptionExtractionTest, NtscLine21_ReadsBackAsTheSentCaption) {
    CaptionRun run(R"({"signal": [{"format": 2}], "captions": [{"at": 1, "text": "CC1 ON LINE 21"},
                           {"at": 1, "field": 2, "text": "FIELD TWO"}]})",
                   kNtsc, 14);
    EXPECT_EQ(run.cc1Text(), "CC1 ON LINE 21");
    std::vector<std::uint8_t> field2;
    for (const CaptionRecord& record : run.records) {
        ASSERT_EQ(record.count, 2);
        EXPECT_EQ(record.entries[0].ccType, 0u);
        EXPECT_EQ(record.entries[1].ccType, 1u);
        field2.push_back(static_cast<std::uint8_t>(record.entries[1].ccData1 & 0x7F));
        field2.push_back(static_cast<std::uint8_t>(record.entries[1].ccData2 & 0x7F));
    }
    // Field 2 holds CC3: its text stands between the preamble and "end of caption".
    const std::string bytes(field2.begin(), field2.end());
    EXPECT_NE(bytes.find("FIELD TWO"), std::string::npos) << bytes;
    EXPECT_EQ(run.records[3].start, 30);
    EXPECT_EQ(run.records[3].end, 40);
}

TEST(CaptionExtractionTest, NtscWithoutCaptions_GivesTwoNullEntries) {
    CaptionRun run(R"({"signal": [{"format": 2}]})", kNtsc, 2);
    for (const CaptionRecord& record : run.records) {
        ASSERT_EQ(record.count, 2);
        EXPECT_EQ(fields(record.entries[0]), (Fields{31, 1, 0, 128, 128}));
        EXPECT_EQ(fields(record.entries[1]), (Fields{31, 1, 1, 128, 128}));
    }
}

TEST(CaptionExtractionTest, NtscLineThatCantBeRead_KeepsTheNullPair) {
    CaptionRun run(R"({"signal": [{"format": 2}], "captions": [{"at": 1, "text": "ABC"}],
                           "errors": [{"operation": "VHD_SlotVbiGetLine", "at": 1, "frames": 1, "code": 2}]})",
                   kNtsc, 2);
    EXPECT_EQ(run.records[0].count, 2);
    EXPECT_EQ(fields(run.records[0].entries[0]), (Fields{31, 1, 0, 128, 128}));
    EXPECT_EQ(run.records[1].entries[0].ccData1, 0x94u);  // the second pair of the caption is read
}

TEST(CaptionExtractionTest, Pal_HasNoEntriesWhateverTheSignalHolds) {
    CaptionRun run(R"({"signal": [{"format": 0}],
                           "anc": [{"at": 0, "frames": 5, "line": 9, "did": "0x61", "sdid": "0x01",
                                    "words": [150, 105, 20, 63, 67, 0, 1, 114, 225, 252, 148, 47, 116, 0, 1, 0]}]})",
                   kPal, 2);
    EXPECT_EQ(run.records[0].count, 0);
    EXPECT_EQ(run.records[1].count, 0);
    EXPECT_EQ(run.records[1].start, 10);
}

TEST(CaptionExtractionTest, HdDistributionPackets_ReadBackAsTheSentCaption) {
    CaptionRun run(R"({"signal": [{"format": 3}], "captions": [{"at": 2, "text": "IN CAPTION PACKETS"}]})",
                   k1080p25, 16);
    EXPECT_EQ(run.cc1Text(), "IN CAPTION PACKETS");
    EXPECT_EQ(run.records[0].count, 24);  // cc_count at 25 frames a second
    EXPECT_EQ(fields(run.records[0].entries[1]), (Fields{31, 1, 1, 0x80, 0x80}));
    EXPECT_EQ(fields(run.records[0].entries[2]), (Fields{31, 0, 2, 0, 0}));
    EXPECT_TRUE(run.logger.lines().empty());
}

// A CDP with one cc_data triple on line `line`: 1 entry of field 1 with "AB".
std::string oneEntryCdp(int line, int frames = 3) {
    return R"({"at": 0, "frames": )" + std::to_string(frames) + R"(, "line": )" + std::to_string(line) +
           R"(, "did": "0x61", "sdid": "0x01",
               "words": [150, 105, 16, 63, 67, 0, 1, 114, 225, 252, 65, 66, 116, 0, 1, 0]})";
}

struct CdpCase {
    std::string name;
    std::string anc;  // raw packets of the scenario
    bool captions;    // the board's own packet on line 9 too
    int count;
    std::string logged;  // the one verbose line, if any
};

class CaptionPacketCaseTest : public ::testing::TestWithParam<CdpCase> {};

TEST_P(CaptionPacketCaseTest, LastLineWithAPacketDecides_AFailureLeavesNoEntries) {
    const CdpCase& c = GetParam();
    const std::string captions = c.captions ? R"(, "captions": [{"at": 0, "text": "X"}])" : "";
    CaptionRun run(R"({"signal": [{"format": 3}], "anc": [)" + c.anc + "]" + captions + "}", k1080p25, 1);
    EXPECT_EQ(run.records[0].count, c.count);
    if (c.count == 1) {
        EXPECT_EQ(fields(run.records[0].entries[0]), (Fields{31, 1, 0, 65, 66}));
    }
    const std::vector<std::string> expected =
        c.logged.empty() ? std::vector<std::string>{} : std::vector<std::string>{"2 " + c.logged};
    EXPECT_EQ(run.logger.lines(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Packets, CaptionPacketCaseTest,
    ::testing::Values(
        CdpCase{"NoPacket", "", false, 0, ""},
        CdpCase{"OtherDid",
                R"({"at": 0, "frames": 3, "line": 9, "did": "0x41", "sdid": "0x01", "words": [1, 2, 3]})",
                false, 0, ""},
        CdpCase{"OnePacket", oneEntryCdp(9), false, 1, ""},
        CdpCase{"LaterLineDecides", oneEntryCdp(10), true, 1, ""},
        CdpCase{"EarlierLineIsOverridden", oneEntryCdp(8), true, 24, ""},
        CdpCase{"FirstPacketOfALineCounts", oneEntryCdp(9), true, 24, ""},
        CdpCase{"ThreeWords",
                R"({"at": 0, "frames": 3, "line": 9, "did": "0x61", "sdid": "0x01", "words": [150, 105, 3]})",
                false, 0,
                "Error while parsing ClosedCaption  : Trying access offset 4 in buffer of size 3\n"},
        CdpCase{"CountBeyondThePacket",
                R"({"at": 0, "frames": 3, "line": 9, "did": "0x61", "sdid": "0x01",
                    "words": [150, 105, 16, 63, 67, 0, 1, 114, 227, 252, 65, 66, 116, 0, 1, 0]})",
                false, 0,
                "Error while parsing ClosedCaption  : Trying access offset 16 in buffer of size 16\n"},
        CdpCase{"BadPacketOnAnEarlierLine",
                R"({"at": 0, "frames": 3, "line": 5, "did": "0x61", "sdid": "0x01", "words": [150, 105, 3]})",
                true, 0,
                "Error while parsing ClosedCaption  : Trying access offset 4 in buffer of size 3\n"}),
    [](const ::testing::TestParamInfo<CdpCase>& info) { return info.param.name; });

struct ReadFailureCase {
    std::string name;
    std::string operation;
    int count;
    std::string logged;
};

class CaptionReadFailureTest : public ::testing::TestWithParam<ReadFailureCase> {};

TEST_P(CaptionReadFailureTest, BoardFailure_IsToldAndTheRecordStillFilled) {
    const ReadFailureCase& c = GetParam();
    CaptionRun run(R"({"signal": [{"format": 3}], "anc": [)" + oneEntryCdp(9) +
                       R"(], "errors": [{"operation": ")" + c.operation + R"(", "at": 1, "code": 2}]})",
                   k1080p25, 2);
    EXPECT_EQ(run.records[0].count, c.count);
    EXPECT_EQ(run.records[0].start, 0);
    EXPECT_EQ(run.records[1].count, 1);
    const std::vector<std::string> lines = run.logger.lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "2 " + c.logged);
}

INSTANTIATE_TEST_SUITE_P(
    Board, CaptionReadFailureTest,
    ::testing::Values(ReadFailureCase{"PacketCount", "VHD_SlotAncGetNbPackets", 0,
                                      "Cannot get number of packets on line 1 - Y samples."},
                      ReadFailureCase{"Packet", "VHD_SlotAncGetPacket", 0,
                                      "Cannot get HANC packet 0 on line 9 empty"}),
    [](const ::testing::TestParamInfo<ReadFailureCase>& info) { return info.param.name; });

}  // namespace
