#include "pattern/caption_source.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <set>
#include <vector>

#include "encoding/subtitle_text/subtitle_decoder.h"
#include "pattern/beep_timing.h"
#include "pattern/pattern_format.h"

namespace {

using namespace ovtx::pattern::pattern_source::v1;
using ovtx::encoding::subtitle_text::v1::SubtitleDecoder;
namespace records = ovtx::simulcast::capture_records::v1;

bool oddParity(std::uint32_t byte) {
    return std::popcount(byte & 0xFF) % 2 == 1;
}

// Frames whose start lies in a beep, among 0 to `frames` - 1.
std::set<std::int64_t> beepFrames(const FrameRational& period, std::int64_t frames) {
    std::set<std::int64_t> result;
    for (std::int64_t f = 0; f < frames; ++f) {
        if (isInBeep(frameTime(f, period))) {
            result.insert(f);
        }
    }
    return result;
}

class CaptionSourceTest : public testing::TestWithParam<int> {};

TEST_P(CaptionSourceTest, EveryFrame_HasTheBudgetOfWellFormedEntries) {
    const FrameRational period = patternFormat(GetParam()).period;
    const int budget = captionBudget(period);
    CaptionSource source("BEEP", kBeepPeriod, kBeepLength, budget);
    for (std::int64_t f = 0; f < 130; ++f) {
        const std::span<const CaptionEntry> entries = source.entriesFor(f, period);
        ASSERT_EQ(entries.size(), static_cast<std::size_t>(budget));
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const CaptionEntry& e = entries[i];
            ASSERT_EQ(e.markerBits, 31u);
            if (i < 2) {
                ASSERT_EQ(e.ccValid, 1u);
                ASSERT_EQ(e.ccType, i) << "entry 0 is field 1, entry 1 field 2";
                ASSERT_TRUE(oddParity(e.ccData1) && oddParity(e.ccData2)) << "frame " << f;
                ASSERT_LE(e.ccData1 | e.ccData2, 0xFFu);
            } else {
                ASSERT_EQ(e.ccValid, 0u) << "DTVCC padding";
                ASSERT_EQ(e.ccType, 2u);
                ASSERT_EQ(e.ccData1, 0u);
                ASSERT_EQ(e.ccData2, 0u);
            }
        }
        ASSERT_EQ(entries[1].ccData1, 0x80u) << "field 2 carries nothing";
    }
}

// A real CEA-608 decoder shows "BEEP" in exactly the frames of every beep, and nothing in between.
// The beep at time 0 has no frames before it to load the caption in: its word is painted on from
// the first frame, a pair a frame, and libzvbi draws it at the closing blank, which may be the
// frame after the beep.
TEST_P(CaptionSourceTest, ReferenceDecoder_ShowsBeepInEveryBeepAndOnlyThere) {
    const FrameRational period = patternFormat(GetParam()).period;
    CaptionSource source("BEEP", kBeepPeriod, kBeepLength, captionBudget(period));
    SubtitleDecoder decoder;
    const std::int64_t frames = framesDue(6500, period);
    std::set<std::int64_t> shown;
    for (std::int64_t f = 0; f < frames; ++f) {
        const CaptionEntry& field1 = source.entriesFor(f, period)[0];
        decoder.feedCaptionPair(static_cast<std::uint8_t>(field1.ccData1),
                                static_cast<std::uint8_t>(field1.ccData2));
        const std::string text = decoder.captionText();
        ASSERT_TRUE(text.empty() || text == "BEEP") << "frame " << f << ": " << text;
        if (!text.empty()) {
            shown.insert(f);
        }
    }
    const std::set<std::int64_t> beeps = beepFrames(period, frames);
    std::int64_t firstBeepEnd = 0;  // the first frame after the beep at time 0
    while (beeps.count(firstBeepEnd) != 0) {
        ++firstBeepEnd;
    }
    std::set<std::int64_t> shownLater, beepsLater;
    std::copy_if(shown.begin(), shown.end(), std::inserter(shownLater, shownLater.end()),
                 [&](std::int64_t f) { return f > firstBeepEnd; });
    std::copy_if(beeps.begin(), beeps.end(), std::inserter(beepsLater, beepsLater.end()),
                 [&](std::int64_t f) { return f > firstBeepEnd; });
    EXPECT_EQ(shownLater, beepsLater) << "the beeps at 2, 4 and 6 s";
    ASSERT_FALSE(shown.empty());
    EXPECT_LE(*shown.begin(), firstBeepEnd) << "the beep at time 0, by the frame after it at the latest";
}

INSTANTIATE_TEST_SUITE_P(Rates, CaptionSourceTest, testing::Values(0, 2, 3, 4, 9, 10, 101, 106, 108));

TEST(CaptionSourceSequenceTest, FrameOutOfSequence_DropsTheQueueAndStartsAgain) {
    const FrameRational period = patternFormat(3).period;
    CaptionSource source("BEEP", kBeepPeriod, kBeepLength, captionBudget(period));
    for (std::int64_t f = 0; f < 10; ++f) {
        source.entriesFor(f, period);
    }
    EXPECT_EQ(source.expectedFrame(), 10);
    const std::span<const CaptionEntry> skipped = source.entriesFor(12, period);
    EXPECT_EQ(source.expectedFrame(), -1);
    EXPECT_EQ(skipped[0].ccData1, 0x80u) << "the patterned list: a null pair";
    EXPECT_EQ(skipped[0].ccData2, 0x80u);

    // The next frame loads the caption afresh, and it still shows in the next beep.
    SubtitleDecoder decoder;
    std::string duringBeep;
    for (std::int64_t f = 13; f <= 51; ++f) {
        const CaptionEntry& e = source.entriesFor(f, period)[0];
        decoder.feedCaptionPair(static_cast<std::uint8_t>(e.ccData1), static_cast<std::uint8_t>(e.ccData2));
        if (f == 13) {
            EXPECT_EQ(source.expectedFrame(), 14);
        }
        if (f == 51) {
            duringBeep = decoder.captionText();
        }
    }
    EXPECT_EQ(duringBeep, "BEEP");
}

TEST(CaptionRecordTest, Record_HoldsTimesCountAndEntriesBeyondThirtyOne) {
    const FrameRational period = patternFormat(3).period;
    CaptionSource source("BEEP", kBeepPeriod, kBeepLength, captionBudget(period));
    std::vector<std::uint8_t> chunk(records::kPatternCaptionSize.chunkBytes, 0xEE);
    const std::span<const CaptionEntry> entries = source.entriesFor(0, period);
    writeCaptionRecord(chunk.data(), 400000, 800000, entries);
    const auto& record = *reinterpret_cast<const records::CaptionRecord*>(chunk.data());
    EXPECT_EQ(record.start, 400000);
    EXPECT_EQ(record.end, 800000);
    EXPECT_EQ(record.count, 48);
    CaptionEntry last;
    std::memcpy(&last, chunk.data() + 20 + 47 * 20, sizeof(last));
    EXPECT_EQ(last.ccType, 2u);
    EXPECT_EQ(chunk[20 + 48 * 20], 0xEE) << "nothing past the entries";
    EXPECT_EQ(captionEntriesThatFit(1024), 50);
    EXPECT_GE(captionEntriesThatFit(1024), captionBudget(patternFormat(106).period)) << "24 fps fits";
}

}  // namespace
