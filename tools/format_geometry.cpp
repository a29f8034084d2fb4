#include "tools/format_geometry.h"

#include <array>

namespace ovtx::tools::simulcast_follow::v1 {

namespace {

struct Entry {
    std::int32_t code;
    FormatGeometry geometry;
};

constexpr std::array<Entry, 22> kFormats{{
    {0, {720, 576, 25, 1, true}},
    {2, {720, 480, 30000, 1001, true}},
    {3, {1920, 1080, 25, 1, false}},
    {4, {1920, 1080, 30000, 1001, false}},
    {5, {1920, 1080, 25, 1, true}},
    {6, {1920, 1080, 30000, 1001, true}},
    {7, {1280, 720, 50, 1, false}},
    {8, {1280, 720, 60000, 1001, false}},
    {9, {1920, 1080, 50, 1, false}},
    {10, {1920, 1080, 60000, 1001, false}},
    {11, {1920, 1080, 30, 1, false}},
    {12, {1920, 1080, 30, 1, true}},
    {13, {1280, 720, 60, 1, false}},
    {14, {1920, 1080, 60, 1, false}},
    {101, {3840, 2160, 24000, 1001, false}},
    {102, {3840, 2160, 25, 1, false}},
    {103, {3840, 2160, 30000, 1001, false}},
    {104, {3840, 2160, 50, 1, false}},
    {105, {3840, 2160, 60000, 1001, false}},
    {106, {3840, 2160, 24, 1, false}},
    {107, {3840, 2160, 30, 1, false}},
    {108, {3840, 2160, 60, 1, false}},
}};

}  // namespace

std::optional<FormatGeometry> formatGeometry(std::int32_t formatCode) {
    for (const Entry& entry : kFormats) {
        if (entry.code == formatCode) {
            return entry.geometry;
        }
    }
    return std::nullopt;
}

}  // namespace ovtx::tools::simulcast_follow::v1
