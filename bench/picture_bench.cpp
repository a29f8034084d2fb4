// Packed 4:2:2 to planar 4:2:0 at 720x576, 1920x1080 and 3840x2160: our conversion beside libyuv's
// UYVYToI420 on the same input in the same run, and the speed ratio libyuv time / our time.
//
//   picture_bench                  every size, hot and cold, every path this processor has
//   picture_bench --samples=400    calls timed per figure (default 200)
//   picture_bench --width=1920     one size only
//   picture_bench --all=0          the automatic choice only, not every path and store
//   picture_bench --path=2         one path alone (1 scalar, 2 SSE2, 3 AVX2)
//   picture_bench --cold-mib=512   the memory the cold runs rotate through (default 256)
//   picture_bench --offset=16      planes 16 bytes into page-aligned buffers (default 0), as a
//                                  ring chunk only 16-byte aligned could place them
//
// Hot: the same source and planes for every call, so that they stay in the cache as far as they
// fit. Cold: a ring of source and plane buffers larger than the last-level cache, a fresh pair
// for every call, so that every call reads and writes memory that isn't cached.
//
// Each call is timed alone, in batches of ours and libyuv's in turn, so that both see the same
// load of a shared machine (and each call finds what the previous call of the same converter left
// in the cache, as from frame to frame). A call that the scheduler interrupts only gets
// slower, so the figures are the 10th percentile of the calls ("ours us", "libyuv us", "ratio");
// "median ratio" is the ratio of the medians and "spread" how far our median lies above our
// 10th percentile. "r+w us" is the 10th percentile of reading the source and setting the planes
// (memset): roughly what the memory allows.
#include <libyuv/convert.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

#include "encoding/picture/packed_to_planar.h"

