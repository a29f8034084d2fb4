#include "app/format_detector.h"

#include <array>
#include <stdexcept>

namespace ovtx::app::sdi_tap::v1 {

namespace device = system::sdi::deltacast_io::v1;
namespace formats = encoding::sdi::sdi_common::v2;
using formats::NO_FORMAT;

namespace {

constexpr std::size_t kQuadrants = 4;

// Starts as "no signal", so that a read that fails before filling it gives no format.
struct BoardPair {
    std::uint32_t standard = device::kNoBoardStandard;
    std::uint32_t clockDivisor = device::kClockDivisorNoSignal;
};

// Reads a port's standard, then its clock divisor; code 24 stands for "no standard" (37) and "no
// signal" (2). Returns the result of the first failing read, or 0.
std::uint32_t readPort(device::DeviceApi& api, device::DeviceHandle board, std::size_t port,
                       BoardPair& pair) {
    const device::PortNumbers& numbers = device::kPortNumbers.at(port);
    std::uint32_t result = api.getBoardProperty(board, numbers.standardProperty, pair.standard);
    if (result == device::kDeviceBadInputSignal) {
        pair.standard = device::kNoBoardStandard;
        result = device::kDeviceOk;
    }
    if (result != device::kDeviceOk) {
        return result;
    }
    result = api.getBoardProperty(board, numbers.clockDivisorProperty, pair.clockDivisor);
    if (result == device::kDeviceBadInputSignal) {
        pair.clockDivisor = device::kClockDivisorNoSignal;
        return device::kDeviceOk;
    }
    return result;
}

// The 4K board standard of four quadrants that carry single-link board standard `standard`.
std::uint32_t fourKStandard(std::uint32_t standard) {
    switch (standard) {
        case 0:
            return 27;
        case 1:
            return 28;
        case 8:
            return 26;
        case 9:
            return 30;
        case 10:
            return 29;
        default:
            return device::kNoBoardStandard;
    }
}

}  // namespace

FormatDetector::FormatDetector(bool fourHdQuads, std::int32_t port)
    : m_quadFormats(fourHdQuads ? kQuadrants : 1, NO_FORMAT),
      m_joinedFormat(NO_FORMAT),
      m_port(port),
      m_fourHdQuads(fourHdQuads) {}

std::uint32_t FormatDetector::update(device::DeviceApi& api, device::DeviceHandle board) {
    std::lock_guard lock(m_mutex);
    return m_fourHdQuads ? updateQuadrants(api, board) : updateOnePort(api, board);
}

std::uint32_t FormatDetector::updateOnePort(device::DeviceApi& api, device::DeviceHandle board) {
    BoardPair pair;
    const std::uint32_t result = readPort(api, board, static_cast<std::size_t>(m_port), pair);
    // A failed read still leaves the format of what the two values hold.
    m_quadFormats[0] = formats::formatFromBoard(pair.standard, pair.clockDivisor);
    return result;
}

std::uint32_t FormatDetector::updateQuadrants(device::DeviceApi& api, device::DeviceHandle board) {
    std::array<BoardPair, kQuadrants> pairs{};
    for (std::size_t port = 0; port < kQuadrants; ++port) {
        if (const std::uint32_t result = readPort(api, board, port, pairs[port]);
            result != device::kDeviceOk) {
            return result;
        }
    }
    bool allEqual = true;
    for (std::size_t port = 0; port < kQuadrants; ++port) {
        m_quadFormats[port] = formats::formatFromBoard(pairs[port].standard, pairs[port].clockDivisor);
        allEqual = allEqual && m_quadFormats[port] == m_quadFormats[0];
    }
    m_joinedFormat = allEqual
                         ? formats::formatFromBoard(fourKStandard(pairs[0].standard), pairs[0].clockDivisor)
                         : NO_FORMAT;
    return device::kDeviceOk;
}

FormatDetector::SDI_VIDEO_STANDARD FormatDetector::detectedFormat() const {
    std::lock_guard lock(m_mutex);
    return m_fourHdQuads ? m_joinedFormat : m_quadFormats[0];
}

FormatDetector::SDI_VIDEO_STANDARD FormatDetector::quadrantFormat(std::size_t quadrant) const {
    std::lock_guard lock(m_mutex);
    return m_quadFormats.at(quadrant);
}

std::uint32_t detectWithLog(FormatDetector& detector, device::DeviceApi& api, device::DeviceHandle board,
                            log::i_logger::v0::ILogger& logger) {
    const formats::SDI_VIDEO_STANDARD before = detector.detectedFormat();
    const std::uint32_t result = detector.update(api, board);
    if (result != device::kDeviceOk) {
        return result;
    }
    const formats::SDI_VIDEO_STANDARD now = detector.detectedFormat();
    if (now == before) {
        return result;
    }
    if (now != NO_FORMAT) {
        logger.Log(2, "Auto detected video format: %s", formats::formatShortText(now).c_str());
    } else if (!detector.fourQuadrants()) {
        logger.Log(2, "Auto detected incoherent format");
    } else {
        for (std::size_t quadrant = 0; quadrant < kQuadrants; ++quadrant) {
            const formats::SDI_VIDEO_STANDARD format = detector.quadrantFormat(quadrant);
            if (format != NO_FORMAT) {
                logger.Log(2, "Auto detected not 4k format on RX%d : %s", static_cast<int>(quadrant),
                           formats::formatShortText(format).c_str());
            } else {
                logger.Log(2, "Auto detected incoherent format on RX%d", static_cast<int>(quadrant));
            }
        }
    }
    return result;
}

}  // namespace ovtx::app::sdi_tap::v1
