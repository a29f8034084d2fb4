// The arithmetic of one capture slot: how many frame periods lie between two slots, what the loss
// between them is called in the log, and the frame number a timecode stands for.
//
//   const std::int64_t elapsed = elapsedFramePeriods(t, lastSlotTime, 25, 1);   // 2 after 80 ms
//   const std::string text = lossText(elapsed - 1, droppedNow - droppedBefore);
//   if (!text.empty()) logger.Log(0, "%s", text.c_str());
//   slotFrameNumber = timecodeFrameNumber(timecode, roundedUpFrameRate(30000, 1001), true);
#pragma once

#include <cstdint>
#include <string>

#include "system/sdi/deltacast_io/device_api.h"

namespace ovtx::app::sdi_tap::v1 {

// Frames a second rounded up: (numerator + denominator - 1) / denominator, 30 for 29.97.
std::int32_t roundedUpFrameRate(std::int64_t rateNumerator, std::int64_t rateDenominator);

// Frame periods from the slot at `lastSlotTime` to the one at `slotTime` (microseconds of the
// board), rounded to the nearest; at least 1.
std::int64_t elapsedFramePeriods(std::int64_t slotTime, std::int64_t lastSlotTime, std::int64_t rateNumerator,
                                 std::int64_t rateDenominator);

// The log text of the frames lost between two slots: `notCaptured` frame periods passed without a
// slot, of which the board captured and the program lost `dropped`. Empty when nothing was lost.
std::string lossText(std::int32_t notCaptured, std::int32_t dropped);

// The frame number of a timecode at `framesPerSecond` (rounded up), without the frame numbers
// that drop-frame counting skips (two a minute, but every tenth minute).
std::int64_t timecodeFrameNumber(const system::sdi::deltacast_io::v1::TimecodeRecord& timecode,
                                 std::int32_t framesPerSecond, bool dropFrame);

}  // namespace ovtx::app::sdi_tap::v1
