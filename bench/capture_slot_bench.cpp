// One whole capture slot at 4K60 10-bit on a planar board (detection, lock, slot time, audio, the
// picture into a chunk of the video ring, the ancillary records, unlock), beside one memcpy of the
// frame. Goal: the engine's slot costs at most 1.2 times the memcpy, and allocates nothing.
//
// Two boards: the simulated board, whose own work (drawing the picture, synthesising eight tones)
// is part of each slot, and a replay board that hands out one prepared slot again and again, so
// that what is timed is the engine alone; the simulated board's part is also timed on its own.
// Every case counts the heap allocations inside the timed loop (operator new is replaced below);
// the engine alone fails if it makes one. The ratios are printed last.
//
//   capture_slot_bench                                   every case
//   capture_slot_bench --benchmark_filter=ReplayBoard    the engine alone
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/sdi_tap.h"
#include "bench/counting_allocator.h"
#include "encoding/sdi/sdi_common.h"
#include "log/testing/capturing_logger.h"
#include "simulcast/capture_records.h"
#include "system/process/piped_child.h"
#include "system/sdi/simulated_board/testing/stepped_port.h"

namespace {

using namespace ovtx::app::sdi_tap::v1;
namespace device = ovtx::system::sdi::deltacast_io::v1;
namespace board = ovtx::system::sdi::simulated_board::v1;
namespace sdi = ovtx::encoding::sdi::sdi_common::v2;
namespace records = ovtx::simulcast::capture_records::v1;
using ovtx::bench::allocationCount;
using ovtx::log::log_perf::v4::testing::CapturingLogger;
using ovtx::system::sdi::simulated_board::v1::testing::scenarioOfPort0;
using ovtx::system::sdi::simulated_board::v1::testing::SteppedClock;

constexpr std::int32_t kFormat = sdi::VS_4_3G_1920_1080p_60;
constexpr std::size_t kFrameBytes = 3840 * 2160 * 3;  // planar 4:2:0, 16-bit samples
constexpr std::uint32_t kSamplesPerFrame = 800;       // 48 kHz at 60 frames a second

// Mean nanoseconds of one iteration, by case, for the ratios printed at the end.
std::map<std::string, double> g_meanNs;

// A planar 3G board with a 4K60 signal on port 0 whose every lock gives the same prepared slot:
// picture, eight 48 kHz pairs (sizes only) and a slot time one frame later each time.
class ReplayBoard final : public device::NoDeviceApi {
  public:
    ReplayBoard() : m_picture(kFrameBytes, 0x40) {}

