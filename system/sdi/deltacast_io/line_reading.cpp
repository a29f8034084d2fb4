#include "system/sdi/deltacast_io/line_reading.h"

#include <algorithm>
#include <cstdio>

namespace ovtx::system::sdi::deltacast_io::v1 {

namespace {

template <typename... Arguments>
void tell(const LineReadReport& report, const char* format, Arguments... arguments) {
    if (!report) {
        return;
    }
    char text[128];
    std::snprintf(text, sizeof text, format, arguments...);
    report(text);
}

}  // namespace

void readAncPackets(DeviceApi& api, DeviceHandle slot, std::uint8_t did, std::uint8_t sdid,
                    const LineReadReport& report, AncPacketsByLine& found) {
    found.clear();
    for (std::int32_t line = kFirstAncLine; line <= kLastAncLine; ++line) {
        std::int32_t count = 0;
        if (api.slotAncGetNbPackets(slot, line, kLumaSamples, count) != kDeviceOk) {
            tell(report, "Cannot get number of packets on line %d - Y samples.", line);
            break;
        }
        for (std::int32_t index = 0; index < count; ++index) {
            const AncPacket* packet = nullptr;
            if (api.slotAncGetPacket(slot, line, kLumaSamples, index, packet) != kDeviceOk ||
                packet == nullptr) {
                tell(report, "Cannot get HANC packet %d on line %d empty", index, line);
                continue;
            }
            if (packet->did == did && packet->sdid == sdid) {
                found.push_back({line, *packet});
            }
        }
    }
}

VbiLineRead readVbiLine(DeviceApi& api, DeviceHandle slot, std::int32_t line, std::uint32_t selector,
                        bool highDefinition, float bitRate, std::uint32_t bits, std::span<std::uint8_t> out) {
    VbiLineRead read;
    const std::uint8_t* samples = nullptr;
    std::uint32_t size = 0;
    read.code = api.slotVbiGetLine(slot, line, selector, samples, size);
    if (read.code != kDeviceOk) {
        read.outcome = VbiLineOutcome::LineNotRead;
        return read;
    }
    if (samples == nullptr || size == 0) {
        read.outcome = VbiLineOutcome::NullLine;
        return read;
    }
    // Never ask the slicer for more than the output holds.
    read.bits = std::min<std::uint32_t>(bits, static_cast<std::uint32_t>(out.size() * 8));
    read.code = api.vbiDigitalize(samples, size, highDefinition, bitRate, out.data(), read.bits);
    if (read.code != kDeviceOk) {
        read.outcome = VbiLineOutcome::NotDigitalized;
        read.bits = 0;
    }
    return read;
}

}  // namespace ovtx::system::sdi::deltacast_io::v1
