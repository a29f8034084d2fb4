#include "encoding/subtitling/caption_data.h"

namespace ovtx::encoding::subtitling::v1 {

namespace {

using cpp_utils::cpp_tools::v1::SafeArray;

constexpr int kFlagsWord = 4;
constexpr unsigned kTimeCodePresent = 0x80;
constexpr unsigned kCcDataPresent = 0x40;
constexpr unsigned kServiceInfoPresent = 0x20;
constexpr long long kSectionAfterTimeCode = 12;
constexpr long long kSectionAfterHeader = 7;
constexpr unsigned kFirstFutureSection = 117;
constexpr unsigned kLastFutureSection = 239;
constexpr long long kServiceEntryBytes = 7;
constexpr long long kFooterLastByte = 3;

// A data byte sent low bit first, its bits as they stand in the sliced bytes, high bit first.
std::uint8_t lowBitFirst(unsigned bitsInLineOrder) {
    std::uint8_t value = 0;
    for (int i = 0; i < 8; ++i) {
        value = static_cast<std::uint8_t>(value | (((bitsInLineOrder >> (7 - i)) & 1) << i));
    }
    return value;
}

unsigned byteAt(const SafeArray<unsigned short>& words, long long index) {
    return words[index] & 0xFFu;
}

}  // namespace

Cea608Pair cea608PairFromLine21(std::span<const std::uint8_t, 4> sliced) {
    // Bits 0-31 in line order; the data starts at line bit 10 (bit 5 of byte 1).
    const unsigned line = static_cast<unsigned>(sliced[0]) << 24 | static_cast<unsigned>(sliced[1]) << 16 |
                          static_cast<unsigned>(sliced[2]) << 8 | sliced[3];
    return {lowBitFirst((line >> 14) & 0xFF), lowBitFirst((line >> 6) & 0xFF)};
}

void parseCaptionDistributionPacket(const SafeArray<unsigned short>& words, CcDataList& list) {
    list.count = 0;
    const unsigned flags = byteAt(words, kFlagsWord);
    long long i = (flags & kTimeCodePresent) != 0 ? kSectionAfterTimeCode : kSectionAfterHeader;
    if ((flags & kCcDataPresent) != 0) {
        const unsigned count = byteAt(words, i + 1) & 31;
        i += 2;
        for (unsigned n = 0; n < count; ++n, i += 3) {
            const unsigned info = byteAt(words, i);
            CcData& entry = list.entries[n];
            entry.markerBits = static_cast<std::uint8_t>(info >> 3);
            entry.valid = static_cast<std::uint8_t>((info >> 2) & 1);
            entry.type = static_cast<std::uint8_t>(info & 3);
            entry.data1 = static_cast<std::uint8_t>(byteAt(words, i + 1));
            entry.data2 = static_cast<std::uint8_t>(byteAt(words, i + 2));
        }
        list.count = static_cast<std::uint8_t>(count);
    }
    if ((flags & kServiceInfoPresent) != 0) {
        i += 2 + (byteAt(words, i + 1) & 15) * kServiceEntryBytes;
    }
    for (unsigned id = byteAt(words, i); id >= kFirstFutureSection && id <= kLastFutureSection;
         id = byteAt(words, i)) {
        i += 2 + byteAt(words, i + 1);
    }
    byteAt(words, i + kFooterLastByte);
}

}  // namespace ovtx::encoding::subtitling::v1
