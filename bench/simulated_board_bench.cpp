// How fast the simulated board gives slots: lock, video buffer, eight audio pairs, unlock, on an
// unbounded clock, for a few formats; prints slots per second and that as a multiple of the
// format's real-time rate, the highest speed factor at which the board itself loses no frame.
//
//   simulated_board_bench            every format below, 300 slots each
//   simulated_board_bench 3 1000     1080p25, 1000 slots
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "encoding/sdi/sdi_common.h"
#include "system/process/piped_child.h"
#include "system/sdi/simulated_board/simulated_board.h"

namespace {

using namespace ovtx::system::sdi::simulated_board::v1;
namespace device = ovtx::system::sdi::deltacast_io::v1;
namespace sdi = ovtx::encoding::sdi::sdi_common::v2;

constexpr std::uint32_t kAudioBytes = 9216;

void measure(int format, int slots) {
    const sdi::SdiFormatInfo info(format);
    const std::string serial = "0x5EB" + std::to_string(ovtx::system::process::v1::currentProcessId());
    SimulatedBoard board(parseScenario(R"({"speed": 10000, "board": {"serial": ")" + serial +
                                           R"("}, "ports": {"0": {"signal": [{"format": )" +
                                           std::to_string(format) + "}]}}}",
                                       "bench"));
    const device::DeviceHandle handle = device::openBoard(board, 0);
    const device::DeviceHandle stream = device::openStream(board, handle, 0);
    board.setStreamProperty(stream, device::kStreamVideoStandard, info.boardStandard);
    board.setStreamProperty(stream, device::kStreamBufferDepth, 32);
    board.startStream(stream);
    device::AudioInfo audio;
    std::vector<std::uint8_t> samples(8 * kAudioBytes);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < slots; ++i) {
        device::DeviceHandle slot = device::kNoHandle;
        if (board.lockSlotHandle(stream, slot) != device::kDeviceOk) {
            std::printf("format %d: no slot\n", format);
            return;
        }
        std::uint8_t* buffer = nullptr;
        std::uint32_t size = 0;
        board.getSlotBuffer(slot, device::kVideoBuffer, buffer, size);
        for (std::size_t group = 0; group < device::kAudioGroups; ++group) {
            for (std::size_t channel : {0u, 2u}) {
                device::AudioChannelInfo& entry = audio.groups[group].channels[channel];
                entry = {device::kAudioModeStereo, device::kAudioFormat16Bit};
                entry.dataSize = kAudioBytes;
                entry.data = samples.data() + (group * 2 + channel / 2) * kAudioBytes;
            }
        }
        board.slotExtractAudio(slot, audio);
        board.unlockSlotHandle(slot);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const double rate = static_cast<double>(info.rateNumerator) / static_cast<double>(info.rateDenominator);
    std::printf("%-22s %8.0f slots/s  %6.1f x real time\n", sdi::formatShortText(format).c_str(),
                slots / seconds, slots / seconds / rate);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3) {
        measure(std::atoi(argv[1]), std::atoi(argv[2]));
        return 0;
    }
    for (const int format : {0, 2, 3, 5, 7, 9, 102}) {
        measure(format, 300);
    }
    return 0;
}
