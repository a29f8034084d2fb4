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
// scalar tail the rest.
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

// Two pixels at a time from `from` to the end of the row pair.
inline void convertTail(const RowPair& r, std::int64_t from, std::int64_t width) {
    for (std::int64_t x = from; x < width; x += 2) {
        const std::uint8_t* even = r.even + 2 * x;
        const std::uint8_t* odd = r.odd + 2 * x;
        r.luma0[x] = even[1];
        r.luma0[x + 1] = even[3];
        r.luma1[x] = odd[1];
        r.luma1[x + 1] = odd[3];
        r.cb[x / 2] = even[0];
        r.cr[x / 2] = even[2];
    }
}

void convertScalar(const Frame& f) {
    for (std::int64_t row = 0; row < f.height; row += 2) {
        convertTail(rowPair(f, row), 0, f.width);
    }
}

#ifdef SDI_TAP_PICTURE_X86

// How the vector loop stores: through the cache, or streamed past it with 16-byte (32-byte for
// AVX2 luma) stores that need the planes aligned to that width, or narrow streamed stores (16
// bytes of luma, 8 of chroma) for widths that are a multiple of 16 but not of 32, such as 720.
enum class Stores { Cached, Streamed, StreamedNarrow };

inline __m128i load128(const std::uint8_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

template <Stores S>
inline void storeLuma(std::uint8_t* to, __m128i v) {
    if constexpr (S == Stores::Cached) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), v);
    } else {
        _mm_stream_si128(reinterpret_cast<__m128i*>(to), v);
    }
}

template <Stores S>
inline void storeChroma(std::uint8_t* to, __m128i v) {
    if constexpr (S == Stores::StreamedNarrow) {
        _mm_stream_si64(reinterpret_cast<long long*>(to), _mm_cvtsi128_si64(v));
        _mm_stream_si64(reinterpret_cast<long long*>(to + 8), _mm_cvtsi128_si64(_mm_unpackhi_epi64(v, v)));
    } else {
        storeLuma<S>(to, v);
    }
}

// 16 luma bytes of 8 + 8 pixels.
inline __m128i lumaSse2(__m128i a, __m128i b) {
    return _mm_packus_epi16(_mm_srli_epi16(a, 8), _mm_srli_epi16(b, 8));
}

template <Stores S>
void convertSse2(const Frame& f) {
    const __m128i low = _mm_set1_epi16(0x00FF);
    for (std::int64_t row = 0; row < f.height; row += 2) {
        const RowPair r = rowPair(f, row);
        for (std::int64_t x = 0; x < f.vectorWidth; x += kBlockPixels) {
            const std::uint8_t* even = r.even + 2 * x;
            const std::uint8_t* odd = r.odd + 2 * x;
            const __m128i e0 = load128(even), e1 = load128(even + 16);
            const __m128i e2 = load128(even + 32), e3 = load128(even + 48);
            storeLuma<S>(r.luma0 + x, lumaSse2(e0, e1));
            storeLuma<S>(r.luma0 + x + 16, lumaSse2(e2, e3));
            storeLuma<S>(r.luma1 + x, lumaSse2(load128(odd), load128(odd + 16)));
            storeLuma<S>(r.luma1 + x + 16, lumaSse2(load128(odd + 32), load128(odd + 48)));
            // Bytes 0 and 2 of each group as 16-bit words, then split.
            const __m128i c0 = _mm_packus_epi16(_mm_and_si128(e0, low), _mm_and_si128(e1, low));
            const __m128i c1 = _mm_packus_epi16(_mm_and_si128(e2, low), _mm_and_si128(e3, low));
            storeChroma<S>(r.cb + x / 2, _mm_packus_epi16(_mm_and_si128(c0, low), _mm_and_si128(c1, low)));
            storeChroma<S>(r.cr + x / 2, _mm_packus_epi16(_mm_srli_epi16(c0, 8), _mm_srli_epi16(c1, 8)));
        }
        convertTail(r, f.vectorWidth, f.width);
    }
    if constexpr (S != Stores::Cached) {
        _mm_sfence();
    }
}

// Pixels 0-7 in the low lane and 16-23 in the high lane of the 32 pixels at `from` (or 8-15 and
// 24-31 from `from + 16`): packing two such registers keeps pixels in order without a
// cross-lane shuffle.
__attribute__((target("avx2"))) inline __m256i loadSplit(const std::uint8_t* from) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(load128(from)), load128(from + 32), 1);
}

