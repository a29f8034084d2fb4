#include "encoding/picture/packed_to_planar.h"

#include <cstddef>

#if defined(__x86_64__)
#include <immintrin.h>
#define SDI_TAP_PICTURE_X86 1
#endif

namespace ovtx::encoding::picture::v1 {
namespace {

constexpr int kBlockPixels = 32;

// One call's geometry: rows pair up, the vector loop covers [0, vectorWidth) of each row and the
// scalar tail the rest. The loops take it by value: stores through byte pointers could otherwise
// alias it, and its fields would be read again after every store.
struct Frame {
    const std::uint8_t* source;
    std::int64_t pitch;
    std::uint8_t* luma;
    std::uint8_t* cr;  // second plane: byte 2 of each group
    std::uint8_t* cb;  // third plane: byte 0 of each group
    std::int64_t width;
    std::int64_t height;
    std::int64_t vectorWidth;
};

struct RowPair {
    const std::uint8_t* even;
    const std::uint8_t* odd;
    std::uint8_t* luma0;
    std::uint8_t* luma1;
    std::uint8_t* cr;
    std::uint8_t* cb;
};

inline RowPair rowPair(const Frame& f, std::int64_t row) {
    const std::uint8_t* even = f.source + row * f.pitch;
    std::uint8_t* luma0 = f.luma + row * f.width;
    const std::int64_t chroma = row / 2 * (f.width / 2);
    return {even, even + f.pitch, luma0, luma0 + f.width, f.cr + chroma, f.cb + chroma};
}

// Two pixels at a time from `from` to the end of the row: the even row gives luma and chroma,
// the odd row luma alone.
inline void convertEvenTail(const RowPair& r, std::int64_t from, std::int64_t width) {
    for (std::int64_t x = from; x < width; x += 2) {
        const std::uint8_t* group = r.even + 2 * x;
        r.luma0[x] = group[1];
        r.luma0[x + 1] = group[3];
        r.cb[x / 2] = group[0];
        r.cr[x / 2] = group[2];
    }
}

inline void convertOddTail(const RowPair& r, std::int64_t from, std::int64_t width) {
    for (std::int64_t x = from; x < width; x += 2) {
        const std::uint8_t* group = r.odd + 2 * x;
        r.luma1[x] = group[1];
        r.luma1[x + 1] = group[3];
    }
}

void convertScalar(const Frame& f) {
    for (std::int64_t row = 0; row < f.height; row += 2) {
        const RowPair r = rowPair(f, row);
        convertEvenTail(r, 0, f.width);
        convertOddTail(r, 0, f.width);
    }
}

#ifdef SDI_TAP_PICTURE_X86

inline __m128i load128(const std::uint8_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

// How the vector loops store: through the cache (0), or streamed past it with stores of 16 or 32
// bytes, each aligned to its width.
constexpr int kCached = 0;

template <int StreamWidth>
inline void store128(std::uint8_t* to, __m128i v) {
    if constexpr (StreamWidth != kCached) {
        _mm_stream_si128(reinterpret_cast<__m128i*>(to), v);
    } else {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), v);
    }
}

// Each row is read in one sequential sweep, with the line this far ahead asked for in advance:
// the hardware's own prefetch alone leaves the memory idle between requests. A prefetch never
// faults, so it may reach past the end of the source.
constexpr std::uintptr_t kPrefetchBytes = 4096;

inline void prefetch(const std::uint8_t* at) {
    _mm_prefetch(reinterpret_cast<const char*>(reinterpret_cast<std::uintptr_t>(at) + kPrefetchBytes),
                 _MM_HINT_T0);
}

// 16 luma bytes of 8 + 8 pixels.
inline __m128i lumaSse2(__m128i a, __m128i b) {
    return _mm_packus_epi16(_mm_srli_epi16(a, 8), _mm_srli_epi16(b, 8));
}

// Each row pair in two sweeps, the even row (luma and chroma) then the odd row (luma): the
// source is then read, and the luma written, in one sequential stream each.
template <int StreamWidth>
void convertSse2(const Frame f) {
    const __m128i low = _mm_set1_epi16(0x00FF);
    for (std::int64_t row = 0; row < f.height; row += 2) {
        const RowPair r = rowPair(f, row);
        for (std::int64_t x = 0; x < f.vectorWidth; x += kBlockPixels) {
            const std::uint8_t* even = r.even + 2 * x;
            prefetch(even);
            const __m128i e0 = load128(even), e1 = load128(even + 16);
            const __m128i e2 = load128(even + 32), e3 = load128(even + 48);
            store128<StreamWidth>(r.luma0 + x, lumaSse2(e0, e1));
            store128<StreamWidth>(r.luma0 + x + 16, lumaSse2(e2, e3));
            // Bytes 0 and 2 of each group as 16-bit words, then split.
            const __m128i c0 = _mm_packus_epi16(_mm_and_si128(e0, low), _mm_and_si128(e1, low));
            const __m128i c1 = _mm_packus_epi16(_mm_and_si128(e2, low), _mm_and_si128(e3, low));
            store128<StreamWidth>(r.cb + x / 2,
                                  _mm_packus_epi16(_mm_and_si128(c0, low), _mm_and_si128(c1, low)));
            store128<StreamWidth>(r.cr + x / 2,
                                  _mm_packus_epi16(_mm_srli_epi16(c0, 8), _mm_srli_epi16(c1, 8)));
        }
        convertEvenTail(r, f.vectorWidth, f.width);
        for (std::int64_t x = 0; x < f.vectorWidth; x += kBlockPixels) {
            const std::uint8_t* odd = r.odd + 2 * x;
            prefetch(odd);
            store128<StreamWidth>(r.luma1 + x, lumaSse2(load128(odd), load128(odd + 16)));
            store128<StreamWidth>(r.luma1 + x + 16, lumaSse2(load128(odd + 32), load128(odd + 48)));
        }
        convertOddTail(r, f.vectorWidth, f.width);
    }
    if constexpr (StreamWidth != kCached) {
        _mm_sfence();
    }
}

__attribute__((target("avx2"))) inline __m256i load256(const std::uint8_t* from) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
}

