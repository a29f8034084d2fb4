#include "pattern/pattern_format.h"

#include "encoding/sdi/sdi_common.h"

namespace ovtx::pattern::pattern_source::v1 {

namespace sdi = ovtx::encoding::sdi::sdi_common::v2;

PatternFormat patternFormat(int videoFormat) {
    for (const sdi::FormatTableRow& row : sdi::formatTable()) {
        if (row.code == videoFormat) {
            return {FrameRational{row.rateDenominator, row.rateNumerator}.reduced(), row.width, row.height};
        }
    }
    return {};
}

std::int64_t pictureBytes(const PatternFormat& format, int bitDepth) {
    const std::int64_t bytes = static_cast<std::int64_t>(format.width) * format.height * 3 / 2;
    return bitDepth > 8 ? bytes * 2 : bytes;
}

int captionBudget(const FrameRational& period) {
    return static_cast<int>((period * 1200).floor());
}

}  // namespace ovtx::pattern::pattern_source::v1
