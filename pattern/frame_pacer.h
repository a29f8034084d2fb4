// The pace of the pattern loop: frames due by a millisecond clock, made late ones at once.
//
// On each pass the pacer polls the stop signal, reads the clock and makes every frame that is
// due, one after another and without skipping, so that after a stall the stream catches up at
// full speed and stays complete. A pass that made nothing sleeps 10 ms. Frame times in the records
// come from the frame number alone, so the pacing jitter never reaches them.
//
//   FramePacer pacer(period, environment);   // notes the start time
//   pacer.run([&](std::int64_t f) { makeFrame(f); });
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "pattern/frame_rational.h"
#include "pattern/tick_clock.h"

namespace ovtx::pattern::pattern_source::v1 {

// What the pace reads from and does to the world; the loop's one seam for tests.
class IPaceEnvironment {
  public:
    virtual ~IPaceEnvironment() = default;
    // The process-wide run flag, looked at before each pass.
    virtual bool keepRunning() = 0;
    // The named stop event, polled with a timeout of 0.
    virtual bool stopSignalled() = 0;
    // The 32-bit monotonic millisecond tick.
    virtual std::uint32_t tickCount() = 0;
    virtual void sleep(std::chrono::milliseconds duration) = 0;
};

class FramePacer {
  public:
    static constexpr std::chrono::milliseconds kIdleSleep{10};

    // Updates the clock and notes its total as the start time.
    FramePacer(const FrameRational& period, IPaceEnvironment& environment);

    // Passes while the run flag is set, until the stop event is seen.
    void run(const std::function<void(std::int64_t)>& makeFrame);

    // One pass; false when the stop event was seen (and nothing was made).
    bool pass(const std::function<void(std::int64_t)>& makeFrame);

    // The number of the next frame to make; frames start at 0.
    std::int64_t nextFrame() const { return m_nextFrame; }

  private:
    FrameRational m_period;
    IPaceEnvironment& m_environment;
    TickClock m_clock;
    std::uint64_t m_startMs;
    std::int64_t m_nextFrame = 0;
};

}  // namespace ovtx::pattern::pattern_source::v1
