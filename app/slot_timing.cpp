#include "app/slot_timing.h"

namespace ovtx::app::sdi_tap::v1 {

std::int32_t roundedUpFrameRate(std::int64_t rateNumerator, std::int64_t rateDenominator) {
    return static_cast<std::int32_t>((rateNumerator + rateDenominator - 1) / rateDenominator);
}

std::int64_t elapsedFramePeriods(std::int64_t slotTime, std::int64_t lastSlotTime, std::int64_t rateNumerator,
                                 std::int64_t rateDenominator) {
    const std::int64_t elapsed =
        ((slotTime - lastSlotTime) * rateNumerator + rateDenominator * 500000) / (rateDenominator * 1000000);
    return elapsed <= 0 ? 1 : elapsed;
}

std::string lossText(std::int32_t notCaptured, std::int32_t dropped) {
    if (notCaptured < dropped) {
        return "Very weird case : more dropped frames than not captured frames ! (" +
               std::to_string(dropped) + " dropped > " + std::to_string(notCaptured) + " not captured )";
    }
    if (notCaptured <= 0) {
        return {};
    }
    const std::int32_t neverCaptured = notCaptured - dropped;
    std::string text;
    if (dropped > 0) {
        text += "Frame(s) captured and dropped : " + std::to_string(dropped);
    }
    if (dropped > 0 && neverCaptured > 0) {
        text += " , ";
    }
    if (neverCaptured > 0) {
        text += "Frame(s) not captured : " + std::to_string(neverCaptured);
    }
    return text;
}

std::int64_t timecodeFrameNumber(const system::sdi::deltacast_io::v1::TimecodeRecord& timecode,
                                 std::int32_t framesPerSecond, bool dropFrame) {
    const std::int32_t n =
        (timecode.hours * 3600 + timecode.minutes * 60 + timecode.seconds) * framesPerSecond +
        timecode.frames;
    if (!dropFrame) {
        return n;
    }
    const std::int32_t minutes = n / framesPerSecond / 60;
    return n - 2 * (minutes - minutes / 10);
}

}  // namespace ovtx::app::sdi_tap::v1
