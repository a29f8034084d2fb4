// The picture of one capture slot, from the board's video buffer into the planes of a video
// record: planar 4:2:0, luma then two chroma planes, unpadded.
//
// A planar board delivers the planes: a progressive picture is one copy, an interlaced one is
// woven field by field. Any other board delivers packed 4:2:2, which goes through the working
// buffer (woven there when interlaced) and is converted. Pictures that can't be made are refused
// with an `SdiTapException`; a buffer of the wrong size with a std::runtime_error. The working
// buffer is allocated once, so nothing is allocated per frame:
//
//   VideoExtraction video(info, planarCapable, use10Bit);
//   video.extractPicture(slotBuffer, slotBytes, chunk + kVideoPictureOffset);
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "cpp_utils/exception_utils/exception_utils.h"
#include "encoding/sdi/sdi_common.h"

namespace ovtx::app::sdi_tap::v1 {

class SdiTap;
using SdiTapException = cpp_utils::exception_utils::v1::ExceptionTemplate<SdiTap>;

class VideoExtraction {
  public:
    VideoExtraction(const encoding::sdi::sdi_common::v2::SdiFormatInfo& info, bool planarCapable,
                    bool use10Bit);

    // Bytes of the planes that extractPicture writes.
    std::size_t pictureBytes() const { return m_pictureBytes; }
    // Bytes of the working buffer: width × 16 × height × d / 8, d = 2 with 10-bit samples.
    std::size_t workingBytes() const { return m_workingBytes; }

    // Makes the picture at `picture` (pictureBytes() long) from the `size` bytes of `buffer`.
    void extractPicture(const std::uint8_t* buffer, std::size_t size, std::uint8_t* picture);

  private:
    void progressive(const std::uint8_t* buffer, std::size_t size, std::uint8_t* picture);
    void interleave(const std::uint8_t* buffer, std::size_t size, std::uint8_t* picture);
    void convert(std::uint8_t* picture);

    int m_width;
    int m_height;
    std::uint32_t m_scan;
    std::uint32_t m_boardStandard;
    bool m_planarCapable;
    bool m_use10Bit;
    std::int64_t m_pitch;
    std::size_t m_pictureBytes;
    std::size_t m_workingBytes;
    std::unique_ptr<std::uint8_t[]> m_working;
};

}  // namespace ovtx::app::sdi_tap::v1