namespace {

using namespace ovtx::encoding::picture::v1;
using Clock = std::chrono::steady_clock;

struct Free {
    void operator()(std::uint8_t* p) const { std::free(p); }
};
using Buffer = std::unique_ptr<std::uint8_t, Free>;

// Page-aligned and touched, so that no page fault is timed.
Buffer makeBuffer(std::size_t bytes, std::uint8_t fill) {
    const std::size_t rounded = (bytes + 4095) / 4096 * 4096;
    Buffer b(static_cast<std::uint8_t*>(std::aligned_alloc(4096, rounded)));
    std::memset(b.get(), fill, rounded);
    return b;
}

struct Pair {
    Buffer source;
    Buffer planes;
};

struct Size {
    int width;
    int height;
    std::size_t sourceBytes() const { return static_cast<std::size_t>(width) * height * 2; }
    std::size_t planeBytes() const { return static_cast<std::size_t>(width) * height * 3 / 2; }
    std::size_t planeOffset = 0;  // where the planes start in their buffer, as after a chunk's header
};

std::vector<Pair> makePairs(Size size, std::size_t count) {
    std::mt19937 random(7);
    std::vector<Pair> pairs;
    for (std::size_t i = 0; i < count; ++i) {
        Pair p{makeBuffer(size.sourceBytes(), 0), makeBuffer(size.planeOffset + size.planeBytes(), 0)};
        for (std::size_t j = 0; j < size.sourceBytes(); ++j) {
            p.source.get()[j] = static_cast<std::uint8_t>(random());
        }
        pairs.push_back(std::move(p));
    }
    return pairs;
}

using Converter = std::function<void(const Pair&, Size)>;

Converter ours(ConvertOptions options) {
    return [options](const Pair& p, Size s) {
        convertPackedToPlanar(p.source.get(), 2 * s.width, p.planes.get() + s.planeOffset, s.width, s.height,
                              options);
    };
}

void libyuv(const Pair& p, Size s) {
    std::uint8_t* y = p.planes.get() + s.planeOffset;
    std::uint8_t* cr = y + static_cast<std::size_t>(s.width) * s.height;
    std::uint8_t* cb = cr + static_cast<std::size_t>(s.width) * s.height / 4;
    libyuv::UYVYToI420(p.source.get(), 2 * s.width, y, s.width, cb, s.width / 2, cr, s.width / 2, s.width,
                       s.height);
}

constexpr int kBatchCalls = 8;

double seconds(const Converter& convert, const Pair& pair, Size size) {
    const Clock::time_point begin = Clock::now();
    convert(pair, size);
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

double percentile(std::vector<double> v, double share) {
    std::sort(v.begin(), v.end());
    return v[static_cast<std::size_t>(share * static_cast<double>(v.size() - 1))];
}

// Hands out the pairs in ring order: hot rings hold one pair, cold ones enough to leave the cache.
class Ring {
  public:
    explicit Ring(const std::vector<Pair>& pairs) : m_pairs(pairs) {}
    const Pair& next() { return m_pairs[m_next++ % m_pairs.size()]; }

  private:
    const std::vector<Pair>& m_pairs;
    std::size_t m_next = 0;
};

struct Figures {
    double oursSeconds;    // 10th percentile
    double libyuvSeconds;  // 10th percentile
    double medianRatio;    // libyuv's median / ours
    double spread;         // (median - 10th percentile) / 10th percentile, ours
};

// Calls come in batches of one converter, so that a call finds in the cache what a call of the
// same converter left there (as from frame to frame in a capture); the first call of a batch,
// which finds the other's, isn't counted.
void timeBatch(const Converter& convert, Ring& ring, Size size, std::vector<double>& samples) {
    seconds(convert, ring.next(), size);
    for (int i = 0; i < kBatchCalls; ++i) {
        samples.push_back(seconds(convert, ring.next(), size));
    }
}

Figures compare(const Converter& mine, Ring& ring, Size size, int samples) {
    std::vector<double> a, b;
    for (int i = 0; i < samples / kBatchCalls; ++i) {
        if (i % 2 == 0) {
            timeBatch(mine, ring, size, a);
            timeBatch(libyuv, ring, size, b);
        } else {
            timeBatch(libyuv, ring, size, b);
            timeBatch(mine, ring, size, a);
        }
    }
    const double ours = percentile(a, 0.1);
    return {ours, percentile(b, 0.1), percentile(b, 0.5) / percentile(a, 0.5),
            (percentile(a, 0.5) - ours) / ours};
}

double memoryBound(Ring& ring, Size size, int samples) {
    const Converter readAndSet = [](const Pair& p, Size s) {
        std::uint64_t any = 0;
        const auto* words = reinterpret_cast<const std::uint64_t*>(p.source.get());
        for (std::size_t i = 0; i < s.sourceBytes() / 8; i += 8) {
            any |= words[i];  // one word of each cache line
        }
        std::memset(p.planes.get() + s.planeOffset, static_cast<int>(any & 1), s.planeBytes());
    };
    std::vector<double> t;
    for (int i = 0; i < samples; ++i) {
        t.push_back(seconds(readAndSet, ring.next(), size));
    }
    return percentile(t, 0.1);
}

const char* pathName(ConvertPath path) {
    switch (path) {
        case ConvertPath::Auto:
            return "auto";
        case ConvertPath::Scalar:
            return "scalar";
        case ConvertPath::Sse2:
            return "sse2";
        case ConvertPath::Avx2:
            return "avx2";
    }
    return "?";
}

const char* storeName(StoreMode store) {
    switch (store) {
        case StoreMode::Auto:
            return "auto";
        case StoreMode::Cached:
            return "cached";
        case StoreMode::Streaming:
            return "stream";
    }
    return "?";
}

// Luma has no averaging on either side: the two must agree there.
bool lumaAgrees(const Pair& p, Size s) {
    Pair mine{nullptr, makeBuffer(s.planeBytes(), 0)};
    Pair theirs{nullptr, makeBuffer(s.planeBytes(), 1)};
    convertPackedToPlanar(p.source.get(), 2 * s.width, mine.planes.get(), s.width, s.height);
    libyuv::UYVYToI420(p.source.get(), 2 * s.width, theirs.planes.get(), s.width,
                       theirs.planes.get() + s.width * s.height, s.width / 2,
                       theirs.planes.get() + s.width * s.height * 5 / 4, s.width / 2, s.width, s.height);
    return std::memcmp(mine.planes.get(), theirs.planes.get(),
                       static_cast<std::size_t>(s.width) * s.height) == 0;
}

long argument(int argc, char** argv, const std::string& name, long fallback) {
    const std::string prefix = "--" + name + "=";
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]).rfind(prefix, 0) == 0) {
            return std::atol(argv[i] + prefix.size());
        }
    }
    return fallback;
}

}  // namespace

