// The frame counter of the pattern source on the standard error stream.
//
// On a terminal it is "\rGenerated frame #<n>" after every frame, without a line end, so that it
// stays on one console line. Elsewhere (a pipe that a supervisor or the journal reads, a file) a
// counter per frame is 25 to 60 lines a second that nobody wants and, without line ends, one
// endless line; there it is a line "Generated frame #<n>" for the first frame and then for the
// first frame of every minute of stream time.
//
//   FrameCounter counter(format.period, standardErrorIsTerminal());
//   std::cerr << counter.textAfterFrame(f) << std::flush;   // empty when nothing is due
#pragma once

#include <cstdint>
#include <string>

#include "pattern/frame_rational.h"

namespace ovtx::pattern::pattern_source::v1 {

class FrameCounter {
  public:
    // Stream time between two counter lines off a terminal, in 100 ns units.
    static constexpr std::int64_t kLineInterval = 60LL * 10000000;

    FrameCounter(const FrameRational& period, bool terminal) : m_period(period), m_terminal(terminal) {}

    // What to write once frame `frameNumber` is made; empty when nothing is due.
    std::string textAfterFrame(std::int64_t frameNumber) const;

  private:
    FrameRational m_period;
    bool m_terminal;
};

}  // namespace ovtx::pattern::pattern_source::v1
