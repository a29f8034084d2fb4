// The blanking lines a capture run asks the board for. An SD signal (PAL or NTSC) gives its WSS
// line and the teletext lines 7-22 and 320-335 as raw VBI samples; any other signal gives its
// ancillary data line as ANC packets. The ancillary steps find their lines in the same table:
//
//   const VbiLineTable lines = captureLineTable(info);
//   api.vbiSetCaptureLines(stream, lines);
//   const std::int32_t wssLineIndex = lineIndex(lines, info.wssLine);   // -1: not in the table
#pragma once

#include <cstdint>

#include "encoding/sdi/sdi_common.h"
#include "system/sdi/deltacast_io/device_api.h"

namespace ovtx::app::sdi_tap::v1 {

inline constexpr std::uint32_t kPalBoardStandard = 6;
inline constexpr std::uint32_t kNtscBoardStandard = 7;

inline bool isStandardDefinition(std::uint32_t boardStandard) {
    return boardStandard == kPalBoardStandard || boardStandard == kNtscBoardStandard;
}

system::sdi::deltacast_io::v1::VbiLineTable captureLineTable(
    const encoding::sdi::sdi_common::v2::SdiFormatInfo& info);

// The entry of `table` that holds `line`, the last one if several do; -1 when none does.
std::int32_t lineIndex(const system::sdi::deltacast_io::v1::VbiLineTable& table, std::uint32_t line);

}  // namespace ovtx::app::sdi_tap::v1
