#include "pattern/frame_counter.h"

namespace ovtx::pattern::pattern_source::v1 {

std::string FrameCounter::textAfterFrame(std::int64_t frameNumber) const {
    const std::string counter = "Generated frame #" + std::to_string(frameNumber);
    if (m_terminal) {
        return "\r" + counter;
    }
    const bool firstOfItsMinute =
        frameNumber == 0 || frameTime(frameNumber, m_period) / kLineInterval !=
                                frameTime(frameNumber - 1, m_period) / kLineInterval;
    return firstOfItsMinute ? counter + "\n" : std::string();
}

}  // namespace ovtx::pattern::pattern_source::v1
