#include "pattern/test_card.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <ctime>
#include <string_view>

#include "cpp_utils/cpp_tools/ctime_text.h"
#include "pattern/beep_timing.h"
#include "pattern/sample_fill.h"
#include "simulcast/capture_records.h"

namespace ovtx::pattern::pattern_source::v1 {

namespace records = ovtx::simulcast::capture_records::v1;

namespace {

constexpr int kFontPixelSize = 20;
constexpr int kRowHeight = 32;
constexpr int kTextInset = 4;  // from the top of a row to the top of its text line
constexpr int kClockRowY = 0;
constexpr int kCaptionRowY = 32;
constexpr std::uint16_t kVideoMarker = 19102;

struct Swatch {
    std::string_view name;
    YCrCb colour;
};

// Red is the fixed triple (81, 239, 90); the others follow the conversion.
const std::array<Swatch, TestCard::kSwatchCount>& swatches() {
    static const std::array<Swatch, TestCard::kSwatchCount> kSwatches = {{
        {"Red", YCrCb{81, 239, 90}},
        {"Green", studioColour(0, 255, 0)},
        {"Blue", studioColour(0, 0, 255)},
        {"Cyan", studioColour(0, 255, 255)},
        {"Magenta", studioColour(255, 0, 255)},
        {"Yellow", studioColour(255, 255, 0)},
    }};
    return kSwatches;
}

std::uint16_t scaledLevel(int level8, int bitDepth) {
    return static_cast<std::uint16_t>(bitDepth <= 8 ? level8 >> (8 - bitDepth) : level8 << (bitDepth - 8));
}

// Fills `count` samples from `first` with `level`: bytes at a depth up to 8, 16-bit words above.
void fillSamples(std::uint8_t* planes, std::size_t first, std::size_t count, std::uint16_t level,
                 int bitDepth) {
    if (bitDepth <= 8) {
        fillBytes(planes + first, count, static_cast<std::uint8_t>(level));
    } else {
        fillWords(reinterpret_cast<std::uint16_t*>(planes) + first, count, level);
    }
}

void fillRect(const PlaneView& plane, int x, int y, int width, int height, std::uint8_t level) {
    for (int row = y; row < y + height; ++row) {
        std::memset(plane.row(row) + x, level, static_cast<std::size_t>(width));
    }
}

void fill(const PlaneView& plane, std::uint8_t level) {
    fillRect(plane, 0, 0, plane.width, plane.height, level);
}

// Copies an 8-bit plane into 16-bit words of `bitDepth`, each sample shifted into place.
void copyShifted(const PlaneView& source, std::uint16_t* target, std::size_t targetStride, int shift) {
    for (int y = 0; y < source.height; ++y) {
        const std::uint8_t* in = source.row(y);
        std::uint16_t* out = target + static_cast<std::size_t>(y) * targetStride;
        for (int x = 0; x < source.width; ++x) {
            out[x] = static_cast<std::uint16_t>(in[x] << shift);
        }
    }
}

std::string_view firstLine(std::string_view text) {
    return text.substr(0, text.find('\n'));
}

}  // namespace

YCrCb studioColour(int r, int g, int b) {
    const double y = 0.257 * r + 16 + 0.504 * g + 0.098 * b;
    const double cr = 0.439 * r + 128 - 0.368 * g - 0.071 * b;
    const double cb = -0.148 * r + 128 - 0.291 * g + 0.439 * b;
    return {static_cast<std::uint8_t>(y), static_cast<std::uint8_t>(cr), static_cast<std::uint8_t>(cb)};
}

std::uint16_t whiteLevel(int bitDepth) {
    return scaledLevel(240, bitDepth);
}
std::uint16_t greyLevel(int bitDepth) {
    return scaledLevel(128, bitDepth);
}

TestCard::TestCard(int width, int height)
    : m_width(width),
      m_height(height),
      m_font("Segoe UI", kFontPixelSize),
      m_scratch(static_cast<std::size_t>(kPanelWidth * kPanelHeight * 3 / 2)) {}

std::string TestCard::captionText(std::int64_t frameNumber, const FrameRational& framePeriod) const {
    const long rate = std::lround(framePeriod.inverted().toDouble());
    return std::to_string(m_width) + "x" + std::to_string(m_height) + " " + std::to_string(rate) + "Hz " +
           "DAR " + "4/3\n" + "Frame #" + std::to_string(frameNumber) + "\n";
}

void TestCard::writeTestCard(std::uint8_t* chunk, std::int64_t frameNumber, const FrameRational& framePeriod,
                             int bitDepth) {
    auto* header = reinterpret_cast<records::VideoRecordHeader*>(chunk);
    header->standardMismatch = 0;
    header->discontinuity = 0;
    header->start = frameTime(frameNumber, framePeriod);
    header->end = frameTime(frameNumber + 1, framePeriod);
    header->aspectNumerator = 4;
    header->aspectDenominator = 3;

    if (m_width > 0 && m_height > 0) {
        std::uint8_t* planes = chunk + records::kVideoPictureOffset;
        fillBackground(planes, beepCycleTime(header->start), bitDepth);
        if (panelFits()) {
            if (bitDepth <= 8) {
                renderPanel(chunkPanel(planes), frameNumber, framePeriod);
            } else {
                renderPanel(scratchPanel(), frameNumber, framePeriod);
                copyScratchPanel(planes, bitDepth);
            }
        }
    }
    header->magic = kVideoMarker;
}

bool TestCard::panelFits() const {
    return m_width >= kPanelX + kPanelWidth && m_height >= kPanelY + kPanelHeight;
}

void TestCard::fillBackground(std::uint8_t* planes, std::int64_t cycleTime, int bitDepth) const {
    const std::size_t lumaSamples = static_cast<std::size_t>(m_width) * static_cast<std::size_t>(m_height);
    const std::size_t allSamples = lumaSamples * 3 / 2;
    if (cycleTime < kBeepLength) {
        fillSamples(planes, 0, allSamples, whiteLevel(bitDepth), bitDepth);
        return;
    }
    const std::int64_t greyRows = cycleTime * m_height / kBeepPeriod;
    const std::size_t greySamples = static_cast<std::size_t>(greyRows) * static_cast<std::size_t>(m_width);
    fillSamples(planes, 0, greySamples, greyLevel(bitDepth), bitDepth);
    fillSamples(planes, greySamples, allSamples - greySamples, 0, bitDepth);
}

TestCard::PanelPlanes TestCard::chunkPanel(std::uint8_t* planes) const {
    const std::ptrdiff_t lumaStride = m_width;
    const std::ptrdiff_t chromaStride = m_width / 2;
    std::uint8_t* cr = planes + lumaStride * m_height;
    std::uint8_t* cb = cr + chromaStride * (m_height / 2);
    const std::ptrdiff_t chromaOrigin = chromaStride * (kPanelY / 2) + kPanelX / 2;
    return {
        PlaneView{planes + lumaStride * kPanelY + kPanelX, kPanelWidth, kPanelHeight, lumaStride},
        PlaneView{cr + chromaOrigin, kPanelWidth / 2, kPanelHeight / 2, chromaStride},
        PlaneView{cb + chromaOrigin, kPanelWidth / 2, kPanelHeight / 2, chromaStride},
    };
}

TestCard::PanelPlanes TestCard::scratchPanel() {
    std::uint8_t* luma = m_scratch.data();
    std::uint8_t* cr = luma + kPanelWidth * kPanelHeight;
    std::uint8_t* cb = cr + (kPanelWidth / 2) * (kPanelHeight / 2);
    return {
        PlaneView{luma, kPanelWidth, kPanelHeight, kPanelWidth},
        PlaneView{cr, kPanelWidth / 2, kPanelHeight / 2, kPanelWidth / 2},
        PlaneView{cb, kPanelWidth / 2, kPanelHeight / 2, kPanelWidth / 2},
    };
}

void TestCard::renderPanel(const PanelPlanes& panel, std::int64_t frameNumber,
                           const FrameRational& framePeriod) {
    fill(panel.luma, kPanelBackground.y);
    fill(panel.cr, kPanelBackground.cr);
    fill(panel.cb, kPanelBackground.cb);

    m_font.drawText(panel.luma, kTextInset, kClockRowY + kTextInset, clockText(), kTextLevel);
    const std::string captionLines = captionText(frameNumber, framePeriod);
    std::string_view caption = captionLines;
    for (int line = 0; !caption.empty(); ++line) {
        const std::string_view text = firstLine(caption);
        m_font.drawText(panel.luma, kTextInset, kCaptionRowY + line * kRowHeight + kTextInset, text,
                        kTextLevel);
        caption.remove_prefix(std::min(caption.size(), text.size() + 1));
    }

    for (int i = 0; i < kSwatchCount; ++i) {
        const Swatch& swatch = swatches()[static_cast<std::size_t>(i)];
        const int top = kSwatchY + i * kSwatchHeight;
        m_font.drawText(panel.luma, kTextInset, top + kTextInset, swatch.name, kTextLevel);
        fillRect(panel.luma, kSwatchX, top, kSwatchWidth, kSwatchHeight, swatch.colour.y);
        fillRect(panel.cr, kSwatchX / 2, top / 2, kSwatchWidth / 2, kSwatchHeight / 2, swatch.colour.cr);
        fillRect(panel.cb, kSwatchX / 2, top / 2, kSwatchWidth / 2, kSwatchHeight / 2, swatch.colour.cb);
    }
}

void TestCard::copyScratchPanel(std::uint8_t* planes, int bitDepth) {
    const PanelPlanes scratch = scratchPanel();
    auto* words = reinterpret_cast<std::uint16_t*>(planes);
    const std::size_t lumaStride = static_cast<std::size_t>(m_width);
    const std::size_t chromaStride = lumaStride / 2;
    std::uint16_t* cr = words + lumaStride * static_cast<std::size_t>(m_height);
    std::uint16_t* cb = cr + chromaStride * static_cast<std::size_t>(m_height / 2);
    const std::size_t chromaOrigin = chromaStride * (kPanelY / 2) + kPanelX / 2;
    const int shift = bitDepth - 8;
    copyShifted(scratch.luma, words + lumaStride * kPanelY + kPanelX, lumaStride, shift);
    copyShifted(scratch.cr, cr + chromaOrigin, chromaStride, shift);
    copyShifted(scratch.cb, cb + chromaOrigin, chromaStride, shift);
}

const std::string& TestCard::clockText() {
    const std::time_t now = std::time(nullptr);
    if (now != m_clockSecond) {
        m_clockSecond = now;
        m_clockText = cpp_utils::cpp_tools::v1::ctimeText(now);
    }
    return m_clockText;
}

}  // namespace ovtx::pattern::pattern_source::v1
