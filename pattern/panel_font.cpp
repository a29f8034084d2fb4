#include "pattern/panel_font.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <memory>

namespace ovtx::pattern::pattern_source::v1 {

namespace {

struct FontMatch {
    std::string file;
    int faceIndex = 0;
};

// The file of fontconfig's best match for `family`; empty when fontconfig knows no font at all.
FontMatch matchFont(const char* family) {
    FontMatch match;
    std::unique_ptr<FcConfig, decltype(&FcConfigDestroy)> config(FcInitLoadConfigAndFonts(), FcConfigDestroy);
    if (!config) {
        return match;
    }
    std::unique_ptr<FcPattern, decltype(&FcPatternDestroy)> pattern(
        FcNameParse(reinterpret_cast<const FcChar8*>(family)), FcPatternDestroy);
    if (!pattern) {
        return match;
    }
    FcConfigSubstitute(config.get(), pattern.get(), FcMatchPattern);
    FcDefaultSubstitute(pattern.get());
    FcResult result = FcResultNoMatch;
    std::unique_ptr<FcPattern, decltype(&FcPatternDestroy)> best(
        FcFontMatch(config.get(), pattern.get(), &result), FcPatternDestroy);
    FcChar8* file = nullptr;
    if (best && FcPatternGetString(best.get(), FC_FILE, 0, &file) == FcResultMatch && file != nullptr) {
        match.file = reinterpret_cast<const char*>(file);
        FcPatternGetInteger(best.get(), FC_INDEX, 0, &match.faceIndex);
    }
    return match;
}

struct LibraryCloser {
    void operator()(FT_Library library) const { FT_Done_FreeType(library); }
};
struct FaceCloser {
    void operator()(FT_Face face) const { FT_Done_Face(face); }
};

}  // namespace

PanelFont::PanelFont(const char* family, int pixelSize) {
    const FontMatch match = matchFont(family);
    if (!match.file.empty() && load(match.file, match.faceIndex, pixelSize)) {
        m_fontFile = match.file;
    }
}

bool PanelFont::load(const std::string& file, int faceIndex, int pixelSize) {
    FT_Library rawLibrary = nullptr;
    if (FT_Init_FreeType(&rawLibrary) != 0) {
        return false;
    }
    std::unique_ptr<FT_LibraryRec_, LibraryCloser> library(rawLibrary);
    FT_Face rawFace = nullptr;
    if (FT_New_Face(library.get(), file.c_str(), faceIndex, &rawFace) != 0) {
        return false;
    }
    std::unique_ptr<FT_FaceRec_, FaceCloser> face(rawFace);
    if (FT_Set_Pixel_Sizes(face.get(), 0, static_cast<FT_UInt>(pixelSize)) != 0) {
        return false;
    }
    m_ascender = static_cast<int>(face->size->metrics.ascender >> 6);
    for (char c = kFirstGlyph; c <= kLastGlyph; ++c) {
        if (FT_Load_Char(face.get(), static_cast<FT_ULong>(c), FT_LOAD_RENDER) != 0) {
            continue;  // the glyph stays empty and draws nothing
        }
        const FT_GlyphSlot slot = face->glyph;
        const FT_Bitmap& bitmap = slot->bitmap;
        Glyph& glyph = m_glyphs[static_cast<std::size_t>(c - kFirstGlyph)];
        glyph.width = static_cast<int>(bitmap.width);
        glyph.rows = static_cast<int>(bitmap.rows);
        glyph.left = slot->bitmap_left;
        glyph.top = slot->bitmap_top;
        glyph.advance = static_cast<int>(slot->advance.x >> 6);
        glyph.coverage.resize(static_cast<std::size_t>(glyph.width) * static_cast<std::size_t>(glyph.rows));
        for (int y = 0; y < glyph.rows; ++y) {
            const unsigned char* source = bitmap.buffer + static_cast<std::ptrdiff_t>(y) * bitmap.pitch;
            std::copy_n(source, glyph.width,
                        glyph.coverage.begin() + static_cast<std::ptrdiff_t>(y) * glyph.width);
        }
    }
    return true;
}

const PanelFont::Glyph* PanelFont::glyph(char c) const {
    if (c < kFirstGlyph || c > kLastGlyph) {
        return nullptr;
    }
    return &m_glyphs[static_cast<std::size_t>(c - kFirstGlyph)];
}

int PanelFont::textWidth(std::string_view text) const {
    int width = 0;
    for (char c : text) {
        if (const Glyph* g = glyph(c)) {
            width += g->advance;
        }
    }
    return width;
}

void PanelFont::drawText(const PlaneView& plane, int x, int y, std::string_view text,
                         std::uint8_t level) const {
    if (!valid()) {
        return;
    }
    int penX = x;
    for (char c : text) {
        const Glyph* g = glyph(c);
        if (g == nullptr) {
            continue;
        }
        drawGlyph(plane, *g, penX, y + m_ascender, level);
        penX += g->advance;
    }
}

void PanelFont::drawGlyph(const PlaneView& plane, const Glyph& glyph, int penX, int baseline,
                          std::uint8_t level) const {
    const int left = penX + glyph.left;
    const int top = baseline - glyph.top;
    const int firstRow = std::max(0, -top);
    const int lastRow = std::min(glyph.rows, plane.height - top);
    const int firstColumn = std::max(0, -left);
    const int lastColumn = std::min(glyph.width, plane.width - left);
    for (int gy = firstRow; gy < lastRow; ++gy) {
        std::uint8_t* out = plane.row(top + gy) + left;
        const std::uint8_t* coverage = glyph.coverage.data() + static_cast<std::ptrdiff_t>(gy) * glyph.width;
        for (int gx = firstColumn; gx < lastColumn; ++gx) {
            const int alpha = coverage[gx];
            const int old = out[gx];
            out[gx] =
                static_cast<std::uint8_t>(old + ((level - old) * alpha + (level >= old ? 127 : -127)) / 255);
        }
    }
}

}  // namespace ovtx::pattern::pattern_source::v1
