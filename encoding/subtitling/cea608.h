// CEA-608 byte pairs: control codes, preamble address codes and text, each byte with odd parity.
//
// A caption decoder receives one pair per field and frame. Pop-on captions are loaded into the
// decoder's hidden memory and shown at once by "end of caption":
//
//   std::vector<Cea608Pair> pairs = {
//       cea608Control(Cea608Command::ResumeCaptionLoading),
//       cea608Control(Cea608Command::EraseNonDisplayedMemory),
//       cea608PreambleAddress(15, 0)};
//   for (Cea608Pair pair : cea608Text("BEEP")) pairs.push_back(pair);
//   pairs.push_back(cea608Control(Cea608Command::EndOfCaption));
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace ovtx::encoding::subtitling::v1 {

// Two bytes of one field, as sent (bit 7 is the parity bit).
struct Cea608Pair {
    std::uint8_t first = 0x80;
    std::uint8_t second = 0x80;
    bool operator==(const Cea608Pair&) const = default;
};

// The miscellaneous control codes: the second byte, after the channel's first byte.
enum class Cea608Command : std::uint8_t {
    ResumeCaptionLoading = 0x20,
    Backspace = 0x21,
    RollUp2 = 0x25,
    ResumeDirectCaptioning = 0x29,
    EraseDisplayedMemory = 0x2C,
    CarriageReturn = 0x2D,
    EraseNonDisplayedMemory = 0x2E,
    EndOfCaption = 0x2F,
};

// Caption channel: CC1 and CC2 ride in field 1, CC3 and CC4 in field 2.
enum class Cea608Channel { CC1, CC2, CC3, CC4 };

// The null pair (0x80, 0x80): nothing, with parity set.
Cea608Pair cea608Null();

// A miscellaneous control code of `channel`.
Cea608Pair cea608Control(Cea608Command command, Cea608Channel channel = Cea608Channel::CC1);

// The preamble address code that puts the cursor on `row` (1 to 15) at `indent` (0 to 28, a
// multiple of 4), white, not underlined.
Cea608Pair cea608PreambleAddress(int row, int indent, Cea608Channel channel = Cea608Channel::CC1);

// The text as pairs of basic characters (0x20 to 0x7F); an odd length ends in a null byte.
std::vector<Cea608Pair> cea608Text(std::string_view text);

}  // namespace ovtx::encoding::subtitling::v1