    std::uint32_t getApiInfo(std::uint32_t& version, std::uint32_t& boards) override {
        version = 0x06150004;
        boards = 1;
        return device::kDeviceOk;
    }
    std::uint32_t getBoardInfoEx(std::uint32_t, device::BoardInfoEx& info) override {
        info.boardType = 6;
        info.numRxChannels = 4;
        info.numTxChannels = 4;
        return device::kDeviceOk;
    }
    std::uint32_t openBoardHandle(std::uint32_t, device::DeviceHandle& handle) override {
        handle = 1;
        return device::kDeviceOk;
    }
    std::uint32_t closeBoardHandle(device::DeviceHandle) override { return device::kDeviceOk; }
    std::uint32_t getBoardProperty(device::DeviceHandle, std::uint32_t property,
                                   std::uint32_t& value) override {
        value = property == device::kPortNumbers[0].standardProperty ? 30 : 0;  // 4K60, 1000/1000 clock
        return device::kDeviceOk;
    }
    std::uint32_t openStreamHandle(device::DeviceHandle, std::uint32_t, std::uint32_t,
                                   device::DeviceHandle& stream) override {
        stream = 2;
        return device::kDeviceOk;
    }
    std::uint32_t closeStreamHandle(device::DeviceHandle) override { return device::kDeviceOk; }
    std::uint32_t startStream(device::DeviceHandle) override { return device::kDeviceOk; }
    std::uint32_t stopStream(device::DeviceHandle) override { return device::kDeviceOk; }
    std::uint32_t setStreamProperty(device::DeviceHandle, std::uint32_t, std::uint32_t) override {
        return device::kDeviceOk;
    }
    std::uint32_t getStreamProperty(device::DeviceHandle, std::uint32_t, std::uint32_t& value) override {
        value = 0;
        return device::kDeviceOk;
    }
    std::uint32_t vbiSetCaptureLines(device::DeviceHandle, const device::VbiLineTable&) override {
        return device::kDeviceOk;
    }
    std::uint32_t lockSlotHandle(device::DeviceHandle, device::DeviceHandle& slot) override {
        slot = 3;
        m_timeUs += 16667;
        return device::kDeviceOk;
    }
    std::uint32_t unlockSlotHandle(device::DeviceHandle) override { return device::kDeviceOk; }
    std::uint32_t getSlotBuffer(device::DeviceHandle, std::uint32_t, std::uint8_t*& buffer,
                                std::uint32_t& size) override {
        buffer = m_picture.data();
        size = static_cast<std::uint32_t>(m_picture.size());
        return device::kDeviceOk;
    }
    std::uint32_t getSlotSystemTime(device::DeviceHandle, std::uint64_t& time) override {
        time = m_timeUs;
        return device::kDeviceOk;
    }
    std::uint32_t slotExtractAudio(device::DeviceHandle, device::AudioInfo& audio) override {
        for (auto& group : audio.groups) {
            for (std::size_t channel = 0; channel < 4; channel += 2) {
                group.channels[channel].statusValid = 1;
                group.channels[channel].statusBytes[0] = 0x81;
                group.channels[channel].dataSize = kSamplesPerFrame * 4;
            }
        }
        return device::kDeviceOk;
    }
    std::uint32_t getBlockSize(std::uint32_t, std::uint32_t) override { return 4; }
    std::uint32_t getNbSamples(std::uint32_t, std::uint32_t, std::uint32_t) override {
        return kSamplesPerFrame;
    }

  private:
    std::vector<std::uint8_t> m_picture;
    std::uint64_t m_timeUs = 1000000;
};

RunParameters fourKTenBit() {
    RunParameters parameters;
    parameters.sdiPort = 0;
    parameters.videoFormat = kFormat;
    parameters.use10Bit = true;
    return parameters;
}

std::string benchPort(const char* tag) {
    return std::string("capture_slot_bench_") + tag +
           std::to_string(ovtx::system::process::v1::currentProcessId());
}

// Times SdiTap::runPass, one slot each, after a lap of the video ring that touches its pages.
void timeSlots(benchmark::State& state, device::DeviceApi& api, const char* tag) {
    CapturingLogger logger;
    SdiTap::Environment environment{api, benchPort(tag)};
    environment.pause = [](std::chrono::milliseconds) {};
    SdiTap engine(fourKTenBit(), logger, std::move(environment));
    engine.startRun();
    for (int i = 0; i < records::kCaptureVideoChunks; ++i) {
        engine.runPass();
    }
    const std::int64_t firstFrame = engine.slotFrameNumber();
    const std::size_t before = allocationCount();
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        engine.runPass();
    }
    const double ns =
        std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
    const std::size_t allocations = allocationCount() - before;
    const auto slots = static_cast<double>(engine.slotFrameNumber() - firstFrame);
    g_meanNs[tag] = ns / static_cast<double>(state.iterations());
    state.counters["allocs/slot"] = benchmark::Counter(static_cast<double>(allocations) / slots);
    state.counters["slots"] = benchmark::Counter(slots);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFrameBytes));
    if (slots < static_cast<double>(state.iterations())) {
        state.SkipWithError("a pass gave no slot");
    }
    if (tag == std::string("replay") && allocations != 0) {
        state.SkipWithError("the engine allocated inside the slot loop");
    }
}

void BM_Slot_ReplayBoard(benchmark::State& state) {
    ReplayBoard replay;
    timeSlots(state, replay, "replay");
}
BENCHMARK(BM_Slot_ReplayBoard)->Unit(benchmark::kMillisecond)->UseRealTime();

