#include "pattern/frame_rational.h"

#include <numeric>

namespace ovtx::pattern::pattern_source::v1 {

FrameRational FrameRational::reduced() const {
    const std::int64_t divisor = std::gcd(numerator, denominator);
    if (divisor == 0) {
        return *this;
    }
    FrameRational result{numerator / divisor, denominator / divisor};
    if (result.denominator < 0) {
        result = {-result.numerator, -result.denominator};
    }
    return result;
}

std::int64_t FrameRational::floor() const {
    std::int64_t n = numerator;
    std::int64_t d = denominator;
    if (d < 0) {
        n = -n;
        d = -d;
    }
    const std::int64_t quotient = n / d;
    return (n % d != 0 && n < 0) ? quotient - 1 : quotient;
}

std::int64_t frameTime(std::int64_t frameNumber, const FrameRational& period) {
    return ((period * kTimeUnitsPerSecond).reduced() * frameNumber).floor();
}

std::int64_t framesDue(std::int64_t elapsedMs, const FrameRational& period) {
    return (period.inverted() * FrameRational{elapsedMs, 1000}).floor();
}

}  // namespace ovtx::pattern::pattern_source::v1