template <int StreamWidth>
__attribute__((target("avx2"))) inline void store256(std::uint8_t* to, __m256i v) {
    if constexpr (StreamWidth == 32) {
        _mm256_stream_si256(reinterpret_cast<__m256i*>(to), v);
    } else if constexpr (StreamWidth == 16) {
        store128<StreamWidth>(to, _mm256_castsi256_si128(v));
        store128<StreamWidth>(to + 16, _mm256_extracti128_si256(v, 1));
    } else {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), v);
    }
}

// 32 luma bytes of the 32 pixels in `a` and `b`: packing works within each 128-bit lane, so the
// four quarters come out in the order 0 2 1 3.
__attribute__((target("avx2"))) inline __m256i lumaAvx2(__m256i a, __m256i b) {
    return _mm256_permute4x64_epi64(_mm256_packus_epi16(_mm256_srli_epi16(a, 8), _mm256_srli_epi16(b, 8)),
                                    0xD8);
}

// The same two sweeps per row pair as the SSE2 loop, reading the source in order.
template <int StreamWidth>
__attribute__((target("avx2"))) void convertAvx2(const Frame f) {
    const __m256i low = _mm256_set1_epi16(0x00FF);
    // Bytes 0 of groups 0-3, 8-11 | 4-7, 12-15 and bytes 2 likewise, as dwords, put in order.
    const __m256i chromaOrder = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    for (std::int64_t row = 0; row < f.height; row += 2) {
        const RowPair r = rowPair(f, row);
        for (std::int64_t x = 0; x < f.vectorWidth; x += kBlockPixels) {
            const std::uint8_t* even = r.even + 2 * x;
            prefetch(even);
            const __m256i a = load256(even), b = load256(even + 32);
            store256<StreamWidth>(r.luma0 + x, lumaAvx2(a, b));
            const __m256i chroma = _mm256_packus_epi16(_mm256_and_si256(a, low), _mm256_and_si256(b, low));
            const __m256i split = _mm256_permutevar8x32_epi32(
                _mm256_packus_epi16(_mm256_and_si256(chroma, low), _mm256_srli_epi16(chroma, 8)),
                chromaOrder);
            store128<StreamWidth>(r.cb + x / 2, _mm256_castsi256_si128(split));
            store128<StreamWidth>(r.cr + x / 2, _mm256_extracti128_si256(split, 1));
        }
        convertEvenTail(r, f.vectorWidth, f.width);
        for (std::int64_t x = 0; x < f.vectorWidth; x += kBlockPixels) {
            const std::uint8_t* odd = r.odd + 2 * x;
            prefetch(odd);
            store256<StreamWidth>(r.luma1 + x, lumaAvx2(load256(odd), load256(odd + 32)));
        }
        convertOddTail(r, f.vectorWidth, f.width);
    }
    if constexpr (StreamWidth != kCached) {
        _mm_sfence();
    }
}

