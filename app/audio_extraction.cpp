#include "app/audio_extraction.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace ovtx::app::sdi_tap::v1 {

namespace device = system::sdi::deltacast_io::v1;
namespace records = simulcast::capture_records::v1;

namespace {

constexpr std::uint32_t kSampling48kHz = 1;
constexpr std::uint32_t kSampling44_1kHz = 2;
constexpr std::uint32_t kSampling32kHz = 3;
constexpr std::uint32_t kNoAudio = 4;
constexpr std::uint32_t kAutoSampling = 0;

// A frame's sample count varies from frame to frame (1601 or 1602 at 29.97); a difference this
// small is no fault.
constexpr std::int64_t kSizeTolerance = 12;
constexpr std::int64_t kComplaintInterval = 50000000;  // 5 seconds in 100 ns units
constexpr std::size_t kPairBlockSampleBytes = sizeof(records::AudioPairBlock::samples);
constexpr std::uint32_t kChannelsPerGroup = 4;

}  // namespace

std::uint32_t samplingFromStatusByte(std::uint8_t statusByte) {
    static constexpr std::uint32_t kByRateBits[4] = {kNoAudio, kSampling44_1kHz, kSampling48kHz,
                                                     kSampling32kHz};
    return kByRateBits[(statusByte & 0xC0) >> 6];
}

AudioExtraction::AudioExtraction(device::DeviceApi& api, std::uint32_t boardStandard,
                                 std::uint32_t clockDivisor,
                                 const std::array<std::uint32_t, 8>& requestedSampling, EngineReport& report)
    : m_api(api), m_report(report), m_requestedSampling(requestedSampling) {
    const std::uint32_t blockSize = m_api.getBlockSize(device::kAudioFormat16Bit, device::kAudioModeStereo);
    const std::pair<std::uint32_t, std::uint32_t> kRateOfCode[] = {
        {kSampling48kHz, device::kAudioRate48kHz},
        {kSampling44_1kHz, device::kAudioRate44_1kHz},
        {kSampling32kHz, device::kAudioRate32kHz}};
    for (const auto& [code, rate] : kRateOfCode) {
        m_expectedSizes[code] = m_api.getNbSamples(boardStandard, clockDivisor, rate) * blockSize;
    }
    m_limit = expectedSize(kSampling48kHz) * 12 / 10;
    m_pairBuffers.assign(std::size_t{m_limit} * kAudioStatisticPairs, 0);
    buildDescription();
}

void AudioExtraction::buildDescription() {
    for (std::size_t group = 0; group < device::kAudioGroups; ++group) {
        for (std::uint32_t channel = 0; channel < kChannelsPerGroup; ++channel) {
            device::AudioChannelInfo& entry = m_description.groups[group].channels[channel];
            entry.mode = device::kAudioModeStereo;
            entry.format = device::kAudioFormat16Bit;
            // A pair comes through the even channel of its group; the odd one gets no buffer.
            if (channel % 2 == 0) {
                const std::size_t pair = group * 2 + channel / 2;
                entry.dataSize = m_limit;
                entry.data = m_pairBuffers.data() + pair * m_limit;
            }
        }
    }
}

std::uint32_t AudioExtraction::expectedSize(std::uint32_t code) const {
    const auto found = m_expectedSizes.find(code);
    if (found == m_expectedSizes.end()) {
        throw std::out_of_range("invalid map lookup");
    }
    return found->second;
}

std::uint32_t AudioExtraction::expectedOrZero(std::uint32_t code) const {
    const auto found = m_expectedSizes.find(code);
    return found == m_expectedSizes.end() ? 0 : found->second;
}

AudioPairStatistic AudioExtraction::statistic(std::size_t pair) const {
    if (pair >= m_statistics.size()) {
        throw std::out_of_range("invalid vector<T> subscript");
    }
    return {m_statistics[pair].detectedSampling.load(std::memory_order_relaxed),
            m_statistics[pair].percent.load(std::memory_order_relaxed)};
}

void AudioExtraction::setStatistic(std::size_t pair, std::int32_t detectedSampling, std::int32_t percent) {
    m_statistics[pair].detectedSampling.store(detectedSampling, std::memory_order_relaxed);
    m_statistics[pair].percent.store(percent, std::memory_order_relaxed);
}