// A planar 3G board of four inputs carrying the format on port 0, its time moved by its own waits.
board::Scenario fourKScenario() {
    return scenarioOfPort0(R"({"signal": [{"format": )" + std::to_string(kFormat) + "}]}",
                           R"("type": 6, "rx": 4, "tx": 4)");
}

void BM_Slot_SimulatedBoard(benchmark::State& state) {
    board::SimulatedBoard simulated(fourKScenario(), std::make_unique<SteppedClock>());
    timeSlots(state, simulated, "simulated");
}
BENCHMARK(BM_Slot_SimulatedBoard)->Unit(benchmark::kMillisecond)->UseRealTime();

// The simulated board's own part of a slot, without the engine: lock, picture, audio, unlock. Its
// allocations are the ones the slot on the simulated board counts.
void BM_SimulatedBoardAlone(benchmark::State& state) {
    board::SimulatedBoard simulated(fourKScenario(), std::make_unique<SteppedClock>());
    const device::DeviceHandle stream = device::openStream(simulated, device::openBoard(simulated, 0), 0);
    simulated.setStreamProperty(stream, device::kStreamVideoStandard,
                                sdi::SdiFormatInfo(kFormat).boardStandard);
    simulated.setStreamProperty(stream, device::kStreamBufferPacking, device::kPackingPlanar10Bit);
    simulated.startStream(stream);
    std::vector<std::uint8_t> samples(8 * kSamplesPerFrame * 4);
    device::AudioInfo audio;
    for (std::size_t pair = 0; pair < 8; ++pair) {
        device::AudioChannelInfo& entry = audio.groups[pair / 2].channels[pair % 2 * 2];
        entry.mode = device::kAudioModeStereo;
        entry.format = device::kAudioFormat16Bit;
        entry.data = samples.data() + pair * kSamplesPerFrame * 4;
    }
    const std::size_t before = allocationCount();
    for (auto _ : state) {
        device::DeviceHandle slot = device::kNoHandle;
        while (simulated.lockSlotHandle(stream, slot) != device::kDeviceOk) {
        }
        std::uint8_t* buffer = nullptr;
        std::uint32_t size = 0;
        simulated.getSlotBuffer(slot, device::kVideoBuffer, buffer, size);
        for (std::size_t pair = 0; pair < 8; ++pair) {
            audio.groups[pair / 2].channels[pair % 2 * 2].dataSize = kSamplesPerFrame * 4;
        }
        simulated.slotExtractAudio(slot, audio);
        simulated.unlockSlotHandle(slot);
    }
    state.counters["allocs/slot"] = benchmark::Counter(static_cast<double>(allocationCount() - before) /
                                                       static_cast<double>(state.iterations()));
}
BENCHMARK(BM_SimulatedBoardAlone)->Unit(benchmark::kMillisecond)->UseRealTime();

// One memcpy of the frame from the same source into a ring of destinations as large as the video
// ring's lap would be cold: four frames.
void BM_FrameMemcpy(benchmark::State& state) {
    std::vector<std::uint8_t> source(kFrameBytes, 0x40);
    std::vector<std::vector<std::uint8_t>> destinations(4, std::vector<std::uint8_t>(kFrameBytes, 0));
    std::size_t next = 0;
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        std::memcpy(destinations[next].data(), source.data(), kFrameBytes);
        benchmark::ClobberMemory();
        next = (next + 1) % destinations.size();
    }
    const double ns =
        std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
    g_meanNs["memcpy"] = ns / static_cast<double>(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFrameBytes));
}
BENCHMARK(BM_FrameMemcpy)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    const auto memcpy = g_meanNs.find("memcpy");
    for (const char* tag : {"replay", "simulated"}) {
        const auto slot = g_meanNs.find(tag);
        if (slot != g_meanNs.end() && memcpy != g_meanNs.end()) {
            std::printf(
                "4K60 10-bit slot on the %s board: %.2f ms, memcpy of the frame %.2f ms, ratio %.2f%s\n", tag,
                slot->second / 1e6, memcpy->second / 1e6, slot->second / memcpy->second,
                std::string(tag) == "replay" ? " (goal 1.2 or less)" : " (the board's own drawing included)");
        }
    }
    return 0;
}