bool cpuHasAvx2() {
    static const bool has = __builtin_cpu_supports("avx2");
    return has;
}

// The width of streamed stores that every row of every plane is aligned for, or kCached. The
// planes stand back to back, so with a width that is a multiple of 32 every luma row has the
// alignment of the first (up to 32) and every chroma row is aligned to 16 at least.
int streamWidth(const Frame& f, StoreMode mode, int widest) {
    const bool large = f.width * f.height * 3 / 2 >= kStreamingThresholdBytes;
    if (mode == StoreMode::Cached || (mode == StoreMode::Auto && !large) || f.width % kBlockPixels != 0) {
        return kCached;
    }
    const auto base = reinterpret_cast<std::uintptr_t>(f.luma);
    if (widest == 32 && base % 32 == 0) {
        return 32;
    }
    return base % 16 == 0 ? 16 : kCached;
}

void convertAvx2With(int width, const Frame& f) {
    switch (width) {
        case 32:
            return convertAvx2<32>(f);
        case 16:
            return convertAvx2<16>(f);
        default:
            return convertAvx2<kCached>(f);
    }
}

#endif  // SDI_TAP_PICTURE_X86

}  // namespace

bool convertPathAvailable(ConvertPath path) {
    switch (path) {
        case ConvertPath::Auto:
        case ConvertPath::Scalar:
            return true;
#ifdef SDI_TAP_PICTURE_X86
        case ConvertPath::Sse2:
            return true;
        case ConvertPath::Avx2:
            return cpuHasAvx2();
#else
        case ConvertPath::Sse2:
        case ConvertPath::Avx2:
            return false;
#endif
    }
    return false;
}

ConvertPath bestConvertPath() {
    for (ConvertPath path : {ConvertPath::Avx2, ConvertPath::Sse2}) {
        if (convertPathAvailable(path)) {
            return path;
        }
    }
    return ConvertPath::Scalar;
}

int convertPackedToPlanar(const std::uint8_t* source, std::int64_t pitch, std::uint8_t* planes, int width,
                          int height, ConvertOptions options) {
    if (source == nullptr || planes == nullptr) {
        return kConvertNullPointer;
    }
    if (width < 2 || height < 2) {
        return kConvertTooSmall;
    }
    const std::int64_t w = width & ~1;
    const std::int64_t h = height & ~1;
    const std::int64_t lumaBytes = w * h;
    Frame f{source, pitch, planes, planes + lumaBytes, planes + lumaBytes + lumaBytes / 4, w, h, 0};

    ConvertPath path = options.path;
    if (path == ConvertPath::Auto || !convertPathAvailable(path)) {
        path = bestConvertPath();
        // Measured: where rows don't start on 32-byte boundaries (a width such as 720), the SSE2
        // loop is the faster one on memory that isn't cached, by about a quarter.
        if (path == ConvertPath::Avx2 && options.path == ConvertPath::Auto && w % kBlockPixels != 0) {
            path = ConvertPath::Sse2;
        }
    }
    if (path == ConvertPath::Scalar) {
        convertScalar(f);
        return kConvertDone;
    }
#ifdef SDI_TAP_PICTURE_X86
    f.vectorWidth = w / kBlockPixels * kBlockPixels;
    if (path == ConvertPath::Avx2) {
        convertAvx2With(streamWidth(f, options.store, 32), f);
    } else {
        streamWidth(f, options.store, 16) == kCached ? convertSse2<kCached>(f) : convertSse2<16>(f);
    }
#endif
    return kConvertDone;
}

}  // namespace ovtx::encoding::picture::v1
