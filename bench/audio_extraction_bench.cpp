// One slot's audio step: the eight pairs of a locked slot of the simulated board taken out into an
// AudioRecord, and the step alone on a board that only reports sizes, so that the board's own tone
// synthesis can be told apart from the step. Each run counts the heap allocations made inside the
// timed loop (operator new is replaced below) and stops with an error if there is one.
//
//   audio_extraction_bench                               every case
//   audio_extraction_bench --benchmark_filter=StepAlone  the step without the board's synthesis
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "app/audio_extraction.h"
#include "bench/counting_allocator.h"
#include "encoding/sdi/sdi_common.h"
#include "log/testing/capturing_logger.h"
#include "system/sdi/simulated_board/testing/stepped_port.h"

namespace {

using namespace ovtx::app::sdi_tap::v1;
namespace device = ovtx::system::sdi::deltacast_io::v1;
namespace board = ovtx::system::sdi::simulated_board::v1;
namespace sdi = ovtx::encoding::sdi::sdi_common::v2;
using ovtx::bench::allocationCount;
using ovtx::log::log_perf::v4::testing::CapturingLogger;
using ovtx::simulcast::capture_records::v1::AudioRecord;

// A board that delivers every pair as a 48 kHz frame of the standard without writing samples: what
// remains to time is the step itself (description copy, sampling, statistics, sample copy).
class SizesOnlyBoard final : public device::NoDeviceApi {
  public:
    explicit SizesOnlyBoard(std::uint32_t frameBytes) : m_frameBytes(frameBytes) {}
    std::uint32_t slotExtractAudio(device::DeviceHandle, device::AudioInfo& audio) override {
        for (auto& group : audio.groups) {
            for (std::size_t channel = 0; channel < 4; channel += 2) {
                group.channels[channel].statusValid = 1;
                group.channels[channel].statusBytes[0] = 0x81;
                group.channels[channel].dataSize = m_frameBytes;
            }
        }
        return device::kDeviceOk;
    }
    std::uint32_t getBlockSize(std::uint32_t format, std::uint32_t mode) override {
        return format == device::kAudioFormat16Bit && mode == device::kAudioModeStereo ? 4 : 0;
    }
    std::uint32_t getNbSamples(std::uint32_t, std::uint32_t, std::uint32_t) override {
        return m_frameBytes / 4;
    }

  private:
    std::uint32_t m_frameBytes;
};

// Runs `extract` on `slot` in the timed loop; 4 bytes a stereo sample of eight pairs processed.
void timeExtraction(benchmark::State& state, device::DeviceApi& api, const sdi::SdiFormatInfo& format,
                    device::DeviceHandle slot) {
    CapturingLogger logger;
    EngineReport report(logger, false);
    AudioExtraction audio(api, format.boardStandard, format.clockDivisor, {}, report);
    auto record = std::make_unique<AudioRecord>();
    std::int64_t frame = 0;
    const std::size_t before = allocationCount();
    for (auto _ : state) {
        const std::int64_t start = frame++ * 400000;
        benchmark::DoNotOptimize(audio.extract(slot, *record, false, start, start + 400000));
        benchmark::ClobberMemory();
    }
    const std::size_t allocations = allocationCount() - before;
    state.counters["allocs/slot"] =
        benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(state.iterations()));
    state.SetBytesProcessed(state.iterations() * 8 * record->pairs[0].sampleCount * 4);
    if (allocations != 0) {
        state.SkipWithError("the audio step allocated inside the slot loop");
    }
}

void BM_AudioExtraction_SimulatedBoard(benchmark::State& state) {
    const sdi::SdiFormatInfo format(static_cast<std::int32_t>(state.range(0)));
    board::SimulatedBoard simulated(
        ovtx::system::sdi::simulated_board::v1::testing::scenarioOfPort0(
            R"({"signal": [{"format": )" + std::to_string(state.range(0)) + "}]}", ""),
        std::make_unique<ovtx::system::sdi::simulated_board::v1::testing::SteppedClock>());
    const device::DeviceHandle stream = device::openStream(simulated, device::openBoard(simulated, 0), 0);
    simulated.setStreamProperty(stream, device::kStreamVideoStandard, format.boardStandard);
    simulated.startStream(stream);
    device::DeviceHandle slot = device::kNoHandle;
    if (simulated.lockSlotHandle(stream, slot) != device::kDeviceOk) {
        state.SkipWithError("the simulated board gave no slot");
        return;
    }
    timeExtraction(state, simulated, format, slot);
    simulated.unlockSlotHandle(slot);
}
BENCHMARK(BM_AudioExtraction_SimulatedBoard)->Arg(sdi::VS_HD_1920_1080p_25)->Arg(sdi::VS_HD_1920_1080p_29_97);

void BM_AudioExtraction_StepAlone(benchmark::State& state) {
    const sdi::SdiFormatInfo format(sdi::VS_HD_1920_1080p_25);
    SizesOnlyBoard sizesOnly(1920 * 4);
    timeExtraction(state, sizesOnly, format, 1);
}
BENCHMARK(BM_AudioExtraction_StepAlone);

}  // namespace

BENCHMARK_MAIN();
