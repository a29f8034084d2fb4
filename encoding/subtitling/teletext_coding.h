// Teletext packing: packets of EN 300 706 inside the PES data units of EN 300 472, and the
// teletext_descriptor of EN 300 468.
//
// A teletext packet is 42 bytes in line order, the order in which the bits leave on a VBI line
// (least significant bit first): two Hamming 8/4 address bytes, then 40 bytes of a page header or
// a display row. A data unit of EN 300 472 carries the same 42 bytes with each byte's bits
// reversed, since there the first bit sent stands in the most significant place.
//
//   TeletextPageHeader header;
//   header.magazine = 8;
//   header.page = 0x88;
//   header.subtitle = true;
//   TeletextPacket row0 = pageHeaderPacket(header);
//   TeletextPacket row22 = displayRowPacket(8, 22, "Beep");
//   std::uint8_t unit[kTeletextDataUnitSize];
//   writeTeletextDataUnit(unit, kDataUnitEbuSubtitle, lineOffsetByte(7), row0);
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace ovtx::encoding::subtitling::v1 {

inline constexpr std::size_t kTeletextPacketSize = 42;
using TeletextPacket = std::array<std::uint8_t, kTeletextPacketSize>;

// Display bytes of one row, after the address.
inline constexpr std::size_t kTeletextRowColumns = 40;
// Display bytes of a page header, after its eight control bytes.
inline constexpr std::size_t kTeletextHeaderColumns = 32;

// A data unit: data_unit_id, data_unit_length, field parity and line offset, framing code and
// the packet.
inline constexpr std::size_t kTeletextDataUnitSize = 46;
inline constexpr std::uint8_t kTeletextDataUnitLength = 0x2C;
inline constexpr std::uint8_t kTeletextFramingCode = 0xE4;
// data_identifier that opens the PES data field of EBU data.
inline constexpr std::uint8_t kTeletextDataIdentifier = 0x10;
inline constexpr std::uint8_t kDataUnitEbuNonSubtitle = 0x02;
inline constexpr std::uint8_t kDataUnitEbuSubtitle = 0x03;

// Spacing attributes and controls of the level 1 character set.
inline constexpr std::uint8_t kTeletextAlphaWhite = 0x07;
inline constexpr std::uint8_t kTeletextEndBox = 0x0A;
inline constexpr std::uint8_t kTeletextStartBox = 0x0B;

// teletext_descriptor of EN 300 468.
inline constexpr std::uint8_t kTeletextDescriptorTag = 0x46;
inline constexpr std::size_t kTeletextDescriptorEntrySize = 5;
inline constexpr std::uint8_t kTeletextTypeInitialPage = 1;
inline constexpr std::uint8_t kTeletextTypeSubtitle = 2;

// The Hamming 8/4 byte of a 4-bit value, in line order (data bits at 1, 3, 5 and 7).
std::uint8_t hamming84(std::uint8_t nibble);

// The 7-bit value with bit 7 set so that the byte holds an odd number of ones.
std::uint8_t withOddParity(std::uint8_t sevenBits);

// The byte with its bit order reversed (bit 0 becomes bit 7).
std::uint8_t reverseBits(std::uint8_t byte);

// The control bits and address of a page header (packet X/0).
struct TeletextPageHeader {
    int magazine = 1;                  // 1 to 8; 8 is sent as 0
    int page = 0;                      // 0x00 to 0xFF, tens in the high nibble
    int subcode = 0;                   // 13 bits: S1 to S4
    bool erasePage = false;            // C4
    bool newsflash = false;            // C5
    bool subtitle = false;             // C6
    bool suppressHeader = false;       // C7
    bool updateIndicator = false;      // C8
    bool interruptedSequence = false;  // C9
    bool inhibitDisplay = false;       // C10
    bool magazineSerial = false;       // C11
    int nationalOptions = 0;           // C12 to C14
    std::string_view text;             // header display text, cut or padded with spaces to 32
};

// Packet X/0 of the header: Hamming 8/4 address and control bytes, odd-parity display bytes.
TeletextPacket pageHeaderPacket(const TeletextPageHeader& header);

// Packet X/`row` (1 to 24) holding `text`: bytes below 0x80, cut or padded with spaces to 40,
// each sent with odd parity.
TeletextPacket displayRowPacket(int magazine, int row, std::string_view text);

// The byte of a data unit that holds the field parity and the line offset of a line kept under
// `key`: 0x60 | (key & 31) for a key below 23, otherwise 0x40 | ((key + 7) & 31).
std::uint8_t lineOffsetByte(int key);

// Writes the four bytes that open a data unit at `out`: the id, the length 0x2C, the line byte and
// the framing code; the unit's packet follows them.
void writeTeletextDataUnitHead(std::uint8_t* out, std::uint8_t dataUnitId, std::uint8_t lineByte);

// Writes one data unit of kTeletextDataUnitSize bytes at `out`: the head, then the packet with each
// byte's bits reversed.
void writeTeletextDataUnit(std::uint8_t* out, std::uint8_t dataUnitId, std::uint8_t lineByte,
                           const TeletextPacket& packet);

// One entry of the teletext_descriptor.
struct TeletextDescriptorEntry {
    std::array<char, 3> language{'u', 'n', 'd'};
    std::uint8_t type = kTeletextTypeSubtitle;  // 5 bits
    std::uint8_t magazine = 0;                  // 3 bits: magazine 8 is 0
    std::uint8_t page = 0;
};

// Writes the descriptor at `out`: tag 0x46, length 5 x n, the entries. Returns the bytes
// written, 2 + 5 x n.
std::size_t writeTeletextDescriptor(std::uint8_t* out, std::span<const TeletextDescriptorEntry> entries);

}  // namespace ovtx::encoding::subtitling::v1
