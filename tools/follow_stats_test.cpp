#include "tools/follow_stats.h"

#include <gtest/gtest.h>

#include <memory>

#include "simulcast/capture_records.h"

namespace {

using namespace ovtx::tools::simulcast_follow::v1;
namespace records = ovtx::simulcast::capture_records::v1;

TEST(FollowStatsTest, PeakDbfs) {
    const struct {
        int peak;
        const char* text;
    } cases[] = {{32767, "-0.0"}, {16384, "-6.0"}, {8191, "-12.0"}, {1, "-90.3"}, {0, "-inf"}};
    for (const auto& c : cases) {
        EXPECT_EQ(peakDbfs(c.peak), c.text) << c.peak;
    }
}

TEST(FollowStatsTest, AudioLine_CountsRatePeaksAndDiscontinuities) {
    auto record = std::make_unique<records::AudioRecord>();
    record->magic = records::kAudioMagic;
    record->start = 400000;
    record->pairs[0].present = 1;
    record->pairs[0].sampleCount = 2;
    record->pairs[0].samples[3] = -16384;
    record->pairs[1].present = 1;
    ChannelStats stats(RecordKind::Audio);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(record.get());
    stats.add(false, bytes, sizeof *record);
    record->discontinuity = 1;
    stats.add(true, bytes, sizeof *record);
    EXPECT_EQ(stats.takeLine(0.5),
              "stats audio records=2 rate=4.00 disc=2 last_start=400000 peak_dBFS=-6.0,-inf,-,-,-,-,-,-");
    EXPECT_EQ(stats.takeLine(1.0),
              "stats audio records=2 rate=0.00 disc=2 last_start=400000 peak_dBFS=-,-,-,-,-,-,-,-")
        << "a window without records";
}

TEST(FollowStatsTest, CaptionLine_CountsFieldOnePairsThatAreNotNull) {
    records::CaptionRecord record{};
    record.start = 800000;
    record.count = 3;
    record.entries[0] = {31, 1, 0, 0x94, 0x2C};
    record.entries[1] = {31, 1, 1, 0x94, 0x2C};  // field 2
    record.entries[2] = {31, 1, 0, 0x80, 0x80};  // null
    ChannelStats stats(RecordKind::Captions);
    stats.add(false, reinterpret_cast<const std::uint8_t*>(&record), sizeof record);
    EXPECT_EQ(stats.takeLine(1.0),
              "stats captions records=1 rate=1.00 disc=0 last_start=800000 entries=3 cc1_pairs=1");
}

}  // namespace
