#include "encoding/subtitle_text/subtitle_decoder.h"

#include <libzvbi.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <vector>

namespace ovtx::encoding::subtitle_text::v1 {

namespace {

constexpr std::size_t kDataUnitSize = 46;
constexpr std::size_t kPacketOffset = 4;
constexpr std::size_t kPacketSize = 42;

// Blank-separated words of a printed page: the layout of rows and columns is not compared.
std::string words(const std::string& printed) {
    std::string result;
    bool blank = true;
    for (char c : printed) {
        const bool isBlank = c == ' ' || c == '\n' || c == '\0';
        if (isBlank) {
            blank = true;
            continue;
        }
        if (blank && !result.empty()) {
            result.push_back(' ');
        }
        result.push_back(c);
        blank = false;
    }
    return result;
}

// The rows from `firstRow` down: a teletext page's row 0 is its header, which a subtitle page
// suppresses and the decoder still fills with the page number.
std::string print(vbi_page& page, int firstRow) {
    std::vector<char> buffer(4096, '\0');
    const int size = vbi_print_page_region(&page, buffer.data(), static_cast<int>(buffer.size()), "UTF-8",
                                           FALSE, TRUE, 0, firstRow, page.columns, page.rows - firstRow);
    return words(std::string(buffer.data(), static_cast<std::size_t>(std::max(size, 0))));
}

// libzvbi keeps pages only while someone listens for them.
void ignoreEvent(vbi_event* /*event*/, void* /*user*/) {}

}  // namespace

SubtitleDecoder::SubtitleDecoder() : m_decoder(vbi_decoder_new()) {
    if (m_decoder == nullptr || !vbi_event_handler_register(m_decoder, VBI_EVENT_TTX_PAGE | VBI_EVENT_CAPTION,
                                                            ignoreEvent, nullptr)) {
        throw std::runtime_error("could not set up the libzvbi decoder");
    }
}

SubtitleDecoder::~SubtitleDecoder() {
    vbi_decoder_delete(m_decoder);
}

double SubtitleDecoder::nextFrameTime() {
    m_time += 0.04;
    return m_time;
}

void SubtitleDecoder::markGap() {
    // A step of more than two frame periods makes libzvbi drop what it was assembling.
    m_time += 1.0;
}

void SubtitleDecoder::feedCaptionPair(std::uint8_t first, std::uint8_t second) {
    vbi_sliced sliced{};
    sliced.id = VBI_SLICED_CAPTION_525_F1;
    sliced.line = 21;
    sliced.data[0] = first;
    sliced.data[1] = second;
    vbi_decode(m_decoder, &sliced, 1, nextFrameTime());
}

void SubtitleDecoder::feedTeletextData(std::span<const std::uint8_t> data) {
    std::vector<vbi_sliced> lines;
    for (std::size_t unit = 1; unit + kDataUnitSize <= data.size(); unit += kDataUnitSize) {
        vbi_sliced sliced{};
        sliced.id = VBI_SLICED_TELETEXT_B;
        sliced.line = 7 + static_cast<unsigned>(lines.size());
        // A data unit holds the packet with each byte's bits reversed; a VBI line holds it as sent.
        for (std::size_t i = 0; i < kPacketSize; ++i) {
            sliced.data[i] = static_cast<std::uint8_t>(vbi_rev8(data[unit + kPacketOffset + i]));
        }
        lines.push_back(sliced);
    }
    vbi_decode(m_decoder, lines.data(), static_cast<int>(lines.size()), nextFrameTime());
}

std::string SubtitleDecoder::captionText() {
    vbi_page page{};
    if (!vbi_fetch_cc_page(m_decoder, &page, 1, TRUE)) {
        return {};
    }
    std::string text = print(page, 0);
    vbi_unref_page(&page);
    return text;
}

std::optional<std::string> SubtitleDecoder::teletextText(int pageNumber) {
    vbi_page page{};
    if (!vbi_fetch_vt_page(m_decoder, &page, pageNumber, VBI_ANY_SUBNO, VBI_WST_LEVEL_1, 25, FALSE)) {
        return std::nullopt;
    }
    std::string text = print(page, 1);
    vbi_unref_page(&page);
    return text;
}

std::optional<int> parseTeletextPage(std::string_view text) {
    if (text.size() != 3 || text[0] < '1' || text[0] > '8' ||
        !std::isxdigit(static_cast<unsigned char>(text[1])) ||
        !std::isxdigit(static_cast<unsigned char>(text[2]))) {
        return std::nullopt;
    }
    return std::stoi(std::string(text), nullptr, 16);
}

}  // namespace ovtx::encoding::subtitle_text::v1
