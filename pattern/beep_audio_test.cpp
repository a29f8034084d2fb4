#include "pattern/beep_audio.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <memory>
#include <numbers>

#include "pattern/beep_timing.h"
#include "pattern/pattern_format.h"
#include "simulcast/capture_records.h"

namespace {

using namespace ovtx::pattern::pattern_source::v1;
namespace records = ovtx::simulcast::capture_records::v1;

class BeepAudioTest : public testing::Test {
  protected:
    BeepAudioTest() : m_chunk(new std::uint8_t[records::kPatternAudioSize.chunkBytes]) {}

    const records::AudioRecord& write(std::int64_t frameNumber, const FrameRational& period) {
        writeBeepAudio(m_chunk.get(), frameTime(frameNumber, period), frameTime(frameNumber + 1, period),
                       sampling);
        return *reinterpret_cast<const records::AudioRecord*>(m_chunk.get());
    }

    std::array<std::uint32_t, 8> sampling{};

  private:
    std::unique_ptr<std::uint8_t[]> m_chunk;
};

TEST_F(BeepAudioTest, Record_HasMarkerTimesAndEightStereoPairs) {
    const records::AudioRecord& record = write(3, patternFormat(3).period);
    EXPECT_EQ(record.magic, 0x5541);
    EXPECT_EQ(record.discontinuity, 0);
    EXPECT_EQ(record.start, 1200000);
    EXPECT_EQ(record.end, 1600000);
    for (const records::AudioPairBlock& pair : record.pairs) {
        EXPECT_EQ(pair.present, 1);
        EXPECT_EQ(pair.mode, 2);
        EXPECT_EQ(pair.sampling, 1u) << "auto is published as 48 kHz";
        EXPECT_EQ(pair.sampleCount, 1920);
        EXPECT_EQ(pair.samples[2 * 1920], 0) << "the section past the samples is cleared";
    }
}

TEST_F(BeepAudioTest, Counts2997_Alternate1601And1602AndAddUpExactly) {
    const FrameRational period = patternFormat(4).period;
    std::int64_t total = 0;
    int counts1601 = 0;
    int counts1602 = 0;
    const std::int64_t frames = 1000;
    for (std::int64_t f = 0; f < frames; ++f) {
        const int count = write(f, period).pairs[0].sampleCount;
        ASSERT_TRUE(count == 1601 || count == 1602) << "frame " << f << ": " << count;
        (count == 1601 ? counts1601 : counts1602) += 1;
        total += count;
    }
    EXPECT_EQ(total, frameTime(frames, period) * 48000 / 10000000);
    // 1601.6 samples a frame: about three frames in five carry 1602.
    EXPECT_NEAR(counts1602, 600, 1);
    EXPECT_NEAR(counts1601, 400, 1);
}

TEST_F(BeepAudioTest, Totals_AreExactAfterALongRunAtEveryRate) {
    sampling = {1, 2, 3, 0, 1, 2, 3, 0};
    const FrameRational period = patternFormat(101).period;  // 23.976
    const std::int64_t first = 9000000;                      // about four days in
    std::array<std::int64_t, 8> totals{};
    const std::int64_t frames = 500;
    for (std::int64_t f = first; f < first + frames; ++f) {
        const records::AudioRecord& record = write(f, period);
        for (int p = 0; p < 8; ++p) {
            totals[p] += record.pairs[p].sampleCount;
        }
    }
    for (int p = 0; p < 8; ++p) {
        const int rate = pairSampleRate(sampling[p]);
        EXPECT_EQ(totals[p], sampleIndexAt(frameTime(first + frames, period), rate) -
                                 sampleIndexAt(frameTime(first, period), rate))
            << "pair " << p;
    }
}

TEST_F(BeepAudioTest, SamplingCode2OnPair1_RunsThatPairAt44100) {
    sampling[1] = 2;
    const records::AudioRecord& record = write(0, patternFormat(3).period);
    EXPECT_EQ(record.pairs[1].sampling, 2u);
    EXPECT_EQ(record.pairs[1].sampleCount, 1764);
    for (int p : {0, 2, 3, 4, 5, 6, 7}) {
        EXPECT_EQ(record.pairs[p].sampling, 1u);
        EXPECT_EQ(record.pairs[p].sampleCount, 1920);
    }
    EXPECT_EQ(pairSampleRate(3), 32000);
    EXPECT_EQ(pairSampleRate(0), 48000);
    EXPECT_EQ(pairSamplingCode(std::span<const std::uint32_t>(sampling).first(1), 5), 1u)
        << "a list without the pair counts as auto";
}

TEST_F(BeepAudioTest, BeepWindowEdges_999999InAnd1000000Out) {
    EXPECT_TRUE(isInBeep(0));
    EXPECT_TRUE(isInBeep(999999));
    EXPECT_FALSE(isInBeep(1000000));
    EXPECT_FALSE(isInBeep(19999999));
    EXPECT_TRUE(isInBeep(20000000));
    EXPECT_TRUE(isInBeep(20999999));
}

// At 48 kHz sample 4799 is at T 999791, the last of the beep; 4800 is at T 1000000.
TEST_F(BeepAudioTest, OctaveJump_EndsWithTheLastSampleInsideTheBeep) {
    const auto expected = [](std::int64_t index, double frequency) {
        return static_cast<std::int16_t>(std::trunc(
            std::sin(2.0 * std::numbers::pi * static_cast<double>(index) / 48000 * frequency) * 8191.75));
    };
    // Pairs whose tone doesn't pass zero exactly at 0.1 s, so that the two frequencies differ there.
    for (int pair : {1, 5}) {
        const double base = pairBaseFrequency(pair);
        EXPECT_EQ(beepSample(4799, 48000, pair).left, expected(4799, 2 * base));
        EXPECT_NE(beepSample(4799, 48000, pair).left, expected(4799, base));
        EXPECT_EQ(beepSample(4800, 48000, pair).left, expected(4800, base));
        EXPECT_NE(beepSample(4800, 48000, pair).left, expected(4800, 2 * base));
        EXPECT_EQ(beepSample(960000, 48000, pair).left, expected(960000, 2 * base)) << "the beep at 20 s";
    }
    EXPECT_NEAR(pairBaseFrequency(1), 246.94, 0.01);
    EXPECT_NEAR(pairBaseFrequency(7), 493.88, 0.01);
}

TEST_F(BeepAudioTest, RightChannel_IsTheLeft10000SamplesAhead) {
    // Away from the beep's edges both channels play the base tone.
    for (std::int64_t index : {5000, 123456, 700000}) {
        for (int pair = 0; pair < 8; ++pair) {
            EXPECT_EQ(beepSample(index, 48000, pair).right, beepSample(index + 10000, 48000, pair).left)
                << index << " pair " << pair;
        }
    }
}

TEST_F(BeepAudioTest, Samples_StayWithinAQuarterOfFullScale) {
    const records::AudioRecord& record = write(0, patternFormat(3).period);
    int peak = 0;
    for (const records::AudioPairBlock& pair : record.pairs) {
        for (int i = 0; i < pair.sampleCount * 2; ++i) {
            peak = std::max(peak, std::abs(static_cast<int>(pair.samples[i])));
        }
    }
    EXPECT_LE(peak, 8191);
    EXPECT_GE(peak, 8180);
}

TEST_F(BeepAudioTest, UnknownFormat_CutsTheCountToTheSectionsRoom) {
    const records::AudioRecord& record = write(0, patternFormat(1).period);  // a whole second
    EXPECT_EQ(record.pairs[0].sampleCount, records::kMaxStereoSamples);
}

}  // namespace