__attribute__((target("avx2"))) inline __m256i lumaAvx2(const std::uint8_t* block) {
    return _mm256_packus_epi16(_mm256_srli_epi16(loadSplit(block), 8),
                               _mm256_srli_epi16(loadSplit(block + 16), 8));
}

template <Stores S>
__attribute__((target("avx2"))) inline void storeLuma256(std::uint8_t* to, __m256i v) {
    if constexpr (S == Stores::Cached) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), v);
    } else if constexpr (S == Stores::Streamed) {
        _mm256_stream_si256(reinterpret_cast<__m256i*>(to), v);
    } else {
        storeLuma<S>(to, _mm256_castsi256_si128(v));
        storeLuma<S>(to + 16, _mm256_extracti128_si256(v, 1));
    }
}

template <Stores S>
__attribute__((target("avx2"))) void convertAvx2(const Frame& f) {
    const __m256i low = _mm256_set1_epi16(0x00FF);
    for (std::int64_t row = 0; row < f.height; row += 2) {
        const RowPair r = rowPair(f, row);
        for (std::int64_t x = 0; x < f.vectorWidth; x += kBlockPixels) {
            const std::uint8_t* even = r.even + 2 * x;
            const __m256i a = loadSplit(even), b = loadSplit(even + 16);
            storeLuma256<S>(r.luma0 + x,
                            _mm256_packus_epi16(_mm256_srli_epi16(a, 8), _mm256_srli_epi16(b, 8)));
            storeLuma256<S>(r.luma1 + x, lumaAvx2(r.odd + 2 * x));
            // Groups 0-7 | 8-15 as (byte 0, byte 2) words, then all bytes 0 | all bytes 2.
            const __m256i c = _mm256_packus_epi16(_mm256_and_si256(a, low), _mm256_and_si256(b, low));
            const __m256i split = _mm256_permute4x64_epi64(
                _mm256_packus_epi16(_mm256_and_si256(c, low), _mm256_srli_epi16(c, 8)), 0xD8);
            storeChroma<S>(r.cb + x / 2, _mm256_castsi256_si128(split));
            storeChroma<S>(r.cr + x / 2, _mm256_extracti128_si256(split, 1));
        }
        convertTail(r, f.vectorWidth, f.width);
    }
    if constexpr (S != Stores::Cached) {
        _mm_sfence();
    }
}

bool cpuHasAvx2() {
    static const bool has = __builtin_cpu_supports("avx2");
    return has;
}

#endif  // SDI_TAP_PICTURE_X86

#ifdef SDI_TAP_PICTURE_X86
bool alignedTo(const void* address, std::int64_t alignment) {
    return reinterpret_cast<std::uintptr_t>(address) % static_cast<std::uintptr_t>(alignment) == 0;
}

// The widest streamed stores that every row of every plane is aligned for. The planes stand back
// to back, so luma rows share the width's alignment and chroma rows half of it.
Stores chooseStores(const Frame& f, StoreMode mode, std::int64_t widestLumaStore) {
    const bool large = f.width * f.height * 3 / 2 >= kStreamingThresholdBytes;
    if (mode == StoreMode::Cached || (mode == StoreMode::Auto && !large)) {
        return Stores::Cached;
    }
    if (f.width % 32 == 0 && alignedTo(f.luma, widestLumaStore)) {
        return Stores::Streamed;
    }
    return f.width % 16 == 0 && alignedTo(f.luma, 16) ? Stores::StreamedNarrow : Stores::Cached;
}

template <template <Stores> class Kernel>
void runWith(Stores stores, const Frame& f) {
    switch (stores) {
        case Stores::Cached:
            return Kernel<Stores::Cached>::run(f);
        case Stores::Streamed:
            return Kernel<Stores::Streamed>::run(f);
        case Stores::StreamedNarrow:
            return Kernel<Stores::StreamedNarrow>::run(f);
    }
}

template <Stores S>
struct Sse2Kernel {
    static void run(const Frame& f) { convertSse2<S>(f); }
};

template <Stores S>
struct Avx2Kernel {
    static void run(const Frame& f) { convertAvx2<S>(f); }
};
#endif

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
    }
    if (path == ConvertPath::Scalar) {
        convertScalar(f);
        return kConvertDone;
    }
#ifdef SDI_TAP_PICTURE_X86
    f.vectorWidth = w / kBlockPixels * kBlockPixels;
    if (path == ConvertPath::Avx2) {
        runWith<Avx2Kernel>(chooseStores(f, options.store, 32), f);
    } else {
        runWith<Sse2Kernel>(chooseStores(f, options.store, 16), f);
    }
#endif
    return kConvertDone;
}

}  // namespace ovtx::encoding::picture::v1
