// The pattern source's view of a format code: frame period, picture size and the sizes derived
// from them.
//
//   PatternFormat format = patternFormat(3);       // 1/25 s, 1920 x 1080
//   std::int64_t bytes = pictureBytes(format, 10); // 6220800
//   int budget = captionBudget(format.period);     // 48
#pragma once

#include <cstdint>

#include "pattern/frame_rational.h"

namespace ovtx::pattern::pattern_source::v1 {

struct PatternFormat {
    FrameRational period{1, 1};  // seconds per frame, reduced
    int width = -1;
    int height = -1;
};

// The period and size of a format code of the format table. A code that the table doesn't know
// gets a period of one second and a picture of -1 x -1.
PatternFormat patternFormat(int videoFormat);

// Bytes of a planar 4:2:0 picture: width x height x 3 / 2, doubled for a depth above 8.
std::int64_t pictureBytes(const PatternFormat& format, int bitDepth);

// Caption entries for each frame: floor(1200 x period).
int captionBudget(const FrameRational& period);

}  // namespace ovtx::pattern::pattern_source::v1
