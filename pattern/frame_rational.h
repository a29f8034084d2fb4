// Exact rational arithmetic for frame periods and frame times.
//
// A frame period is kept as a fraction of seconds (1001/30000 at 29.97 frames a second), and every
// frame time is computed from the frame number in exact rationals, floored once at the end, so
// that times never drift over a long run:
//
//   FrameRational period = FrameRational{1001, 30000}.reduced();
//   std::int64_t start = frameTime(30000, period);  // 10010000000, in 100 ns units
#pragma once

#include <cstdint>

namespace ovtx::pattern::pattern_source::v1 {

// 100-nanosecond units in one second: the unit of every time in the records.
inline constexpr std::int64_t kTimeUnitsPerSecond = 10000000;

// A fraction of two signed 64-bit integers. Operations don't reduce unless asked to.
struct FrameRational {
    std::int64_t numerator = 0;
    std::int64_t denominator = 1;

    // Divided by the greatest common divisor, with a positive denominator.
    FrameRational reduced() const;
    FrameRational operator*(std::int64_t factor) const { return {numerator * factor, denominator}; }
    FrameRational operator*(const FrameRational& other) const {
        return {numerator * other.numerator, denominator * other.denominator};
    }
    FrameRational inverted() const { return {denominator, numerator}; }
    // Rounds towards minus infinity, also for negative values.
    std::int64_t floor() const;
    double toDouble() const { return static_cast<double>(numerator) / static_cast<double>(denominator); }
};

// The start of frame `frameNumber` in 100 ns units: floor(frameNumber x period x 10000000).
// The period's product with the unit is reduced first, so that the product with the frame number
// stays far inside 64 bits for any run length.
std::int64_t frameTime(std::int64_t frameNumber, const FrameRational& period);

// Frames due after `elapsedMs` milliseconds: floor(elapsedMs / 1000 / period).
std::int64_t framesDue(std::int64_t elapsedMs, const FrameRational& period);

}  // namespace ovtx::pattern::pattern_source::v1
