#include "encoding/subtitling/cea608.h"

#include <algorithm>

#include "encoding/subtitling/teletext_coding.h"

namespace ovtx::encoding::subtitling::v1 {

namespace {

bool isSecondDataChannel(Cea608Channel channel) {
    return channel == Cea608Channel::CC2 || channel == Cea608Channel::CC4;
}

bool isFieldTwo(Cea608Channel channel) {
    return channel == Cea608Channel::CC3 || channel == Cea608Channel::CC4;
}

Cea608Pair withParity(int first, int second) {
    return {withOddParity(static_cast<std::uint8_t>(first)),
            withOddParity(static_cast<std::uint8_t>(second))};
}

}  // namespace

Cea608Pair cea608Null() {
    return withParity(0, 0);
}

Cea608Pair cea608Control(Cea608Command command, Cea608Channel channel) {
    const int first =
        0x14 | (isFieldTwo(channel) ? 0x01 : 0x00) | (isSecondDataChannel(channel) ? 0x08 : 0x00);
    return withParity(first, static_cast<int>(command));
}

Cea608Pair cea608PreambleAddress(int row, int indent, Cea608Channel channel) {
    // First byte and second-byte base for rows 1 to 15 of data channel 1.
    struct RowCode {
        int first;
        int base;
    };
    static constexpr RowCode kRows[15] = {
        {0x11, 0x40}, {0x11, 0x60}, {0x12, 0x40}, {0x12, 0x60}, {0x15, 0x40},
        {0x15, 0x60}, {0x16, 0x40}, {0x16, 0x60}, {0x17, 0x40}, {0x17, 0x60},
        {0x10, 0x40}, {0x13, 0x40}, {0x13, 0x60}, {0x14, 0x40}, {0x14, 0x60},
    };
    const RowCode code = kRows[std::clamp(row, 1, 15) - 1];
    const int indentCode = std::clamp(indent, 0, 28) / 4;
    const int first = code.first | (isSecondDataChannel(channel) ? 0x08 : 0x00);
    return withParity(first, code.base | 0x10 | (indentCode << 1));
}

std::vector<Cea608Pair> cea608Text(std::string_view text) {
    std::vector<Cea608Pair> pairs;
    pairs.reserve((text.size() + 1) / 2);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int second = i + 1 < text.size() ? text[i + 1] : 0;
        pairs.push_back(withParity(text[i], second));
    }
    return pairs;
}

}  // namespace ovtx::encoding::subtitling::v1
