#include "app/wss_reading.h"

#include <algorithm>
#include <array>

#include "system/sdi/deltacast_io/line_reading.h"

namespace ovtx::app::sdi_tap::v1 {

namespace {

namespace device = system::sdi::deltacast_io::v1;

constexpr std::uint32_t kWssSlicedBits = 80;
using WssLine = std::array<std::uint8_t, kWssSlicedBits / 8>;

// Run-in, start code and the aspect ratio group "full format 4:3" and "full format 16:9", each
// bit biphase-coded, as the slicer gives them at 5 MHz.
constexpr WssLine kFullFormat4x3{0xf8, 0xe3, 0x8e, 0x38, 0xf1, 0xe0, 0xf8, 0xe3, 0x8f, 0xc0};
constexpr WssLine kFullFormat16x9{0xf8, 0xe3, 0x8e, 0x38, 0xf1, 0xe0, 0xff, 0x1c, 0x70, 0x38};

}  // namespace

AspectRatio readWssAspect(device::DeviceApi& api, EngineReport& report, device::DeviceHandle slot,
                          const device::VbiLineTable& lines, std::int32_t wssLineIndex, AspectRatio& stored) {
    if (wssLineIndex < 0 || static_cast<std::size_t>(wssLineIndex) >= lines.size()) {
        report(false, "ERROR : Cannot get VBI Data on line 23 - Y samples. Result = 0x%08X",
               device::kDeviceNotFound);
        return kAspect4x3;
    }
    const std::int32_t line = static_cast<std::int32_t>(lines[static_cast<std::size_t>(wssLineIndex)].line);
    WssLine bytes{};
    const device::VbiLineRead read = device::readVbiLine(api, slot, line, device::kVbiSelector, false,
                                                         device::kWssBitRate, kWssSlicedBits, bytes);
    switch (read.outcome) {
        case device::VbiLineOutcome::LineNotRead:
            report(false, "ERROR : Cannot get VBI Data on line 23 - Y samples. Result = 0x%08X", read.code);
            return kAspect4x3;
        case device::VbiLineOutcome::NullLine:
            report(false, "exe VBI WSS *NOT* found... Line %d empty", line);
            return kAspect4x3;
        case device::VbiLineOutcome::NotDigitalized:
            report(false, "exe VBI WSS *NOT* found... Line %d doesn't contain any information", line);
            return kAspect4x3;
        case device::VbiLineOutcome::Sliced:
            break;
    }
    if (bytes == kFullFormat4x3) {
        stored = kAspect4x3;
    } else if (bytes == kFullFormat16x9) {
        stored = kAspect16x9;
    }
    return stored;
}

}  // namespace ovtx::app::sdi_tap::v1
