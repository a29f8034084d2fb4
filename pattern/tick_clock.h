// A wrap-proof millisecond counter on a 32-bit monotonic tick.
//
// The tick source wraps every 49.7 days; the clock keeps a 64-bit total that goes on counting
// through the wrap. The pattern loop paces itself on it:
//
//   TickClock clock;
//   const std::uint64_t startMs = clock.update(monotonicTickCount());
//   ...
//   const std::uint64_t elapsedMs = clock.update(monotonicTickCount()) - startMs;
#pragma once

#include <cstdint>

namespace ovtx::pattern::pattern_source::v1 {

// Milliseconds of the monotonic clock, truncated to 32 bits: wraps like a system tick count.
std::uint32_t monotonicTickCount();

class TickClock {
  public:
    // Adds the ticks since the last update to the total and returns the total. A tick below the
    // last one is a wrap: the clock then adds the new tick plus the complement of the last one.
    std::uint64_t update(std::uint32_t tick);

    std::uint64_t total() const { return m_total; }

  private:
    std::uint64_t m_total = 0;
    std::uint32_t m_last = 0;
};

}  // namespace ovtx::pattern::pattern_source::v1
