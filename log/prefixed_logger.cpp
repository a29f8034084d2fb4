#include "log/prefixed_logger.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

namespace ovtx::log::prefixed_logger::v0 {

PrefixedLogger::PrefixedLogger(i_logger::v0::ILogger* target, std::string prefix)
    : m_target(target), m_prefix(std::move(prefix)) {}

void PrefixedLogger::Log(int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list measure;
    va_copy(measure, args);
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    std::vector<char> text(length > 0 ? static_cast<std::size_t>(length) + 1 : 1, '\0');
    if (length > 0) {
        std::vsnprintf(text.data(), text.size(), format, args);
    }
    va_end(args);
    m_target->Log(level, "%s%s", m_prefix.c_str(), text.data());
}

}  // namespace ovtx::log::prefixed_logger::v0
