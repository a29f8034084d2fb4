#include "app/engine_report.h"

#include <cstdarg>
#include <cstdio>

namespace ovtx::app::sdi_tap::v1 {

namespace {
constexpr std::size_t kReportBufferSize = 260;
constexpr int kReportLevel = 2;
}  // namespace

void EngineReport::operator()(bool forced, const char* format, ...) {
    if (!forced && !m_print) {
        return;
    }
    char text[kReportBufferSize];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    m_logger.Log(kReportLevel, "%s", text);
}

}  // namespace ovtx::app::sdi_tap::v1
