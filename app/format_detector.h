// What the input of a capture run carries, asked of the board on every pass of the capture loop
// and read by other threads (the service tree) at any time.
//
// One port: the port's board standard and clock divisor give the format. Four quadrants (4K): the
// four ports 0 to 3 are read, and when they all carry the same single-link format the joined 4K
// format stands for them. Every access takes the detector's lock:
//
//   FormatDetector detector(false, 1);
//   std::uint32_t code = detector.update(api, board);       // device result, 0 on success
//   SDI_VIDEO_STANDARD format = detector.detectedFormat();  // NO_FORMAT without a signal
//
// `detectWithLog` runs the detection and logs the format when it changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "encoding/sdi/sdi_common.h"
#include "log/i_logger.h"
#include "system/sdi/deltacast_io/device_api.h"

namespace ovtx::app::sdi_tap::v1 {

class FormatDetector {
  public:
    using SDI_VIDEO_STANDARD = encoding::sdi::sdi_common::v2::SDI_VIDEO_STANDARD;

    FormatDetector(bool fourHdQuads, std::int32_t port);

    // Reads the board's standard and clock divisor of the port (of ports 0 to 3 in four-quadrant
    // mode) and updates the formats. Returns the device result code: code 24 (no usable signal)
    // counts as a read of "no standard"; any other failure is returned, and the formats of a
    // four-quadrant read then stay as they were.
    std::uint32_t update(system::sdi::deltacast_io::v1::DeviceApi& api,
                         system::sdi::deltacast_io::v1::DeviceHandle board);

    // The joined 4K format in four-quadrant mode, the port's format otherwise.
    SDI_VIDEO_STANDARD detectedFormat() const;
    // The format of quadrant `quadrant`; throws std::out_of_range outside the list (one entry
    // outside four-quadrant mode).
    SDI_VIDEO_STANDARD quadrantFormat(std::size_t quadrant) const;

    bool fourQuadrants() const { return m_fourHdQuads; }

  private:
    std::uint32_t updateOnePort(system::sdi::deltacast_io::v1::DeviceApi& api,
                                system::sdi::deltacast_io::v1::DeviceHandle board);
    std::uint32_t updateQuadrants(system::sdi::deltacast_io::v1::DeviceApi& api,
                                  system::sdi::deltacast_io::v1::DeviceHandle board);

    mutable std::mutex m_mutex;
    std::vector<SDI_VIDEO_STANDARD> m_quadFormats;
    SDI_VIDEO_STANDARD m_joinedFormat;
    std::int32_t m_port;
    bool m_fourHdQuads;
};

// Detection with its log lines: runs `update`, and when it succeeded and the detected format
// changed, logs at level 2 "Auto detected video format: <short text>", or for no format
// "Auto detected incoherent format" (one port) or a line per quadrant (four-quadrant mode).
// Returns the device result of the update.
std::uint32_t detectWithLog(FormatDetector& detector, system::sdi::deltacast_io::v1::DeviceApi& api,
                            system::sdi::deltacast_io::v1::DeviceHandle board,
                            log::i_logger::v0::ILogger& logger);

}  // namespace ovtx::app::sdi_tap::v1
