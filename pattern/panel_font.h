// Text for the test card's panel: the glyphs of the font that fontconfig matches for a family
// name, rendered once by FreeType and then drawn as 8-bit coverage onto a luma plane.
//
// Rendering every glyph once at start keeps the per-frame cost of text to a few small blits:
//
//   PanelFont font("Segoe UI", 20);   // the best match, DejaVu Sans on a Debian machine
//   PlaneView luma{chunkLuma, width, height, width};
//   font.drawText(luma, 10, 10, "Frame #12", 235);
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ovtx::pattern::pattern_source::v1 {

// A window on one 8-bit plane.
struct PlaneView {
    std::uint8_t* data = nullptr;
    int width = 0;
    int height = 0;
    std::ptrdiff_t stride = 0;  // bytes from one row to the next

    std::uint8_t* row(int y) const { return data + y * stride; }
};

class PanelFont {
  public:
    // Asks fontconfig for `family`, takes its best match and renders the printable ASCII glyphs at
    // `pixelSize`. Without any usable font the object is empty (valid() false) and draws nothing.
    PanelFont(const char* family, int pixelSize);

    bool valid() const { return !m_fontFile.empty(); }
    // The file of the matched font; empty when none could be loaded.
    const std::string& fontFile() const { return m_fontFile; }
    // Pixels from the top of a line to its baseline.
    int ascender() const { return m_ascender; }

    // Draws one line of `text` with the top of the line at `y`, starting at `x`, blending `level`
    // over the plane by each glyph's coverage. Characters outside printable ASCII are skipped;
    // whatever falls outside the plane is clipped.
    void drawText(const PlaneView& plane, int x, int y, std::string_view text, std::uint8_t level) const;

    // Width in pixels of `text` as drawText lays it out.
    int textWidth(std::string_view text) const;

  private:
    struct Glyph {
        std::vector<std::uint8_t> coverage;  // rows x width, 0 to 255
        int width = 0;
        int rows = 0;
        int left = 0;  // from the pen to the bitmap's left edge
        int top = 0;   // from the baseline up to the bitmap's top edge
        int advance = 0;
    };
    static constexpr char kFirstGlyph = ' ';
    static constexpr char kLastGlyph = '~';

    bool load(const std::string& file, int faceIndex, int pixelSize);
    const Glyph* glyph(char c) const;
    void drawGlyph(const PlaneView& plane, const Glyph& glyph, int penX, int baseline,
                   std::uint8_t level) const;

    std::array<Glyph, kLastGlyph - kFirstGlyph + 1> m_glyphs;
    int m_ascender = 0;
    std::string m_fontFile;
};

}  // namespace ovtx::pattern::pattern_source::v1
