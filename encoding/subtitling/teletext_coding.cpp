#include "encoding/subtitling/teletext_coding.h"

#include <algorithm>
#include <bit>

namespace ovtx::encoding::subtitling::v1 {

namespace {

constexpr std::uint8_t kSpace = 0x20;

// Magazine and row address: two Hamming 8/4 bytes; magazine 8 is sent as 0.
void writeAddress(TeletextPacket& packet, int magazine, int row) {
    const int magazineBits = magazine & 7;
    packet[0] = hamming84(static_cast<std::uint8_t>(magazineBits | ((row & 1) << 3)));
    packet[1] = hamming84(static_cast<std::uint8_t>((row >> 1) & 15));
}

void writeDisplayBytes(std::uint8_t* out, std::size_t columns, std::string_view text) {
    for (std::size_t i = 0; i < columns; ++i) {
        const std::uint8_t c = i < text.size() ? static_cast<std::uint8_t>(text[i]) : kSpace;
        out[i] = withOddParity(c);
    }
}

std::uint8_t bit(bool value, int position) {
    return static_cast<std::uint8_t>((value ? 1 : 0) << position);
}

}  // namespace

std::uint8_t hamming84(std::uint8_t nibble) {
    const int d1 = nibble & 1;
    const int d2 = (nibble >> 1) & 1;
    const int d3 = (nibble >> 2) & 1;
    const int d4 = (nibble >> 3) & 1;
    const int p1 = 1 ^ d1 ^ d3 ^ d4;
    const int p2 = 1 ^ d1 ^ d2 ^ d4;
    const int p3 = 1 ^ d1 ^ d2 ^ d3;
    const int p4 = 1 ^ p1 ^ d1 ^ p2 ^ d2 ^ p3 ^ d3 ^ d4;
    return static_cast<std::uint8_t>(p1 | d1 << 1 | p2 << 2 | d2 << 3 | p3 << 4 | d3 << 5 | p4 << 6 |
                                     d4 << 7);
}

std::uint8_t withOddParity(std::uint8_t sevenBits) {
    const std::uint8_t value = sevenBits & 0x7F;
    return std::popcount(value) % 2 == 0 ? static_cast<std::uint8_t>(value | 0x80) : value;
}

std::uint8_t reverseBits(std::uint8_t byte) {
    std::uint8_t reversed = 0;
    for (int i = 0; i < 8; ++i) {
        reversed = static_cast<std::uint8_t>(reversed << 1 | ((byte >> i) & 1));
    }
    return reversed;
}

TeletextPacket pageHeaderPacket(const TeletextPageHeader& header) {
    TeletextPacket packet{};
    writeAddress(packet, header.magazine, 0);
    const int subcode = header.subcode;
    const std::uint8_t nibbles[8] = {
        static_cast<std::uint8_t>(header.page & 15),
        static_cast<std::uint8_t>((header.page >> 4) & 15),
        static_cast<std::uint8_t>(subcode & 15),
        static_cast<std::uint8_t>(((subcode >> 4) & 7) | bit(header.erasePage, 3)),
        static_cast<std::uint8_t>((subcode >> 8) & 15),
        static_cast<std::uint8_t>(((subcode >> 12) & 3) | bit(header.newsflash, 2) | bit(header.subtitle, 3)),
        static_cast<std::uint8_t>(bit(header.suppressHeader, 0) | bit(header.updateIndicator, 1) |
                                  bit(header.interruptedSequence, 2) | bit(header.inhibitDisplay, 3)),
        static_cast<std::uint8_t>(bit(header.magazineSerial, 0) | ((header.nationalOptions & 7) << 1)),
    };
    for (int i = 0; i < 8; ++i) {
        packet[2 + i] = hamming84(nibbles[i]);
    }
    writeDisplayBytes(packet.data() + 10, kTeletextHeaderColumns, header.text);
    return packet;
}

TeletextPacket displayRowPacket(int magazine, int row, std::string_view text) {
    TeletextPacket packet{};
    writeAddress(packet, magazine, row);
    writeDisplayBytes(packet.data() + 2, kTeletextRowColumns, text);
    return packet;
}

std::uint8_t lineOffsetByte(int key) {
    if (key < 23) {
        return static_cast<std::uint8_t>(0x60 | (key & 31));
    }
    return static_cast<std::uint8_t>(0x40 | ((key + 7) & 31));
}

void writeTeletextDataUnitHead(std::uint8_t* out, std::uint8_t dataUnitId, std::uint8_t lineByte) {
    out[0] = dataUnitId;
    out[1] = kTeletextDataUnitLength;
    out[2] = lineByte;
    out[3] = kTeletextFramingCode;
}

void writeTeletextDataUnit(std::uint8_t* out, std::uint8_t dataUnitId, std::uint8_t lineByte,
                           const TeletextPacket& packet) {
    writeTeletextDataUnitHead(out, dataUnitId, lineByte);
    std::transform(packet.begin(), packet.end(), out + 4, reverseBits);
}

std::size_t writeTeletextDescriptor(std::uint8_t* out, std::span<const TeletextDescriptorEntry> entries) {
    out[0] = kTeletextDescriptorTag;
    out[1] = static_cast<std::uint8_t>(kTeletextDescriptorEntrySize * entries.size());
    std::uint8_t* entry = out + 2;
    for (const TeletextDescriptorEntry& e : entries) {
        std::copy(e.language.begin(), e.language.end(), entry);
        entry[3] = static_cast<std::uint8_t>((e.type << 3) | (e.magazine & 7));
        entry[4] = e.page;
        entry += kTeletextDescriptorEntrySize;
    }
    return static_cast<std::size_t>(entry - out);
}

}  // namespace ovtx::encoding::subtitling::v1
