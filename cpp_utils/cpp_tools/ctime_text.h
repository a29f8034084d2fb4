// The local time as the system's ctime text: "Www Mmm dd hh:mm:ss yyyy" with the day of the month
// in two digits ("Tue Jan 02 00:00:00 2024"), without the line end. Log lines and the test card's
// clock show it.
//
//   std::string text = ctimeText(std::time(nullptr));
#pragma once

#include <ctime>
#include <string>

#include "cpp_utils/cpp_tools/string_format.h"

namespace ovtx::cpp_utils::cpp_tools::v1 {

// Empty when the time has no local calendar form.
inline std::string ctimeText(std::time_t seconds) {
    static constexpr const char* kDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr) {
        return {};
    }
    return formatText("%.3s %.3s %02d %02d:%02d:%02d %d", kDayNames[local.tm_wday % 7],
                      kMonthNames[local.tm_mon % 12], local.tm_mday, local.tm_hour, local.tm_min,
                      local.tm_sec, local.tm_year + 1900);
}

}  // namespace ovtx::cpp_utils::cpp_tools::v1
