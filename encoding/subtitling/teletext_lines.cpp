#include "encoding/subtitling/teletext_lines.h"

#include <algorithm>

namespace ovtx::encoding::subtitling::v1 {

namespace {

using cpp_utils::cpp_tools::v1::SafeArray;

constexpr std::size_t kAddress1 = 3;
constexpr std::size_t kAddress2 = 4;
constexpr std::size_t kPageUnits = 5;
constexpr std::size_t kPageTens = 6;
constexpr std::size_t kInitialPageUnits = 6;
constexpr std::size_t kInitialPageTens = 7;
constexpr std::size_t kSubtitleControl = 10;  // S4, C5 and C6 (subtitle) in D4
constexpr int kInitialPageRow = 30;
constexpr int kInitialPageMagazine = 0;  // magazine 8
constexpr std::uint8_t kSkippedPage = 0xFF;
constexpr std::uint8_t kInitialPageEntryMagazine = 1;

constexpr std::size_t kAncLineWord = 0;
constexpr std::size_t kAncDataUnitWord = 1;
constexpr std::size_t kAncFirstLineWord = 2;
constexpr std::size_t kAncMinimumWords = 2;

int bitAt(std::uint8_t byte, int position) {
    return (byte >> position) & 1;
}

// D1 to D4 of a Hamming 8/4 byte, D1 the least significant.
int hammingValue(std::uint8_t byte) {
    return bitAt(byte, 6) | bitAt(byte, 4) << 1 | bitAt(byte, 2) << 2 | bitAt(byte, 0) << 3;
}

// D1 to D4 with D1 the most significant: how the initial page of packet 8/30 is read.
int reversedHammingValue(std::uint8_t byte) {
    return bitAt(byte, 6) << 3 | bitAt(byte, 4) << 2 | bitAt(byte, 2) << 1 | bitAt(byte, 0);
}

bool isSubtitleHeader(const TeletextLine& line) {
    return (line[kSubtitleControl] & 1) != 0;
}

bool isAncLineWord(unsigned word) {
    return (word >= 16 && word <= 31) || (word >= 153 && word <= 155);
}

bool isAncDataUnitId(unsigned id) {
    return id == 0xC0 || id == kDataUnitEbuSubtitle || id == kDataUnitEbuNonSubtitle;
}

}  // namespace

TeletextLineAddress teletextLineAddress(const TeletextLine& line) {
    const std::uint8_t first = line[kAddress1];
    const std::uint8_t second = line[kAddress2];
    TeletextLineAddress address;
    address.magazine = bitAt(first, 6) + 2 * bitAt(first, 4) + (first & 4);
    address.row = (first & 1) + 2 * bitAt(second, 6) + 4 * bitAt(second, 4) + 8 * bitAt(second, 2) +
                  16 * bitAt(second, 0);
    return address;
}

std::uint8_t dataUnitIdOfHeader(const TeletextLine& line) {
    return static_cast<std::uint8_t>((line[kSubtitleControl] & 1) + kDataUnitEbuNonSubtitle);
}

void writeCapturedDataUnit(std::uint8_t* out, std::uint8_t dataUnitId, std::uint8_t lineByte,
                           const TeletextLine& line) {
    writeTeletextDataUnitHead(out, dataUnitId, lineByte);
    std::copy(line.begin() + kTeletextLinePacketOffset, line.end(), out + 4);
}

std::optional<TeletextLine> teletextLineFromAncPacket(const SafeArray<unsigned short>& words) {
    if (words.size() < kAncMinimumWords || !isAncLineWord(words[kAncLineWord] & 0xFFu) ||
        !isAncDataUnitId(words[kAncDataUnitWord] & 0xFFu)) {
        return std::nullopt;
    }
    TeletextLine line{};
    const std::size_t available = std::min(words.size() - kAncFirstLineWord, kTeletextLineBytes);
    for (std::size_t i = 0; i < available; ++i) {
        line[i] = static_cast<std::uint8_t>(words[static_cast<long long>(kAncFirstLineWord + i)] & 0xFFu);
    }
    return line;
}

DescriptorOutcome TeletextDescriptorList::learn(const TeletextLine& line) {
    const TeletextLineAddress address = teletextLineAddress(line);
    const bool initialPagePacket = address.row == kInitialPageRow && address.magazine == kInitialPageMagazine;
    if (initialPagePacket) {
        m_initialPage = reversedHammingValue(line[kInitialPageUnits]) +
                        (reversedHammingValue(line[kInitialPageTens]) << 4);
    } else if (address.row != 0) {
        return DescriptorOutcome::Ignored;
    }
    const bool subtitle = address.row == 0 && isSubtitleHeader(line);
    if (m_initialPage == -1 && !subtitle) {
        return DescriptorOutcome::Ignored;
    }
    TeletextDescriptorEntry entry;
    if (subtitle) {
        entry.type = kTeletextTypeSubtitle;
        entry.magazine = static_cast<std::uint8_t>(address.magazine);
        entry.page =
            static_cast<std::uint8_t>((hammingValue(line[kPageTens]) << 4) + hammingValue(line[kPageUnits]));
    } else {
        entry.type = kTeletextTypeInitialPage;
        entry.magazine = kInitialPageEntryMagazine;
        entry.page = static_cast<std::uint8_t>(m_initialPage & 0xFF);
    }
    if (entry.page == kSkippedPage) {
        return DescriptorOutcome::Ignored;
    }
    const auto end = m_entries.begin() + static_cast<std::ptrdiff_t>(m_count);
    const auto same = std::find_if(m_entries.begin(), end, [&](const TeletextDescriptorEntry& known) {
        return known.type == entry.type && known.magazine == entry.magazine && known.page == entry.page;
    });
    if (same != end) {
        *same = entry;
        return DescriptorOutcome::Rewritten;
    }
    if (m_count == kMaxTeletextDescriptors) {
        return DescriptorOutcome::ListFull;
    }
    m_entries[m_count++] = entry;
    return DescriptorOutcome::Added;
}

}  // namespace ovtx::encoding::subtitling::v1
