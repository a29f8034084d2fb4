// Packed 4:2:2 (8-bit, groups of four bytes Cb Y Cr Y, two pixels each) to planar 4:2:0, the
// conversion the capture engine runs on every frame of a board that delivers packed pictures.
//
// The picture comes out as three planes, back to back and unpadded: luma (w x h), then the plane
// of byte 2 of each group (Cr, w/2 x h/2), then the plane of byte 0 (Cb). Chroma is taken from the
// even row of each pair alone; the odd row's chroma is dropped, nothing is averaged. Rows are
// handled in pairs, 32 pixels at a time with vector instructions (AVX2 or SSE2, whichever the
// processor has) and the rest of a row two pixels at a time; every path gives the same bytes.
//
//   std::vector<std::uint8_t> planes(w * h * 3 / 2);
//   convertPackedToPlanar(working.data(), 2 * w, planes.data(), w, h);
//
// Large pictures are written with streaming (non-temporal) stores where the planes are aligned
// for them, so that a frame that can't stay in the cache doesn't evict what can.
#pragma once

#include <cstdint>
#include <string_view>

namespace ovtx::encoding::picture::v1 {

// Results of `convertPackedToPlanar`.
inline constexpr int kConvertDone = 0;
inline constexpr int kConvertNullPointer = -8;  // null source or planes
inline constexpr int kConvertTooSmall = -6;     // width or height below 2

// The inner loop that converts 32 pixels at a time. `Auto` is the best the processor has (SSE2
// rather than AVX2 for widths that aren't a multiple of 32).
enum class ConvertPath { Auto, Scalar, Sse2, Avx2 };

// How the planes are stored: `Auto` streams past the cache when the planes are large (at least
// `kStreamingThresholdBytes`), `Cached` and `Streaming` force a way. Streaming needs a width that
// is a multiple of 32 and planes aligned to 16 bytes; without them the stores go through the cache.
enum class StoreMode { Auto, Cached, Streaming };
inline constexpr std::int64_t kStreamingThresholdBytes = 1024 * 1024;

struct ConvertOptions {
    ConvertPath path = ConvertPath::Auto;
    StoreMode store = StoreMode::Auto;
};

// Whether this processor (and this build) can run `path`.
bool convertPathAvailable(ConvertPath path);

// The widest path this processor has: what `Auto` runs for widths that are a multiple of 32.
ConvertPath bestConvertPath();

// Converts `height` rows of `width` pixels, `pitch` bytes apart in `source` (at least 2 x width),
// into the planes at `planes`. Width and height are rounded down to even, and the planes are laid
// out for the rounded size (luma w x h, then w/2 x h/2 twice). Returns kConvertDone,
// kConvertNullPointer or kConvertTooSmall; nothing is written on failure. A path the processor
// lacks falls back to the best one it has.
int convertPackedToPlanar(const std::uint8_t* source, std::int64_t pitch, std::uint8_t* planes, int width,
                          int height, ConvertOptions options = {});

}  // namespace ovtx::encoding::picture::v1
