// Captions as they arrive with a signal: the CEA-608 byte pair of a sliced line 21, and the
// cc_data of a CEA-708 caption distribution packet (SMPTE 334 ancillary data, DID 0x61 SDID 0x01).
//
//   std::uint8_t sliced[4];                       // 32 bits sliced at the CEA-608 bit rate
//   Cea608Pair pair = cea608PairFromLine21(sliced);
//
//   CcDataList list;                              // from the packet's 16-bit words
//   parseCaptionDistributionPacket(SafeArray<unsigned short>(packet.words, packet.wordCount), list);
//
// The packet walk is lenient on purpose: the identifier, the sequence counters and the checksum
// are not examined, and a packet is trusted as far as its own fields stand inside it. A field
// that points past the end fails with the SafeArray's exception.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "cpp_utils/cpp_tools/safe_array.h"
#include "encoding/subtitling/cea608.h"

namespace ovtx::encoding::subtitling::v1 {

// Bits a line 21 is sliced into: run-in, start bits and the two bytes.
inline constexpr std::uint32_t kLine21SlicedBits = 32;

// The pair of a line 21 sliced from the start of its clock run-in, first bit in the high bit of
// byte 0: the 16 data bits start at bit 5 of byte 1, each byte sent low bit first. The parity
// bits stay in the bytes.
Cea608Pair cea608PairFromLine21(std::span<const std::uint8_t, 4> sliced);

// One cc_data triple of CEA-708.
struct CcData {
    std::uint8_t markerBits = 31;  // the top five bits of cc_info
    std::uint8_t valid = 0;
    std::uint8_t type = 0;  // 0, 1: CEA-608 field 1, 2; 2, 3: DTVCC
    std::uint8_t data1 = 0;
    std::uint8_t data2 = 0;
};

// cc_count is five bits wide.
inline constexpr std::size_t kMaxCcData = 31;

struct CcDataList {
    std::uint8_t count = 0;
    std::array<CcData, kMaxCcData> entries{};
};

// Replaces `list` with the cc_data of the packet whose words (low byte counts) `words` views.
// Throws cpp_tools::v1::SafeArrayException<unsigned short> when a field lies outside the packet:
// `list` may then be half written, and the caller drops it.
void parseCaptionDistributionPacket(const cpp_utils::cpp_tools::v1::SafeArray<unsigned short>& words,
                                    CcDataList& list);

}  // namespace ovtx::encoding::subtitling::v1
