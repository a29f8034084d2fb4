// The blanking lines of a simulated SD signal, as a board samples them, and the bit slicer that
// reads them back.
//
// `renderVbiLines` draws teletext, line 21 captions and wide-screen signalling as real waveforms
// (libzvbi's renderer): 720 luminance samples a line at 13.5 MHz, from the start of the active
// line. `sliceBits` is the slicer of the board: it finds the clock run-in and samples the requested
// bits from its start, the first bit in the high bit of the first byte.
//
//   VbiLines lines = renderVbiLines(Scanning::Lines625, {{23, VbiService::Wss625, {0x08, 0x00}}});
//   std::uint8_t wss[10];
//   std::uint32_t bits = 80;
//   sliceBits(lines.line(23), kSdSampleRate, 5e6, wss, bits);   // f8 e3 8e 38 f1 e0 f8 e3 8f c0
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace ovtx::system::sdi::simulated_board::v1 {

inline constexpr double kSdSampleRate = 13.5e6;
inline constexpr double kHdSampleRate = 74.25e6;
inline constexpr std::uint32_t kSdLineSamples = 720;

enum class Scanning { Lines625, Lines525 };
enum class VbiService { TeletextB, Caption525, Wss625 };

// What one line carries: a teletext packet of 42 bytes in line order, a CEA-608 pair with its
// parity bits, or the 14 WSS bits (bits 0-7 in the first byte, 8-13 in the second).
struct VbiLineData {
    std::int32_t line = 0;
    VbiService service = VbiService::TeletextB;
    std::vector<std::uint8_t> bytes;
};

// The sampled lines of one frame, keyed by line number.
class VbiLines {
  public:
    // The samples of `line`; blank lines at black level for a line that carries nothing.
    std::span<const std::uint8_t> line(std::int32_t line) const;
    std::map<std::int32_t, std::vector<std::uint8_t>> lines;
};

VbiLines renderVbiLines(Scanning scanning, std::span<const VbiLineData> data);

// Slices `samples` taken at `sampleRate` for `bits` bits at `bitRate`, into `out` (at least
// (bits + 7) / 8 bytes); bits past the end of the line read 0. Gives 0, or 2 ("Operation failed")
// when the line carries no run-in.
std::uint32_t sliceBits(std::span<const std::uint8_t> samples, double sampleRate, double bitRate,
                        std::uint8_t* out, std::uint32_t& bits);

}  // namespace ovtx::system::sdi::simulated_board::v1
