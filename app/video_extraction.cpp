#include "app/video_extraction.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "encoding/picture/field_weave.h"
#include "encoding/picture/packed_to_planar.h"
#include "simulcast/capture_records.h"

namespace ovtx::app::sdi_tap::v1 {

namespace formats = encoding::sdi::sdi_common::v2;
namespace picture = encoding::picture::v1;
namespace records = simulcast::capture_records::v1;

VideoExtraction::VideoExtraction(const formats::SdiFormatInfo& info, bool planarCapable, bool use10Bit)
    : m_width(info.width),
      m_height(info.height),
      m_scan(info.scan),
      m_boardStandard(info.boardStandard),
      m_planarCapable(planarCapable),
      m_use10Bit(use10Bit),
      m_pitch((static_cast<std::int64_t>(info.width) * 16 >> 7) * 16),
      m_pictureBytes(
          static_cast<std::size_t>(records::capturePictureSize(info.width, info.height, use10Bit))),
      m_workingBytes(static_cast<std::size_t>(static_cast<std::int64_t>(info.width) * 16 * info.height *
                                              (use10Bit ? 2 : 1) / 8)),
      m_working(std::make_unique_for_overwrite<std::uint8_t[]>(m_workingBytes)) {}

void VideoExtraction::extractPicture(const std::uint8_t* buffer, std::size_t size, std::uint8_t* picture) {
    switch (m_scan) {
        case formats::SCAN_PROGRESSIVE:
            progressive(buffer, size, picture);
            return;
        case formats::SCAN_INTERLACED:
            interleave(buffer, size, picture);
            return;
        default:
            throw SdiTapException(std::string(picture::kSegmentedFrameRefusal));
    }
}

void VideoExtraction::progressive(const std::uint8_t* buffer, std::size_t size, std::uint8_t* picture) {
    if (m_planarCapable) {
        // The board made the planes; its chroma order is passed on. A buffer larger than the
        // record's picture is cut to it.
        std::memcpy(picture, buffer, std::min(size, m_pictureBytes));
        return;
    }
    if (m_use10Bit) {
        throw SdiTapException(std::string(picture::kTenBitProgressiveRefusal));
    }
    const std::size_t lineBytes = 2 * static_cast<std::size_t>(m_width);
    if (size < lineBytes * static_cast<std::size_t>(m_height)) {
        throw std::runtime_error("Unexpected frame size in Progressive function");
    }
    for (int row = 0; row < m_height; ++row) {
        std::memcpy(m_working.get() + row * m_pitch, buffer + row * lineBytes, lineBytes);
    }
    convert(picture);
}

void VideoExtraction::interleave(const std::uint8_t* buffer, std::size_t size, std::uint8_t* picture) {
    if (m_planarCapable) {
        picture::interleavePlanarFields(buffer, size, picture, m_width, m_height, m_use10Bit);
        return;
    }
    if (m_use10Bit) {
        throw SdiTapException(std::string(picture::kTenBitInterleaveRefusal));
    }
    if (size < picture::packedFieldsSourceBytes(m_width, m_height, m_pitch, m_boardStandard)) {
        throw std::runtime_error("Unexpected frame size in Interleave function");
    }
    picture::weavePackedFields(buffer, m_working.get(), m_width, m_height, m_pitch, m_boardStandard);
    convert(picture);
}

void VideoExtraction::convert(std::uint8_t* picture) {
    // The result only tells of a null plane or a picture below 2 x 2, which no format has.
    (void)picture::convertPackedToPlanar(m_working.get(), m_pitch, picture, m_width, m_height);
}

}  // namespace ovtx::app::sdi_tap::v1
