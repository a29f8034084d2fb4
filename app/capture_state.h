// What a capture run shows of itself to other threads: the format the input carries and the audio
// statistics of the last slot. The REST service tree reads it from its worker threads while the
// capture loop runs on the main thread; every call is safe from any thread.
//
//   const CaptureState* engine = captureEngine.load();   // null on a pattern run
//   std::int32_t format = engine ? engine->detectedFormat() : -1;
#pragma once

#include <cstddef>
#include <cstdint>

namespace ovtx::app::sdi_tap::v1 {

// Sampling codes of the audio statistics: 1 48 kHz, 2 44.1 kHz, 3 32 kHz, 4 no audio.
struct AudioPairStatistic {
    std::int32_t detectedSampling = 0;
    std::int32_t percent = 0;  // of the expected size for the detected sampling
};

inline constexpr std::size_t kAudioStatisticPairs = 8;
inline constexpr std::size_t kQuadrantCount = 4;

class CaptureState {
  public:
    virtual ~CaptureState() = default;

    // The format code of the input (the joined 4K format in four-quadrant mode), NO_FORMAT when
    // there is no signal; read under the format detector's lock.
    virtual std::int32_t detectedFormat() const = 0;
    // The format of quadrant `quadrant` (0 to 3) in four-quadrant mode; throws std::out_of_range
    // outside the detector's list.
    virtual std::int32_t quadrantFormat(std::size_t quadrant) const = 0;
    // Pair `pair` (0 to 7) of the last slot; read without a lock, so a reader may see one field of
    // one slot and the other of the next. Throws std::out_of_range outside the eight pairs.
    virtual AudioPairStatistic audioStatistic(std::size_t pair) const = 0;
};

}  // namespace ovtx::app::sdi_tap::v1
