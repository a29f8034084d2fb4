#include "encoding/picture/field_weave.h"

#include <cstring>
#include <stdexcept>

namespace ovtx::encoding::picture::v1 {
namespace {

// NTSC fields: lines of the source before the first field, and between the two fields.
constexpr std::int64_t kNtscLeadLines = 3;
constexpr std::int64_t kNtscGapLines = 4;

struct PlaneShape {
    std::size_t offset;
    std::size_t lineBytes;
    std::int64_t rows;
};

// Copies `count` lines of `lineBytes` from `source` (`sourcePitch` apart) to every second row of
// `target` (`targetPitch` apart) and returns where the source stopped.
const std::uint8_t* copyLines(const std::uint8_t* source, std::int64_t sourcePitch, std::uint8_t* target,
                              std::int64_t targetPitch, std::size_t lineBytes, std::int64_t count) {
    for (std::int64_t line = 0; line < count; ++line) {
        std::memcpy(target + line * targetPitch, source, lineBytes);
        source += sourcePitch;
    }
    return source;
}

}  // namespace

void interleavePlanarFields(const std::uint8_t* source, std::size_t size, std::uint8_t* picture, int width,
                            int height, bool tenBit) {
    const std::size_t sampleBytes = tenBit ? 2 : 1;
    const std::size_t lumaBytes =
        static_cast<std::size_t>(height) * static_cast<std::size_t>(width) * sampleBytes;
    const std::size_t lineBytes = static_cast<std::size_t>(width) * sampleBytes;
    if (lumaBytes * 3 / 2 != size) {
        throw std::runtime_error("Unexpected frame size in Interleave function");
    }
    const PlaneShape planes[] = {{0, lineBytes, height},
                                 {lumaBytes, lineBytes / 2, height / 2},
                                 {lumaBytes * 5 / 4, lineBytes / 2, height / 2}};
    for (const PlaneShape& plane : planes) {
        const auto pitch = static_cast<std::int64_t>(plane.lineBytes);
        for (std::int64_t field = 0; field < 2; ++field) {
            const std::int64_t lines = (plane.rows - field + 1) / 2;
            source = copyLines(source, pitch, picture + plane.offset + field * plane.lineBytes, 2 * pitch,
                               plane.lineBytes, lines);
        }
    }
}

std::size_t packedFieldsSourceBytes(int width, int height, std::int64_t pitch, std::uint32_t boardStandard) {
    const std::int64_t skipped = boardStandard == kNtscBoardStandard ? kNtscLeadLines + kNtscGapLines : 0;
    const std::int64_t lines = height / 2 * 2 + skipped;
    return lines == 0 ? 0 : static_cast<std::size_t>((lines - 1) * pitch + 2 * width);
}

void weavePackedFields(const std::uint8_t* source, std::uint8_t* working, int width, int height,
                       std::int64_t pitch, std::uint32_t boardStandard) {
    const bool ntsc = boardStandard == kNtscBoardStandard;
    const auto lineBytes = static_cast<std::size_t>(2 * width);
    if (ntsc) {
        source += kNtscLeadLines * pitch;
    }
    source = copyLines(source, pitch, working, 2 * pitch, lineBytes, height / 2);
    if (ntsc) {
        source += kNtscGapLines * pitch;
    }
    copyLines(source, pitch, working + pitch, 2 * pitch, lineBytes, height / 2);
}

}  // namespace ovtx::encoding::picture::v1
