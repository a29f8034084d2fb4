#include <chrono>
#include <ctime>

#include "cpp_utils/cpp_tools/ctime_text.h"
#include "log/log_sink.h"

namespace ovtx::log::log_perf::v4 {

Timestamp currentTimestamp() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count();
    return Timestamp{milliseconds / 1000, static_cast<std::uint16_t>(milliseconds % 1000)};
}

std::string formatLogTime(const Timestamp& when) {
    const std::string text = cpp_utils::cpp_tools::v1::ctimeText(static_cast<std::time_t>(when.seconds));
    if (text.empty()) {
        return {};
    }
    return cpp_utils::cpp_tools::v1::formatText("%.19s.%03d", text.c_str(),
                                                static_cast<int>(when.milliseconds));
}

}  // namespace ovtx::log::log_perf::v4
