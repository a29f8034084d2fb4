#include <chrono>
#include <cstdio>
#include <ctime>

#include "log/log_sink.h"

namespace ovtx::log::log_perf::v4 {

namespace {

constexpr const char* kDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

}  // namespace

Timestamp currentTimestamp() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count();
    return Timestamp{milliseconds / 1000, static_cast<std::uint16_t>(milliseconds % 1000)};
}

std::string formatLogTime(const Timestamp& when) {
    const std::time_t seconds = static_cast<std::time_t>(when.seconds);
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr) {
        return {};
    }
    // ctime's layout without the year: "Www Mmm dd hh:mm:ss", the day padded with a blank.
    char text[48];
    std::snprintf(text, sizeof text, "%.3s %.3s%3d %.2d:%.2d:%.2d.%03d", kDayNames[local.tm_wday % 7],
                  kMonthNames[local.tm_mon % 12], local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(when.milliseconds));
    return text;
}

}  // namespace ovtx::log::log_perf::v4
