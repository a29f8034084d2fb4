// Picture geometry and frame rate of the format codes a run announces in its format block (from
// the format table of encoding/sdi), as far as a consumer tool needs them to write a playable file.
#pragma once

#include <cstdint>
#include <optional>

namespace ovtx::tools::simulcast_follow::v1 {

struct FormatGeometry {
    int width;
    int height;
    std::int64_t rateNumerator;  // frames, not fields
    std::int64_t rateDenominator;
    bool interlaced;

    bool operator==(const FormatGeometry&) const = default;
};

// The geometry of a format code (SDI_VIDEO_STANDARD); nothing for a code outside the table.
std::optional<FormatGeometry> formatGeometry(std::int32_t formatCode);

}  // namespace ovtx::tools::simulcast_follow::v1
