#include "config/abstract_variable/base64.h"

#include <array>

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kLineLength = 64;
constexpr char kFirstIndexed = '+';
constexpr char kLastIndexed = 'z';

// Indexed from '+' to 'z': the 6-bit value plus one, or 0 for a character to skip.
constexpr std::array<std::uint8_t, kLastIndexed - kFirstIndexed + 1> kDecodeTable = [] {
    std::array<std::uint8_t, kLastIndexed - kFirstIndexed + 1> table{};
    for (std::size_t value = 0; value < kAlphabet.size(); ++value) {
        table[static_cast<std::size_t>(kAlphabet[value] - kFirstIndexed)] =
            static_cast<std::uint8_t>(value + 1);
    }
    return table;
}();

// The 6-bit value of a character plus one, 0 outside the alphabet.
std::uint8_t decodedPlusOne(char character) {
    if (character < kFirstIndexed || character > kLastIndexed) {
        return 0;
    }
    return kDecodeTable[static_cast<std::size_t>(character - kFirstIndexed)];
}

}  // namespace

std::string base64Encode(const std::uint8_t* bytes, std::size_t size, std::string_view lineBreak) {
    std::string text((size + 2) / 3 * 4, '=');
    char* out = text.data();
    std::size_t index = 0;
    for (; index + 3 <= size; index += 3) {
        const std::uint32_t group = (std::uint32_t{bytes[index]} << 16) |
                                    (std::uint32_t{bytes[index + 1]} << 8) | std::uint32_t{bytes[index + 2]};
        *out++ = kAlphabet[(group >> 18) & 0x3f];
        *out++ = kAlphabet[(group >> 12) & 0x3f];
        *out++ = kAlphabet[(group >> 6) & 0x3f];
        *out++ = kAlphabet[group & 0x3f];
    }
    const std::size_t rest = size - index;
    if (rest > 0) {
        // The last group keeps the "=" padding that the text was filled with.
        std::uint32_t group = std::uint32_t{bytes[index]} << 16;
        if (rest == 2) {
            group |= std::uint32_t{bytes[index + 1]} << 8;
        }
        *out++ = kAlphabet[(group >> 18) & 0x3f];
        *out++ = kAlphabet[(group >> 12) & 0x3f];
        if (rest == 2) {
            *out = kAlphabet[(group >> 6) & 0x3f];
        }
    }
    if (lineBreak.empty() || text.size() <= kLineLength) {
        return text;
    }
    std::string broken;
    broken.reserve(text.size() + text.size() / kLineLength * lineBreak.size());
    for (std::size_t start = 0; start < text.size(); start += kLineLength) {
        if (start > 0) {
            broken += lineBreak;
        }
        broken.append(text, start, kLineLength);
    }
    return broken;
}

std::vector<std::uint8_t> base64Decode(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    int sextets = 0;
    for (char character : text) {
        const std::uint8_t value = decodedPlusOne(character);
        if (value == 0) {
            continue;
        }
        group = (group << 6) | (value - 1u);
        if (++sextets == 4) {
            bytes.push_back(static_cast<std::uint8_t>(group >> 16));
            bytes.push_back(static_cast<std::uint8_t>(group >> 8));
            bytes.push_back(static_cast<std::uint8_t>(group));
            group = 0;
            sextets = 0;
        }
    }
    if (sextets >= 2) {
        group <<= 6 * (4 - sextets);
        bytes.push_back(static_cast<std::uint8_t>(group >> 16));
        if (sextets == 3) {
            bytes.push_back(static_cast<std::uint8_t>(group >> 8));
        }
    }
    return bytes;
}

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
