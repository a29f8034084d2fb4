#include "pattern/beep_audio.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

#include "pattern/beep_timing.h"
#include "pattern/frame_rational.h"
#include "simulcast/capture_records.h"

namespace ovtx::pattern::pattern_source::v1 {

namespace records = ovtx::simulcast::capture_records::v1;

namespace {

constexpr int kPairCount = records::kAudioPairCount;

// Moment of sample `index` in 100 ns units: floor(index x 10000000 / rate). `unitsPerSample` is
// that ratio reduced, which keeps the product inside 64 bits for any run length.
std::int64_t sampleTime(std::int64_t index, const FrameRational& unitsPerSample) {
    return (unitsPerSample * index).floor();
}

std::int16_t scaled(double value) {
    return static_cast<std::int16_t>(std::trunc(value * kBeepAmplitude));
}

double sineAt(std::int64_t index, int rate, double frequency) {
    return std::sin(2.0 * std::numbers::pi * static_cast<double>(index) / rate * frequency);
}

// One pair's constants, worked out once per record.
struct PairTone {
    int rate;
    FrameRational unitsPerSample;
    double baseFrequency;

    PairTone(int sampleRate, int pair)
        : rate(sampleRate),
          unitsPerSample(FrameRational{kTimeUnitsPerSecond, sampleRate}.reduced()),
          baseFrequency(pairBaseFrequency(pair)) {}

    StereoSample sample(std::int64_t index) const {
        const double frequency =
            isInBeep(sampleTime(index, unitsPerSample)) ? 2 * baseFrequency : baseFrequency;
        return {scaled(sineAt(index, rate, frequency)),
                scaled(sineAt(index + kRightChannelLead, rate, frequency))};
    }
};

void fillPair(records::AudioPairBlock& pair, int p, std::uint32_t code, std::int64_t start,
              std::int64_t end) {
    const int rate = pairSampleRate(code);
    const std::int64_t first = sampleIndexAt(start, rate);
    const std::int64_t count =
        std::clamp<std::int64_t>(sampleIndexAt(end, rate) - first, 0, records::kMaxStereoSamples);
    pair.present = 1;
    pair.mode = records::kStereoAudioMode;
    pair.sampleCount = static_cast<std::uint16_t>(count);
    pair.sampling = code;
    const PairTone tone(rate, p);
    for (std::int64_t k = 0; k < count; ++k) {
        const StereoSample sample = tone.sample(first + k);
        pair.samples[2 * k] = sample.left;
        pair.samples[2 * k + 1] = sample.right;
    }
}

}  // namespace

int pairSampleRate(std::uint32_t samplingCode) {
    switch (samplingCode) {
        case 3:
            return 32000;
        case 2:
            return 44100;
        default:
            return 48000;
    }
}

std::uint32_t pairSamplingCode(std::span<const std::uint32_t> samplingCodes, int pair) {
    const auto index = static_cast<std::size_t>(pair);
    if (index >= samplingCodes.size() || samplingCodes[index] == 0) {
        return 1;
    }
    return samplingCodes[index];
}

std::int64_t sampleIndexAt(std::int64_t time, int rate) {
    return (FrameRational{rate, kTimeUnitsPerSecond}.reduced() * time).floor();
}

double pairBaseFrequency(int pair) {
    return 220.0 * std::pow(2.0, pair / 6.0);
}

StereoSample beepSample(std::int64_t index, int rate, int pair) {
    return PairTone(rate, pair).sample(index);
}

void writeBeepAudio(std::uint8_t* chunk, std::int64_t start, std::int64_t end,
                    std::span<const std::uint32_t> samplingCodes) {
    auto* record = reinterpret_cast<records::AudioRecord*>(chunk);
    record->magic = records::kAudioMagic;
    record->discontinuity = 0;
    record->start = start;
    record->end = end;
    std::memset(record->pairs, 0, sizeof(record->pairs));
    for (int p = 0; p < kPairCount; ++p) {
        fillPair(record->pairs[p], p, pairSamplingCode(samplingCodes, p), start, end);
    }
}

}  // namespace ovtx::pattern::pattern_source::v1
