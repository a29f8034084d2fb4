// What rides in the blanking of a locked slot, read through the board: the ancillary packets of
// the lines, and the bits of a sampled VBI line.
//
//   AncPacketsByLine captions;                  // kept from slot to slot: no allocation once grown
//   readAncPackets(api, slot, 0x61, 0x01, verbose, captions);
//   for (const LinePacket& found : captions) use(found.line, found.packet);
//
//   std::uint8_t bytes[10];
//   VbiLineRead read = readVbiLine(api, slot, 23, kVbiSelector, false, kWssBitRate, 80, bytes);
//   if (read.outcome == VbiLineOutcome::Sliced) ...
//
// Packets and lines are the board's buffers: they are valid until the slot is unlocked.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "system/sdi/deltacast_io/device_api.h"

namespace ovtx::system::sdi::deltacast_io::v1 {

// Where the reading tells what it could not read, one finished line of text at a time.
using LineReadReport = std::function<void(const char* text)>;

// The packets that carry the wanted DID and SDID, in ascending line order, those of one line in
// the board's order.
struct LinePacket {
    std::int32_t line = 0;
    AncPacket packet;
};
using AncPacketsByLine = std::vector<LinePacket>;

// The lines that a search for ancillary packets covers.
inline constexpr std::int32_t kFirstAncLine = 1;
inline constexpr std::int32_t kLastAncLine = 750;

// Replaces `found` with the packets of `did` and `sdid` on lines 1 to 750 (luminance samples).
// A line whose packets can't be counted ends the search with what was found ("Cannot get number
// of packets on line %d - Y samples."); a packet that can't be read is passed over ("Cannot get
// HANC packet %d on line %d empty").
void readAncPackets(DeviceApi& api, DeviceHandle slot, std::uint8_t did, std::uint8_t sdid,
                    const LineReadReport& report, AncPacketsByLine& found);

// The line selectors of VHD_SlotVbiGetLine that this system uses.
inline constexpr std::uint32_t kCaptionLineSelector = 0;
inline constexpr std::uint32_t kVbiSelector = 1;

enum class VbiLineOutcome {
    Sliced,          // `bits` bits are in the output
    LineNotRead,     // VHD_SlotVbiGetLine failed with `code`
    NullLine,        // the board gave no samples for the line
    NotDigitalized,  // VHD_VbiDigitalize failed with `code`
};

struct VbiLineRead {
    VbiLineOutcome outcome = VbiLineOutcome::Sliced;
    std::uint32_t code = kDeviceOk;
    std::uint32_t bits = 0;  // bits the slicer gave
};

// Reads line `line` of the slot and slices `bits` bits of it at `bitRate` into `out`, which holds
// at least (bits + 7) / 8 bytes.
VbiLineRead readVbiLine(DeviceApi& api, DeviceHandle slot, std::int32_t line, std::uint32_t selector,
                        bool highDefinition, float bitRate, std::uint32_t bits, std::span<std::uint8_t> out);

}  // namespace ovtx::system::sdi::deltacast_io::v1
