// The test card: one video record of the pattern source for one frame number.
//
// The whole picture is a time signal: a grey bar that grows down from the top over each 2-second
// beep cycle, a white flash for the 0.1 s of the beep, and at (10, 10) a 310 x 288 panel with the
// wall-clock time, the format and frame number, and six colour swatches. Everything but the panel
// is a plain block fill, so the cost of a frame is that of writing its bytes once.
//
//   TestCard card(1920, 1080);
//   void* chunk = videoWriter.beginChunk();
//   card.writeTestCard(static_cast<std::uint8_t*>(chunk), frameNumber, period, 10);
//   videoWriter.commitChunk();
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pattern/frame_rational.h"
#include "pattern/panel_font.h"

namespace ovtx::pattern::pattern_source::v1 {

// A studio-range colour: luma and the two colour differences.
struct YCrCb {
    std::uint8_t y;
    std::uint8_t cr;
    std::uint8_t cb;
};

// 8-bit RGB to studio-range components, each truncated:
// Y = 0.257 R + 16 + 0.504 G + 0.098 B, Cr = 0.439 R + 128 - 0.368 G - 0.071 B,
// Cb = -0.148 R + 128 - 0.291 G + 0.439 B.
YCrCb studioColour(int r, int g, int b);

// The flash level of every sample: 240 scaled to the bit depth (960 at 10 bits).
std::uint16_t whiteLevel(int bitDepth);
// The grey bar's luma level: 128 scaled to the bit depth (512 at 10 bits).
std::uint16_t greyLevel(int bitDepth);

class TestCard {
  public:
    static constexpr int kPanelX = 10;
    static constexpr int kPanelY = 10;
    static constexpr int kPanelWidth = 310;
    static constexpr int kPanelHeight = 288;
    static constexpr int kSwatchCount = 6;
    static constexpr int kSwatchX = 110;  // panel-relative; the colour names stand left of it
    static constexpr int kSwatchY = 96;
    static constexpr int kSwatchWidth = 200;
    static constexpr int kSwatchHeight = 32;
    // Panel background and text, in 8-bit studio levels.
    static constexpr YCrCb kPanelBackground{16, 128, 128};
    static constexpr std::uint8_t kTextLevel = 235;

    // The picture size of the run; the font is looked up here, once.
    TestCard(int width, int height);

    // Fills the video chunk for frame `frameNumber`: header, planes, panel, and the marker last.
    // A picture of no size (an unknown format) gets the header alone.
    void writeTestCard(std::uint8_t* chunk, std::int64_t frameNumber, const FrameRational& framePeriod,
                       int bitDepth);

    // False when no font could be loaded: the panel then shows no text.
    bool hasFont() const { return m_font.valid(); }
    const std::string& fontFile() const { return m_font.fontFile(); }

    // The two lines under the clock: "1920x1080 25Hz DAR 4/3" and "Frame #12".
    std::string captionText(std::int64_t frameNumber, const FrameRational& framePeriod) const;

  private:
    struct PanelPlanes {
        PlaneView luma;
        PlaneView cr;
        PlaneView cb;
    };

    bool panelFits() const;
    void fillBackground(std::uint8_t* planes, std::int64_t cycleTime, int bitDepth) const;
    PanelPlanes chunkPanel(std::uint8_t* planes) const;
    PanelPlanes scratchPanel();
    void renderPanel(const PanelPlanes& panel, std::int64_t frameNumber, const FrameRational& framePeriod);
    void copyScratchPanel(std::uint8_t* planes, int bitDepth);
    const std::string& clockText();

    int m_width;
    int m_height;
    PanelFont m_font;
    std::vector<std::uint8_t> m_scratch;  // 8-bit panel in three planes, for depths above 8
    std::int64_t m_clockSecond = -1;
    std::string m_clockText;
};

}  // namespace ovtx::pattern::pattern_source::v1
