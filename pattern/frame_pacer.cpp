#include "pattern/frame_pacer.h"

namespace ovtx::pattern::pattern_source::v1 {

FramePacer::FramePacer(const FrameRational& period, IPaceEnvironment& environment)
    : m_period(period), m_environment(environment), m_startMs(m_clock.update(environment.tickCount())) {}

void FramePacer::run(const std::function<void(std::int64_t)>& makeFrame) {
    while (m_environment.keepRunning()) {
        if (!pass(makeFrame)) {
            return;
        }
    }
}

bool FramePacer::pass(const std::function<void(std::int64_t)>& makeFrame) {
    if (m_environment.stopSignalled()) {
        return false;
    }
    const auto elapsedMs = static_cast<std::int64_t>(m_clock.update(m_environment.tickCount()) - m_startMs);
    const std::int64_t target = framesDue(elapsedMs, m_period);
    bool madeFrame = false;
    for (; m_nextFrame < target; ++m_nextFrame) {
        makeFrame(m_nextFrame);
        madeFrame = true;
    }
    if (!madeFrame) {
        m_environment.sleep(kIdleSleep);
    }
    return true;
}

}  // namespace ovtx::pattern::pattern_source::v1
