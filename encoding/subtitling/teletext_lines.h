// Teletext lines as a capture finds them, repackaged for the teletext record: the 45 bytes of a
// line (clock run-in, framing code, the 42-byte packet, each byte high bit first as the bit
// slicer gives it), their data units, and the teletext_descriptor that a stream's page headers
// and packet 8/30 build up over time.
//
//   TeletextDescriptorList descriptors;              // lives as long as the capture
//   std::uint8_t dataUnitId = kDataUnitEbuNonSubtitle;
//   for (const auto& [key, line] : lines) {          // ascending key order
//       const TeletextLineAddress address = teletextLineAddress(line);
//       if (address.row == 0) dataUnitId = dataUnitIdOfHeader(line);
//       writeCapturedDataUnit(out, dataUnitId, lineOffsetByte(key), line);
//       if (descriptors.learn(line) == DescriptorOutcome::ListFull) ...;
//   }
//
// Bytes here are in the order of the line, high bit first: a Hamming 8/4 byte holds its four
// data bits D1 to D4 at bits 6, 4, 2 and 0.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "cpp_utils/cpp_tools/safe_array.h"
#include "encoding/subtitling/teletext_coding.h"

namespace ovtx::encoding::subtitling::v1 {

// b[0] to b[44]: two bytes of clock run-in (or, from ancillary data, the data unit's length and
// line byte), the framing code, then the packet in b[3] to b[44].
inline constexpr std::size_t kTeletextLineBytes = 45;
using TeletextLine = std::array<std::uint8_t, kTeletextLineBytes>;
inline constexpr std::size_t kTeletextLinePacketOffset = 3;
inline constexpr std::uint8_t kTeletextClockRunIn = 0xAA;

// Bits a teletext line of system B is sliced into: 45 bytes.
inline constexpr std::uint32_t kTeletextSlicedBits = 360;

// Magazine bits (magazine 8 reads 0) and row of the packet address.
struct TeletextLineAddress {
    int magazine = 0;
    int row = 0;
};
TeletextLineAddress teletextLineAddress(const TeletextLine& line);

// The data unit id a page header sets for the lines after it: 3 for a subtitle page, 2 otherwise.
std::uint8_t dataUnitIdOfHeader(const TeletextLine& line);

// Writes one data unit of kTeletextDataUnitSize bytes at `out`: its head (writeTeletextDataUnitHead),
// then b[3] to b[44] as they came (a line is already in the data unit's bit order).
void writeCapturedDataUnit(std::uint8_t* out, std::uint8_t dataUnitId, std::uint8_t lineByte,
                           const TeletextLine& line);

// The line an SMPTE 2031 ancillary packet (DID 0x41, SDID 0x08) carries, from its word 2 on, or
// nothing when the packet isn't one: word 0 must lie in 16 to 31 or 153 to 155, the low byte of
// word 1 must be 0xC0, 3 or 2, and the packet must hold 2 words. A packet shorter than a whole
// line gives its words and zeros after them.
std::optional<TeletextLine> teletextLineFromAncPacket(
    const cpp_utils::cpp_tools::v1::SafeArray<unsigned short>& words);

enum class DescriptorOutcome {
    Ignored,    // not a line that describes a page, or page 0xFF
    Added,      // a new entry
    Rewritten,  // an entry of the same type, magazine and page, rewritten in place
    ListFull,   // a new page, and the list already holds kMaxTeletextDescriptors entries
};

inline constexpr std::size_t kMaxTeletextDescriptors = 20;

// The pages a stream shows, as teletext_descriptor entries, and the initial page that its packet
// 8/30 of magazine 8 announces.
//
// A subtitle page header gives an entry of type 2 with the header's magazine and page. Packet 8/30
// sets the initial page, and from then on it and every other page header give an entry of type 1,
// magazine 1, with the low byte of the initial page. The initial page is read from the packet with
// each digit's four bits taken in reverse order, so that an initial page 0x12 reads as 0x84; the
// digits 0, 6, 9 and F read the same either way.
class TeletextDescriptorList {
  public:
    DescriptorOutcome learn(const TeletextLine& line);

    std::span<const TeletextDescriptorEntry> entries() const { return {m_entries.data(), m_count}; }
    // -1 until a packet 8/30 of magazine 8 was seen.
    int initialPage() const { return m_initialPage; }

  private:
    std::array<TeletextDescriptorEntry, kMaxTeletextDescriptors> m_entries{};
    std::size_t m_count = 0;
    int m_initialPage = -1;
};

}  // namespace ovtx::encoding::subtitling::v1
