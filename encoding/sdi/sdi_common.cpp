#include "encoding/sdi/sdi_common.h"

#include <array>
#include <stdexcept>

#include "cpp_utils/cpp_tools/string_format.h"

namespace ovtx::encoding::sdi::sdi_common::v2 {
namespace {

using cpp_utils::cpp_tools::v1::formatText;

constexpr std::string_view kSmpte274 = "SMPTE 274M";
constexpr std::string_view kSmpte296 = "SMPTE 296M";
constexpr std::string_view kQuadSmpte274 = "4 x SMPTE 274M";

constexpr std::array<FormatTableRow, 22> kFormats{{
    {VS_PAL_720_576i_50, "PAL_720_576i_50", 720, 576, 'i', 25, 1, "PAL", 6, 0},
    {VS_NTSC_720_480i_59_94, "NTSC_720_480i_59_94", 720, 480, 'i', 30000, 1001, "NTSC", 7, 1},
    {VS_HD_1920_1080p_25, "HD_1920_1080p_25", 1920, 1080, 'p', 25, 1, kSmpte274, 0, 0},
    {VS_HD_1920_1080p_29_97, "HD_1920_1080p_29_97", 1920, 1080, 'p', 30000, 1001, kSmpte274, 1, 1},
    {VS_HD_1920_1080i_50, "HD_1920_1080i_50", 1920, 1080, 'i', 25, 1, kSmpte274, 2, 0},
    {VS_HD_1920_1080i_59_94, "HD_1920_1080i_59_94", 1920, 1080, 'i', 30000, 1001, kSmpte274, 3, 1},
    {VS_HD_1280_720p_50, "HD_1280_720p_50", 1280, 720, 'p', 50, 1, kSmpte296, 4, 0},
    {VS_HD_1280_720p_59_94, "HD_1280_720p_59_94", 1280, 720, 'p', 60000, 1001, kSmpte296, 5, 1},
    {VS_3G_1920_1080p_50, "3G_1920_1080p_50", 1920, 1080, 'p', 50, 1, kSmpte274, 10, 0},
    {VS_3G_1920_1080p_59_94, "3G_1920_1080p_59_94", 1920, 1080, 'p', 60000, 1001, kSmpte274, 9, 1},
    {VS_HD_1920_1080p_30, "HD_1920_1080p_30", 1920, 1080, 'p', 30, 1, kSmpte274, 1, 0},
    {VS_HD_1920_1080i_60, "HD_1920_1080i_60", 1920, 1080, 'i', 30, 1, kSmpte274, 3, 0},
    {VS_HD_1280_720p_60, "HD_1280_720p_60", 1280, 720, 'p', 60, 1, kSmpte296, 5, 0},
    {VS_3G_1920_1080p_60, "3G_1920_1080p_60", 1920, 1080, 'p', 60, 1, kSmpte274, 9, 0},
    {VS_4_HD_1920_1080p_23_98, "4_HD_1920_1080p_23_98", 3840, 2160, 'p', 24000, 1001, kQuadSmpte274, 26, 1},
    {VS_4_HD_1920_1080p_25, "4_HD_1920_1080p_25", 3840, 2160, 'p', 25, 1, kQuadSmpte274, 27, 0},
    {VS_4_HD_1920_1080p_29_97, "4_HD_1920_1080p_29_97", 3840, 2160, 'p', 30000, 1001, kQuadSmpte274, 28, 1},
    {VS_4_3G_1920_1080p_50, "4_3G_1920_1080p_50", 3840, 2160, 'p', 50, 1, kQuadSmpte274, 29, 0},
    {VS_4_3G_1920_1080p_59_94, "4_3G_1920_1080p_59_94", 3840, 2160, 'p', 60000, 1001, kQuadSmpte274, 30, 1},
    {VS_4_HD_1920_1080p_24, "4_HD_1920_1080p_24", 3840, 2160, 'p', 24, 1, kQuadSmpte274, 26, 0},
    {VS_4_HD_1920_1080p_30, "4_HD_1920_1080p_30", 3840, 2160, 'p', 30, 1, kQuadSmpte274, 28, 0},
    {VS_4_3G_1920_1080p_60, "4_3G_1920_1080p_60", 3840, 2160, 'p', 60, 1, kQuadSmpte274, 30, 0},
}};

const FormatTableRow* findRow(std::int32_t code) {
    for (const auto& row : kFormats) {
        if (row.code == code) {
            return &row;
        }
    }
    return nullptr;
}

const FormatTableRow& rowOrThrow(std::int32_t code) {
    const FormatTableRow* row = findRow(code);
    if (row == nullptr) {
        throw std::runtime_error("invalid SDI video standard");
    }
    return *row;
}

std::string rateText(std::int64_t numerator, std::int64_t denominator) {
    if (denominator == 1) {
        return formatText("%d", static_cast<int>(numerator));
    }
    return formatText("%.2f", static_cast<double>(numerator) / static_cast<double>(denominator));
}

}  // namespace

std::span<const FormatTableRow> formatTable() {
    return kFormats;
}

SdiFormatInfo::SdiFormatInfo(std::int32_t code) {
    const FormatTableRow* row = findRow(code);
    if (row != nullptr) {
        boardStandard = row->boardStandard;
        width = row->width;
        height = row->height;
        rateNumerator = row->rateNumerator;
        rateDenominator = row->rateDenominator;
    }
    // The scan step is the one that rejects an unknown code, after the other fields are set.
    scan = rowOrThrow(code).scan == 'i' ? SCAN_INTERLACED : SCAN_PROGRESSIVE;
    clockDivisor = rateDenominator > 1000 ? 1 : 0;
    dropFrame = rateDenominator >= 1001;
}

std::string standardNorm(std::int32_t code) {
    const FormatTableRow* row = findRow(code);
    return row == nullptr ? "<undefined>" : std::string(row->norm);
}

std::string scanLetter(std::int32_t code) {
    return std::string(1, rowOrThrow(code).scan);
}

std::string formatShortText(std::int32_t code) {
    const FormatTableRow& row = rowOrThrow(code);
    return formatText("%dx%d%s %s fps", row.width, row.height, scanLetter(code).c_str(),
                      rateText(row.rateNumerator, row.rateDenominator).c_str());
}

std::string formatLongText(std::int32_t code) {
    const std::string norm = standardNorm(code);
    const std::string scan = scanLetter(code);
    const FormatTableRow& row = rowOrThrow(code);
    return formatText("Video format : %s - %d%s @ %sHz", norm.c_str(), row.height, scan.c_str(),
                      rateText(row.rateNumerator, row.rateDenominator).c_str());
}

SDI_VIDEO_STANDARD formatFromBoard(std::uint32_t boardStandard, std::uint32_t clockDivisor) {
    if (clockDivisor > 1) {
        return NO_FORMAT;
    }
    for (const auto& row : kFormats) {
        if (row.boardStandard == boardStandard && row.clockDivisor == clockDivisor) {
            return row.code;
        }
    }
    return NO_FORMAT;
}

SDI_VIDEO_STANDARD formatCodeOf(const SdiFormatInfo& info) {
    return formatFromBoard(info.boardStandard, info.clockDivisor);
}

std::optional<std::string_view> formatName(std::int32_t code) {
    const FormatTableRow* row = findRow(code);
    if (row == nullptr) {
        return std::nullopt;
    }
    return row->name;
}

SDI_VIDEO_STANDARD formatFromName(std::string_view text) {
    for (const auto& row : kFormats) {
        if (text == row.name || text == std::to_string(row.code)) {
            return row.code;
        }
    }
    throw std::runtime_error("Invalid enum choice");
}

}  // namespace ovtx::encoding::sdi::sdi_common::v2
