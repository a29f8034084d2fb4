// printf-style formatting into a std::string, for the short texts of tables and reports.
//
//   std::string rate = formatText("%.2f", 29.97);   // "29.97"
#pragma once

#include <cstdio>
#include <string>

namespace ovtx::cpp_utils::cpp_tools::v1 {

template <typename... Args>
std::string formatText(const char* pattern, Args... args) {
    const int length = std::snprintf(nullptr, 0, pattern, args...);
    if (length <= 0) {
        return {};
    }
    std::string text(static_cast<std::size_t>(length), '\0');
    std::snprintf(text.data(), text.size() + 1, pattern, args...);
    return text;
}

}  // namespace ovtx::cpp_utils::cpp_tools::v1