bool AudioExtraction::extract(device::DeviceHandle slot, records::AudioRecord& record, bool discontinuity,
                              std::int64_t start, std::int64_t end) {
    record.magic = records::kAudioMagic;
    record.discontinuity = discontinuity ? 1 : 0;
    record.start = start;
    record.end = end;

    m_slotDescription = m_description;
    if (const std::uint32_t code = m_api.slotExtractAudio(slot, m_slotDescription)) {
        m_report(false, "Audio Extraction Error : 0x%X", code);
        for (std::size_t pair = 0; pair < kAudioStatisticPairs; ++pair) {
            setStatistic(pair, kNoAudio, 0);
        }
        return false;
    }
    for (std::size_t group = 0; group < device::kAudioGroups; ++group) {
        for (std::uint32_t channel = 0; channel < kChannelsPerGroup; channel += 2) {
            const std::size_t pair = group * 2 + channel / 2;
            extractPair(pair, m_slotDescription.groups[group].channels[channel], record.pairs[pair], start);
        }
    }
    return true;
}

void AudioExtraction::extractPair(std::size_t pair, const device::AudioChannelInfo& entry,
                                  records::AudioPairBlock& block, std::int64_t start) {
    const std::uint32_t size = entry.dataSize;
    const std::uint32_t blockSize = m_api.getBlockSize(entry.format, entry.mode);
    const std::uint32_t samples = blockSize != 0 && size <= m_limit ? size / blockSize : 0;

    std::uint32_t detected = kNoAudio;
    std::int32_t percent = 0;
    if (entry.statusValid == 1) {
        detected = samplingFromStatusByte(entry.statusBytes[0]);
        if (const std::uint32_t expected = expectedOrZero(detected); expected > 0) {
            percent = static_cast<std::int32_t>(std::int64_t{size} * 100 / expected);
        }
    }
    setStatistic(pair, static_cast<std::int32_t>(detected), percent);

    const std::uint32_t used = samplingUsed(pair, entry);
    const std::uint32_t expected = expectedOrZero(used);
    if (samples > 0) {
        if (std::llabs(std::int64_t{size} - std::int64_t{expected}) > kSizeTolerance &&
            m_lastAudioComplaint + kComplaintInterval < start) {
            complainAboutSize(size, expected, start);
        }
        // The block holds 120 percent of a 48 kHz frame at 25 frames a second; at 24 the limit
        // lies above it, and a frame that long is cut to what the block holds.
        const std::size_t bytes = std::min<std::size_t>(size, kPairBlockSampleBytes);
        block.present = 1;
        block.mode = static_cast<std::uint16_t>(entry.mode);
        block.sampleCount = static_cast<std::uint16_t>(std::min<std::size_t>(samples, bytes / blockSize));
        block.sampling = used;
        std::memcpy(block.samples, m_pairBuffers.data() + pair * m_limit, bytes);
    } else {
        block.present = 0;
        block.mode = records::kStereoAudioMode;
        block.sampleCount = static_cast<std::uint16_t>(expected / 4);
        block.sampling = used;
        std::memset(block.samples, 0, std::min<std::size_t>(expected, kPairBlockSampleBytes));
    }
}

std::uint32_t AudioExtraction::samplingUsed(std::size_t pair, const device::AudioChannelInfo& entry) const {
    const std::uint32_t requested = m_requestedSampling[pair];
    if (requested != kAutoSampling) {
        return requested;
    }
    if (entry.statusValid == 1) {
        return samplingFromStatusByte(entry.statusBytes[0]);
    }
    return nearestSampling(entry.dataSize);
}

std::uint32_t AudioExtraction::nearestSampling(std::uint32_t size) const {
    std::uint32_t nearest = kSampling48kHz;
    std::int64_t nearestDistance = -1;
    // The map runs in code order, so on a tie the lower code stays.
    for (const auto& [code, expected] : m_expectedSizes) {
        const std::int64_t distance = std::llabs(std::int64_t{size} - std::int64_t{expected});
        if (nearestDistance < 0 || distance < nearestDistance) {
            nearest = code;
            nearestDistance = distance;
        }
    }
    return nearest;
}

void AudioExtraction::complainAboutSize(std::uint32_t size, std::uint32_t expected, std::int64_t start) {
    // A size above the limit never gets here (such a pair counts as absent); the lost-samples text
    // stays for the day the limit and the presence test part ways.
    if (size > m_limit) {
        m_report.logger().Log(
            0, "Unexpected audio frame size: %d instead of %d, some sample have been lost (%d bytes)",
            static_cast<int>(size), static_cast<int>(expected), static_cast<int>(size - m_limit));
    } else {
        m_report.logger().Log(1, "Unexpected audio frame size: %d instead of %d", static_cast<int>(size),
                              static_cast<int>(expected));
    }
    m_lastAudioComplaint = start;
}

}  // namespace ovtx::app::sdi_tap::v1
