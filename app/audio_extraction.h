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
//
// Each pair's sampling is worked out twice. The detected sampling, for the statistics, comes from
// the channel status byte alone. The sampling used in the record is the one asked for, or in auto
// the channel status, or without a valid status the sampling whose expected frame size is nearest
// to the size received (the lower code on a tie). A pair whose size is off the expected one by
// more than 12 bytes draws a complaint in the log, at most one every 5 seconds of record time (and
// none in the first 5 seconds: the last complaint counts as made at time 0).
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

    // The detected sampling and percent of pair `pair` in the last slot; safe from any thread,
    // though the two fields may come from two slots. Throws std::out_of_range("invalid vector<T>
    // subscript") for a pair outside 0 to 7.
    AudioPairStatistic statistic(std::size_t pair) const;

    // The bytes of one frame at sampling `code` (1 to 3) for the board standard of the run;
    // throws std::out_of_range("invalid map lookup") for any other code.
    std::uint32_t expectedSize(std::uint32_t code) const;
    // The largest pair size believed: 120 percent of the 48 kHz frame.
    std::uint32_t limit() const { return m_limit; }

  private:
    struct PairStatistic {
        std::atomic<std::int32_t> detectedSampling{0};
        std::atomic<std::int32_t> percent{0};
    };

    void buildDescription();
    void extractPair(std::size_t pair, const system::sdi::deltacast_io::v1::AudioChannelInfo& entry,
                     simulcast::capture_records::v1::AudioPairBlock& block, std::int64_t start);
    std::uint32_t samplingUsed(std::size_t pair,
                               const system::sdi::deltacast_io::v1::AudioChannelInfo& entry) const;
    std::uint32_t nearestSampling(std::uint32_t size) const;
    std::uint32_t expectedOrZero(std::uint32_t code) const;
    void complainAboutSize(std::uint32_t size, std::uint32_t expected, std::int64_t start);
    void setStatistic(std::size_t pair, std::int32_t detectedSampling, std::int32_t percent);

    system::sdi::deltacast_io::v1::DeviceApi& m_api;
    EngineReport& m_report;
    std::array<std::uint32_t, 8> m_requestedSampling;
    std::map<std::uint32_t, std::uint32_t> m_expectedSizes;  // sampling code 1 to 3 -> bytes a frame
    std::uint32_t m_limit = 0;
    std::vector<std::uint8_t> m_pairBuffers;  // `m_limit` bytes for each pair
    system::sdi::deltacast_io::v1::AudioInfo m_description;
    system::sdi::deltacast_io::v1::AudioInfo m_slotDescription;  // the copy the board writes into
    std::array<PairStatistic, kAudioStatisticPairs> m_statistics;
    std::int64_t m_lastAudioComplaint = 0;  // record time of the last size complaint, 100 ns units
};

// The sampling code that channel status byte 0 tells in its bits 6 and 7: 48 kHz (2) is code 1,
// 44.1 kHz (1) code 2, 32 kHz (3) code 3, and "not indicated" (0) code 4, no audio.
std::uint32_t samplingFromStatusByte(std::uint8_t statusByte);

}  // namespace ovtx::app::sdi_tap::v1
