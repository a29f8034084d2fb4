#include "system/sdi/simulated_board/vbi_lines.h"

#include <libzvbi.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>

#include "system/sdi/deltacast_io/device_api.h"

namespace ovtx::system::sdi::simulated_board::v1 {
namespace {

namespace device = deltacast_io::v1;

constexpr std::uint8_t kBlackLevel = 16;
constexpr std::uint8_t kWhiteLevel = 235;
// The smallest swing between the darkest and the brightest sample that counts as a signal.
constexpr int kMinimumSwing = 40;
// How many bit periods after the first rising edge still count as clock run-in.
constexpr double kRunInBits = 8;
// How far, in bits, a boundary may follow the first rising edge and still be the first bit's start.
constexpr double kBoundaryTolerance = 0.1;
// Samples from the line's half-sync (0H) to the first sample of the active line.
constexpr int kActiveLineOffset625 = 132;
constexpr int kActiveLineOffset525 = 122;

struct FieldLines {
    int start[2];
    int count[2];
};
// The lines rendered: field 1 and field 2 of the vertical blanking, in the numbering of each system.
constexpr FieldLines kLines625{{6, 319}, {18, 18}};
constexpr FieldLines kLines525{{10, 272}, {13, 13}};

unsigned int slicedId(VbiService service) {
    switch (service) {
        case VbiService::TeletextB:
            return VBI_SLICED_TELETEXT_B;
        case VbiService::Caption525:
            return VBI_SLICED_CAPTION_525;
        case VbiService::Wss625:
            return VBI_SLICED_WSS_625;
    }
    return 0;
}

vbi_sampling_par samplingOf(Scanning scanning) {
    vbi_sampling_par sampling{};
    const bool lines625 = scanning == Scanning::Lines625;
    const FieldLines& fields = lines625 ? kLines625 : kLines525;
    sampling.scanning = lines625 ? 625 : 525;
    sampling.sampling_format = VBI_PIXFMT_YUV420;
    sampling.sampling_rate = static_cast<int>(kSdSampleRate);
    sampling.bytes_per_line = kSdLineSamples;
    sampling.offset = lines625 ? kActiveLineOffset625 : kActiveLineOffset525;
    for (int field = 0; field < 2; ++field) {
        sampling.start[field] = fields.start[field];
        sampling.count[field] = fields.count[field];
    }
    sampling.interlaced = false;
    sampling.synchronous = true;
    return sampling;
}

double sampleAt(std::span<const std::uint8_t> samples, double position) {
    const auto index = static_cast<std::size_t>(position);
    const double fraction = position - static_cast<double>(index);
    return samples[index] * (1 - fraction) + samples[index + 1] * fraction;
}

}  // namespace

std::span<const std::uint8_t> VbiLines::line(std::int32_t line) const {
    static const std::vector<std::uint8_t> kBlank(kSdLineSamples, kBlackLevel);
    const auto found = lines.find(line);
    return found == lines.end() ? std::span<const std::uint8_t>(kBlank)
                                : std::span<const std::uint8_t>(found->second);
}

VbiLines renderVbiLines(Scanning scanning, std::span<const VbiLineData> data) {
    const vbi_sampling_par sampling = samplingOf(scanning);
    std::vector<vbi_sliced> sliced;
    for (const VbiLineData& item : data) {
        vbi_sliced line{};
        line.id = slicedId(item.service);
        line.line = static_cast<unsigned int>(item.line);
        std::memcpy(line.data, item.bytes.data(), std::min(item.bytes.size(), sizeof line.data));
        sliced.push_back(line);
    }
    const std::size_t rows = static_cast<std::size_t>(sampling.count[0] + sampling.count[1]);
    std::vector<std::uint8_t> image(rows * kSdLineSamples, kBlackLevel);
    // libzvbi wants the lines in ascending order.
    std::sort(sliced.begin(), sliced.end(),
              [](const vbi_sliced& a, const vbi_sliced& b) { return a.line < b.line; });
    vbi_raw_vbi_image(image.data(), image.size(), &sampling, kBlackLevel, kWhiteLevel, false, sliced.data(),
                      static_cast<unsigned int>(sliced.size()));
    VbiLines lines;
    std::size_t row = 0;
    for (int field = 0; field < 2; ++field) {
        for (int i = 0; i < sampling.count[field]; ++i, ++row) {
            const auto begin = image.begin() + static_cast<std::ptrdiff_t>(row * kSdLineSamples);
            lines.lines[sampling.start[field] + i].assign(begin, begin + kSdLineSamples);
        }
    }
    return lines;
}

std::uint32_t sliceBits(std::span<const std::uint8_t> samples, double sampleRate, double bitRate,
                        std::uint8_t* out, std::uint32_t& bits) {
    if (samples.size() < 2 || bitRate <= 0 || sampleRate <= 0) {
        return device::kDeviceBadArgument;
    }
    const auto [low, high] = std::minmax_element(samples.begin(), samples.end());
    if (*high - *low < kMinimumSwing) {
        return device::kDeviceOperationFailed;
    }
    const double threshold = (*low + *high) / 2.0;
    const double samplesPerBit = sampleRate / bitRate;
    // The run-in starts at its first rising edge. Its falling edges lie on bit boundaries, for the
    // square run-ins of teletext and WSS as for the sine of line 21; their phase (a mean over the
    // circle of one bit period) places the bit grid, whose first bit starts at the boundary at or
    // just before that first rising edge.
    std::optional<double> start;
    double sine = 0;
    double cosine = 0;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        const double before = samples[i - 1];
        const double after = samples[i];
        if ((before < threshold) == (after < threshold)) {
            continue;
        }
        const double crossing = static_cast<double>(i - 1) + (threshold - before) / (after - before);
        if (!start) {
            if (after >= threshold) {
                start = crossing;
            }
            continue;
        }
        if (crossing - *start > kRunInBits * samplesPerBit) {
            break;
        }
        if (after < threshold) {
            const double angle = 2 * M_PI * (crossing - *start) / samplesPerBit;
            sine += std::sin(angle);
            cosine += std::cos(angle);
        }
    }
    if (!start) {
        return device::kDeviceOperationFailed;
    }
    const double phase = std::atan2(sine, cosine) / (2 * M_PI) * samplesPerBit;
    const double boundary =
        *start + phase +
        std::floor((kBoundaryTolerance * samplesPerBit - phase) / samplesPerBit) * samplesPerBit;
    const double first = boundary + samplesPerBit / 2;
    // Bits past the end of the line read as the blank level.
    std::memset(out, 0, (bits + 7) / 8);
    for (std::uint32_t bit = 0; bit < bits; ++bit) {
        const double position = first + bit * samplesPerBit;
        if (position < static_cast<double>(samples.size() - 1) && sampleAt(samples, position) >= threshold) {
            out[bit / 8] |= static_cast<std::uint8_t>(0x80 >> (bit % 8));
        }
    }
    return device::kDeviceOk;
}

}  // namespace ovtx::system::sdi::simulated_board::v1
