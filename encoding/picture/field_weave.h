// Interlaced pictures arrive from the board field after field; these functions weave them into
// frame order, on the two kinds of board.
//
// A planar board delivers the three planes already, each as its first field's lines followed by
// its second field's: `interleavePlanarFields` weaves them into the picture. Any other board
// delivers packed 4:2:2 fields: `weavePackedFields` weaves them into the working buffer, which
// `convertPackedToPlanar` then turns into planes.
//
//   interleavePlanarFields(slotBuffer, slotSize, picture, 1920, 1080, use10Bit);   // planar board
//
//   weavePackedFields(slotBuffer, working, 720, 480, 2 * 720, boardStandard);      // packed board
//   convertPackedToPlanar(working, 2 * 720, picture, 720, 480);
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ovtx::encoding::picture::v1 {

// The board standard of NTSC 720x480i, whose fields the board delivers with lines of blanking
// around them.
inline constexpr std::uint32_t kNtscBoardStandard = 7;

// Texts of the capture engine's refusals (its exceptions carry them as they stand).
inline constexpr std::string_view kSegmentedFrameRefusal = "Not Implented PSF video format";
inline constexpr std::string_view kTenBitProgressiveRefusal =
    "Cannot Extract 10 bits progressive Frame When Planar feature is unavailable";
inline constexpr std::string_view kTenBitInterleaveRefusal =
    "Cannot Extract 10 bits interleave Field When Planar feature is unavailable";

// Weaves the planes of a planar board's interlaced frame. `source` holds `size` bytes: the luma
// plane (height lines of width samples), then two chroma planes (height/2 lines of width/2), each
// as the lines of field 0 followed by those of field 1. A sample is two bytes with `tenBit`.
// Throws std::runtime_error "Unexpected frame size in Interleave function" when `size` isn't the
// size of those three planes; nothing is written then.
void interleavePlanarFields(const std::uint8_t* source, std::size_t size, std::uint8_t* picture, int width,
                            int height, bool tenBit);

// The bytes `weavePackedFields` reads from its source for this geometry: a slot buffer shorter
// than this can't hold the picture.
std::size_t packedFieldsSourceBytes(int width, int height, std::int64_t pitch, std::uint32_t boardStandard);

// Weaves a packed board's two fields into `working` (height rows, `pitch` bytes apart): the
// source's first height/2 lines (2 x width bytes each, `pitch` apart) go to the even rows, the
// next height/2 to the odd rows. For NTSC (board standard 7) the first field starts 3 lines into
// the source and the second 4 lines after the end of the first.
void weavePackedFields(const std::uint8_t* source, std::uint8_t* working, int width, int height,
                       std::int64_t pitch, std::uint32_t boardStandard);

}  // namespace ovtx::encoding::picture::v1
