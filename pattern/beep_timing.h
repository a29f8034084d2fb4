// The beep's timing, shared by the picture, the tone, the captions and the teletext: every 2
// seconds of stream time, for 0.1 seconds, starting at time 0.
//
//   if (isInBeep(frameTime(f, period))) { ...flash, show "BEEP"... }
#pragma once

#include <cstdint>

namespace ovtx::pattern::pattern_source::v1 {

// In 100 ns units.
inline constexpr std::int64_t kBeepPeriod = 20000000;
inline constexpr std::int64_t kBeepLength = 1000000;

// Where `time` (100 ns units, not negative) stands in its beep cycle.
constexpr std::int64_t beepCycleTime(std::int64_t time) {
    return time % kBeepPeriod;
}

// True when `time` lies in a beep: its place in the cycle is below the beep length.
constexpr bool isInBeep(std::int64_t time) {
    return beepCycleTime(time) < kBeepLength;
}

}  // namespace ovtx::pattern::pattern_source::v1
