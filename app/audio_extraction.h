// The audio step of a capture slot: the board's eight embedded stereo pairs pulled out into one
// AudioRecord, every pair present (with made-up silence where the signal has nothing), the
// sampling each pair really carries worked out against the one asked for, and the per-pair
// statistics that the service tree shows.
//
//   AudioExtraction audio(api, boardStandard, clockDivisor, parameters.audioSampling, report);
//   ... per slot, with the slot locked and an audio chunk taken:
//   if (!audio.extract(slot, record, discontinuity, start, end)) discontinuityPending = true;
//   ... from any thread: audio.statistic(pair)
//
// The board's audio description is built once here and copied per slot; the pair buffers are
// allocated once. Nothing is allocated per slot.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "app/capture_state.h"
#include "app/engine_report.h"
#include "simulcast/capture_records.h"
#include "system/sdi/deltacast_io/device_api.h"

namespace ovtx::app::sdi_tap::v1 {

class AudioExtraction {
  public:
    // `requestedSampling` holds the sampling code asked for each pair (0 auto, 1 48 kHz,
    // 2 44.1 kHz, 3 32 kHz).
    AudioExtraction(system::sdi::deltacast_io::v1::DeviceApi& api, std::uint32_t boardStandard,
                    std::uint32_t clockDivisor, const std::array<std::uint32_t, 8>& requestedSampling,
                    EngineReport& report);

    // Fills `record` for the locked `slot`: head (magic, `discontinuity`, start, end) and the eight
    // pair blocks. False when the board could not extract the slot's audio: the head is written,
    // the pair blocks are not, and the caller marks the slot discontinuous and still publishes.
    // Times are in 100 ns units.
    bool extract(system::sdi::deltacast_io::v1::DeviceHandle slot,
                 simulcast::capture_records::v1::AudioRecord& record, bool discontinuity, std::int64_t start,
                 std::int64_t end);

    // The detected sampling and percent of pair `pair` in the last slot; safe from any thread.
    AudioPairStatistic statistic(std::size_t pair) const;

  private:
    // ... implementation's own members
};

}  // namespace ovtx::app::sdi_tap::v1
