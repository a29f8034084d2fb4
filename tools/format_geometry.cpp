#include "tools/format_geometry.h"

#include "encoding/sdi/sdi_common.h"

namespace ovtx::tools::simulcast_follow::v1 {

std::optional<FormatGeometry> formatGeometry(std::int32_t formatCode) {
    for (const auto& row : encoding::sdi::sdi_common::v2::formatTable()) {
        if (row.code == formatCode) {
            return FormatGeometry{row.width, row.height, row.rateNumerator, row.rateDenominator,
                                  row.scan == 'i'};
        }
    }
    return std::nullopt;
}

}  // namespace ovtx::tools::simulcast_follow::v1