int main(int argc, char** argv) {
    const int samples = static_cast<int>(argument(argc, argv, "samples", 200));
    const std::size_t coldBytes = static_cast<std::size_t>(argument(argc, argv, "cold-mib", 256)) << 20;
    std::printf("last-level cache reported: %ld KiB; cold runs rotate through %zu MiB; best path: %s\n",
                sysconf(_SC_LEVEL3_CACHE_SIZE) / 1024, coldBytes >> 20, pathName(bestConvertPath()));
    std::printf("%-10s %-5s %-6s %-7s %10s %10s %8s %12s %8s %10s\n", "size", "cache", "path", "store",
                "ours us", "libyuv us", "ratio", "median ratio", "spread", "r+w us");

    std::vector<std::pair<ConvertPath, StoreMode>> variants = {{ConvertPath::Auto, StoreMode::Auto}};
    for (ConvertPath path : {ConvertPath::Avx2, ConvertPath::Sse2}) {
        if (convertPathAvailable(path)) {
            variants.emplace_back(path, StoreMode::Cached);
            variants.emplace_back(path, StoreMode::Streaming);
        }
    }
    variants.emplace_back(ConvertPath::Scalar, StoreMode::Cached);
    if (argument(argc, argv, "all", 1) == 0) {
        variants.resize(1);
    }
    // --path=1 scalar, 2 SSE2, 3 AVX2: that path alone.
    if (const long onlyPath = argument(argc, argv, "path", 0); onlyPath != 0) {
        std::erase_if(variants, [onlyPath](auto v) { return static_cast<long>(v.first) != onlyPath; });
    }

    const long onlyWidth = argument(argc, argv, "width", 0);
    const auto planeOffset = static_cast<std::size_t>(argument(argc, argv, "offset", 0));
    for (Size size : {Size{720, 576}, Size{1920, 1080}, Size{3840, 2160}}) {
        size.planeOffset = planeOffset;
        if (onlyWidth != 0 && size.width != onlyWidth) {
            continue;
        }
        const std::size_t pairBytes = size.sourceBytes() + size.planeBytes();
        const std::vector<Pair> hot = makePairs(size, 1);
        const std::vector<Pair> cold = makePairs(size, std::max<std::size_t>(2, coldBytes / pairBytes + 1));
        if (!lumaAgrees(hot.front(), size)) {
            std::printf("%dx%d: our luma differs from libyuv's\n", size.width, size.height);
            return 1;
        }
        for (bool isHot : {true, false}) {
            Ring ring(isHot ? hot : cold);
            const double bound = memoryBound(ring, size, samples);
            for (auto [path, store] : variants) {
                const Figures f = compare(ours({path, store}), ring, size, samples);
                std::printf("%4dx%-5d %-5s %-6s %-7s %10.1f %10.1f %7.2fx %11.2fx %7.1f%% %10.1f\n",
                            size.width, size.height, isHot ? "hot" : "cold", pathName(path), storeName(store),
                            f.oursSeconds * 1e6, f.libyuvSeconds * 1e6, f.libyuvSeconds / f.oursSeconds,
                            f.medianRatio, f.spread * 100, bound * 1e6);
                std::fflush(stdout);
            }
        }
    }
    return 0;
}
