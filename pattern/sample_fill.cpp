#include "pattern/sample_fill.h"

#include <algorithm>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ovtx::pattern::pattern_source::v1 {

namespace {

// Below this size a fill stays in the cache, where ordinary stores are the faster ones.
constexpr std::size_t kStreamingBytes = 256 * 1024;

#if defined(__SSE2__)
constexpr std::size_t kLine = 64;

// Fills whole 64-byte lines from the 16-byte aligned `data` with non-temporal stores; returns the
// bytes filled.
std::size_t streamLines(std::uint8_t* data, std::size_t bytes, __m128i pattern) {
    const std::size_t lines = bytes / kLine;
    for (std::size_t i = 0; i < lines; ++i) {
        auto* line = reinterpret_cast<__m128i*>(data + i * kLine);
        _mm_stream_si128(line, pattern);
        _mm_stream_si128(line + 1, pattern);
        _mm_stream_si128(line + 2, pattern);
        _mm_stream_si128(line + 3, pattern);
    }
    // The stores are weakly ordered: make them visible before the chunk is committed.
    _mm_sfence();
    return lines * kLine;
}

template <typename Sample>
void streamFill(Sample* data, std::size_t count, Sample value, __m128i pattern) {
    // Head up to the first 16-byte boundary, then the lines, then the tail.
    std::size_t head = 0;
    while (head < count && reinterpret_cast<std::uintptr_t>(data + head) % 16 != 0) {
        data[head++] = value;
    }
    auto* body = reinterpret_cast<std::uint8_t*>(data + head);
    const std::size_t done =
        head + streamLines(body, (count - head) * sizeof(Sample), pattern) / sizeof(Sample);
    std::fill(data + done, data + count, value);
}
#endif

}  // namespace

void fillBytes(std::uint8_t* data, std::size_t count, std::uint8_t value) {
#if defined(__SSE2__)
    if (count >= kStreamingBytes) {
        streamFill(data, count, value, _mm_set1_epi8(static_cast<char>(value)));
        return;
    }
#endif
    std::memset(data, value, count);
}

void fillWords(std::uint16_t* data, std::size_t count, std::uint16_t value) {
#if defined(__SSE2__)
    if (count * sizeof(std::uint16_t) >= kStreamingBytes) {
        streamFill(data, count, value, _mm_set1_epi16(static_cast<short>(value)));
        return;
    }
#endif
    std::fill_n(data, count, value);
}

}  // namespace ovtx::pattern::pattern_source::v1
