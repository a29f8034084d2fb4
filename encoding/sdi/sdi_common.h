// The video format table: everything that depends on the shape of the picture starts from one
// format code, a value of `SDI_VIDEO_STANDARD`.
//
// The table gives each code its geometry, frame rate, norm text and the board's own pair of
// numbers (board standard and clock divisor). `SdiFormatInfo` is the record the capture engine
// and the pattern source derive from a code:
//
//   SdiFormatInfo info(VS_HD_1920_1080p_25);        // 1920 x 1080, 25/1, progressive
//   std::string text = formatLongText(info.formatCode());  // "Video format : SMPTE 274M - 1080p @ 25Hz"
//   SDI_VIDEO_STANDARD code = formatFromBoard(9, 1);        // VS_3G_1920_1080p_59_94
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace ovtx::encoding::sdi::sdi_common::v2 {

// Format codes. The members carry the prefix `VS_` because several format names start with a
// digit; `formatName` gives the names without it ("3G_1920_1080p_50"), as logs and the service
// tree show them. The numbering has holes: 1, 15 to 100 and everything above 108 are no formats.
enum SDI_VIDEO_STANDARD : std::int32_t {
    NO_FORMAT = -1,  // "unknown" at run time; not a member of the table
    VS_PAL_720_576i_50 = 0,
    VS_NTSC_720_480i_59_94 = 2,
    VS_HD_1920_1080p_25 = 3,
    VS_HD_1920_1080p_29_97 = 4,
    VS_HD_1920_1080i_50 = 5,
    VS_HD_1920_1080i_59_94 = 6,
    VS_HD_1280_720p_50 = 7,
    VS_HD_1280_720p_59_94 = 8,
    VS_3G_1920_1080p_50 = 9,
    VS_3G_1920_1080p_59_94 = 10,
    VS_HD_1920_1080p_30 = 11,
    VS_HD_1920_1080i_60 = 12,
    VS_HD_1280_720p_60 = 13,
    VS_3G_1920_1080p_60 = 14,
    VS_4_HD_1920_1080p_23_98 = 101,
    VS_4_HD_1920_1080p_25 = 102,
    VS_4_HD_1920_1080p_29_97 = 103,
    VS_4_3G_1920_1080p_50 = 104,
    VS_4_3G_1920_1080p_59_94 = 105,
    VS_4_HD_1920_1080p_24 = 106,
    VS_4_HD_1920_1080p_30 = 107,
    VS_4_3G_1920_1080p_60 = 108,
};

// The board standard number that means "the board reports no standard".
inline constexpr std::uint32_t NO_BOARD_STANDARD = 37;

enum ScanMode : std::uint32_t { SCAN_PROGRESSIVE = 0, SCAN_INTERLACED = 1, SCAN_PSF = 2 };

// One row of the format table.
struct FormatTableRow {
    SDI_VIDEO_STANDARD code;
    std::string_view name;
    std::int32_t width;
    std::int32_t height;
    char scan;  // 'i' or 'p'
    std::int64_t rateNumerator;
    std::int64_t rateDenominator;
    std::string_view norm;
    std::uint32_t boardStandard;
    std::uint32_t clockDivisor;
};

// The 22 formats in code order.
std::span<const FormatTableRow> formatTable();

// The facts of one format, as the capture engine keeps them for a run.
struct SdiFormatInfo {
    // Throws std::runtime_error("invalid SDI video standard") for a code outside the table.
    explicit SdiFormatInfo(std::int32_t code);

    std::uint32_t boardStandard = NO_BOARD_STANDARD;
    std::uint32_t clockDivisor = 0;  // 1 for the 1000/1001 clock
    std::int32_t width = -1;
    std::int32_t height = -1;
    std::int64_t rateDenominator = 1;
    std::int64_t rateNumerator = 1;
    std::uint32_t wssLine = 23;
    std::uint32_t ancLine = 11;
    std::uint32_t scan = SCAN_PROGRESSIVE;
    bool dropFrame = false;
};

// The Norm column ("SMPTE 274M", ...); "<undefined>" for any other code.
std::string standardNorm(std::int32_t code);
// "i" or "p"; throws "invalid SDI video standard" for a code outside the table.
std::string scanLetter(std::int32_t code);
// "1920x1080i 29.97 fps".
std::string formatShortText(std::int32_t code);
// "Video format : SMPTE 274M - 1080i @ 29.97Hz".
std::string formatLongText(std::int32_t code);
// The format code for the board's standard and clock divisor, or NO_FORMAT.
SDI_VIDEO_STANDARD formatFromBoard(std::uint32_t boardStandard, std::uint32_t clockDivisor);
// formatFromBoard on the record's board standard and clock divisor.
SDI_VIDEO_STANDARD formatCodeOf(const SdiFormatInfo& info);

// The enum text of a code ("HD_1920_1080p_25"), or nothing for a code outside the table.
std::optional<std::string_view> formatName(std::int32_t code);
// The code for a name or for its decimal number ("HD_1920_1080p_25" or "3");
// throws std::runtime_error("Invalid enum choice") for anything else.
SDI_VIDEO_STANDARD formatFromName(std::string_view text);

}  // namespace ovtx::encoding::sdi::sdi_common::v2
