#include "pattern/tick_clock.h"

#include <chrono>

namespace ovtx::pattern::pattern_source::v1 {

std::uint32_t monotonicTickCount() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

std::uint64_t TickClock::update(std::uint32_t tick) {
    if (tick < m_last) {
        m_total += static_cast<std::uint64_t>(tick) + static_cast<std::uint32_t>(~m_last);
    } else {
        m_total += tick - m_last;
    }
    m_last = tick;
    return m_total;
}

}  // namespace ovtx::pattern::pattern_source::v1
