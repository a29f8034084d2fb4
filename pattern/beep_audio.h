// The beep tone: the audio record of the pattern source.
//
// Each of the eight pairs plays a sine a whole tone above the last (220 Hz for pair 0), and jumps
// an octave up for the 0.1 s of each beep. Sample indices and phases come from absolute times, so
// consecutive records join without a lost or doubled sample and the beep's edges are exact:
//
//   void* chunk = audioWriter.beginChunk();
//   writeBeepAudio(static_cast<std::uint8_t*>(chunk), start, end, samplingCodes);
//   audioWriter.commitChunk();
#pragma once

#include <cstdint>
#include <span>

namespace ovtx::pattern::pattern_source::v1 {

// Amplitude of both channels: a quarter of full scale.
inline constexpr double kBeepAmplitude = 8191.75;
// The right channel plays the same tone this many samples ahead.
inline constexpr std::int64_t kRightChannelLead = 10000;

// Samples per second for a sampling code: 3 gives 32000, 2 gives 44100, anything else 48000.
int pairSampleRate(std::uint32_t samplingCode);

// The code a pair section carries: the list's code for the pair, or 1 (48 kHz) when the list has
// no entry for it or holds 0 (auto).
std::uint32_t pairSamplingCode(std::span<const std::uint32_t> samplingCodes, int pair);

// Index of the first sample at or after `time` (100 ns units): floor(time x rate / 10000000).
std::int64_t sampleIndexAt(std::int64_t time, int rate);

// Base frequency of pair `pair` in hertz: 220 x 2^(pair / 6).
double pairBaseFrequency(int pair);

// Left and right of sample `index` of pair `pair` at `rate`.
struct StereoSample {
    std::int16_t left;
    std::int16_t right;
};
StereoSample beepSample(std::int64_t index, int rate, int pair);

// Fills the audio record in `chunk` (73856 bytes) for the interval [start, end): marker, times and
// the eight pair sections, each holding the samples whose indices fall in the interval. A count
// beyond a section's room (an interval far longer than a frame) is cut to the room.
void writeBeepAudio(std::uint8_t* chunk, std::int64_t start, std::int64_t end,
                    std::span<const std::uint32_t> samplingCodes);

}  // namespace ovtx::pattern::pattern_source::v1
