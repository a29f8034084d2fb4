// Makes pattern frames unpaced, for every format at 8 and 10 bits, and prints frames per second
// and the ratio to the format's real-time rate, with the share of each record.
//
//   pattern_bench                 all formats, about half a second each
//   pattern_bench 108 10 2.0      one format and depth, two seconds
//   pattern_bench shm 108 10 2.0  the same through the real channels in shared memory
//
// The chunks are plain memory, two per channel in turn, so that every frame is written to memory
// that isn't in the cache, as in a ring of shared memory. With `shm` the frames go through the
// four simulcast channels of a run of its own, with their mutexes, commits and events.
#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "encoding/sdi/sdi_common.h"
#include "pattern/caption_source.h"
#include "pattern/pattern_channels.h"
#include "pattern/pattern_format.h"
#include "pattern/pattern_frames.h"
#include "simulcast/capture_records.h"
#include "simulcast/run_objects.h"

namespace {

using namespace ovtx::pattern::pattern_source::v1;
namespace records = ovtx::simulcast::capture_records::v1;
namespace sdi = ovtx::encoding::sdi::sdi_common::v2;
using Clock = std::chrono::steady_clock;
using records::RunKind;
using records::RunObjects;

// The run's level-1 lines (readers that held a channel) go to the standard error stream.
struct BenchLogger final : ovtx::log::i_logger::v0::ILogger {
    void Log(int, const char* format, ...) override {
        va_list arguments;
        va_start(arguments, format);
        std::vfprintf(stderr, format, arguments);
        va_end(arguments);
        std::fputc('\n', stderr);
    }
};

constexpr int kChunksPerChannel = 2;
constexpr std::array<std::uint32_t, 8> kAutoSampling{};

struct Channel {
    Channel(std::size_t bytes) {
        for (auto& chunk : chunks) {
            // 16-byte aligned like a ring's chunks, and touched once so that no page fault is timed.
            chunk.reset(static_cast<std::uint8_t*>(std::aligned_alloc(64, (bytes + 63) / 64 * 64)));
            std::fill_n(chunk.get(), bytes, 0);
        }
    }
    std::uint8_t* next() { return chunks[static_cast<std::size_t>(turn++ % kChunksPerChannel)].get(); }

    struct Free {
        void operator()(std::uint8_t* p) const { std::free(p); }
    };
    std::array<std::unique_ptr<std::uint8_t, Free>, kChunksPerChannel> chunks;
    int turn = 0;
};

double seconds(Clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

void run(int code, int bitDepth, double budgetSeconds) {
    const PatternFormat format = patternFormat(code);
    PatternFrames frames(format, bitDepth, kAutoSampling, patternCaptionEntries(format.period));
    Channel video(
        static_cast<std::size_t>(pictureBytes(format, bitDepth) + records::kPatternVideoExtraBytes));
    Channel audio(static_cast<std::size_t>(records::kPatternAudioSize.chunkBytes));
    Channel teletext(static_cast<std::size_t>(records::kPatternTeletextSize.chunkBytes));
    Channel caption(static_cast<std::size_t>(records::kPatternCaptionSize.chunkBytes));

    std::array<Clock::duration, 4> spent{};
    const Clock::time_point begin = Clock::now();
    std::int64_t f = 0;
    for (; f < 10 || seconds(Clock::now() - begin) < budgetSeconds; ++f) {
        Clock::time_point t0 = Clock::now();
        frames.writeVideo(video.next(), f);
        Clock::time_point t1 = Clock::now();
        frames.writeAudio(audio.next(), f);
        Clock::time_point t2 = Clock::now();
        frames.writeTeletext(teletext.next(), f);
        Clock::time_point t3 = Clock::now();
        frames.writeCaptions(caption.next(), f);
        Clock::time_point t4 = Clock::now();
        spent[0] += t1 - t0;
        spent[1] += t2 - t1;
        spent[2] += t3 - t2;
        spent[3] += t4 - t3;
    }
    const double total = seconds(Clock::now() - begin);
    const double fps = static_cast<double>(f) / total;
    const double realTime = format.period.inverted().toDouble();
    const double perFrameUs = 1e6 / static_cast<double>(f);
    std::printf(
        "%-26s %2d bit  %9.1f fps  %6.2fx real time  (per frame us: video %8.1f audio %6.1f teletext %4.1f "
        "captions %4.1f)\n",
        std::string(sdi::formatName(code).value_or("?")).c_str(), bitDepth, fps, fps / realTime,
        seconds(spent[0]) * perFrameUs, seconds(spent[1]) * perFrameUs, seconds(spent[2]) * perFrameUs,
        seconds(spent[3]) * perFrameUs);
    std::fflush(stdout);
}

// The whole publication of a frame through the shared-memory rings.
void runShared(int code, int bitDepth, double budgetSeconds) {
    const PatternFormat format = patternFormat(code);
    PatternFrames frames(format, bitDepth, kAutoSampling, patternCaptionEntries(format.period));
    const std::string portName = "pattern_bench_" + std::to_string(Clock::now().time_since_epoch().count());
    BenchLogger logger;
    RunObjects objects(RunKind::Pattern, portName, logger);
    if (objects.openChannels(pictureBytes(format, bitDepth), std::chrono::milliseconds(40))) {
        std::printf("could not open the channels of %s\n", portName.c_str());
        return;
    }
    PatternChannels channels(objects);
    // The first lap of the rings touches every page once; time the laps after it.
    for (std::int64_t f = 0; f < 64; ++f) {
        channels.publishFrame(frames, f);
    }
    const Clock::time_point begin = Clock::now();
    std::int64_t made = 0;
    for (; made < 10 || seconds(Clock::now() - begin) < budgetSeconds; ++made) {
        channels.publishFrame(frames, 64 + made);
    }
    const double fps = static_cast<double>(made) / seconds(Clock::now() - begin);
    std::printf("%-26s %2d bit  %9.1f fps  %6.2fx real time  (shared-memory channels)\n",
                std::string(sdi::formatName(code).value_or("?")).c_str(), bitDepth, fps,
                fps / format.period.inverted().toDouble());
    objects.close();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 4 && std::string(argv[1]) == "shm") {
        runShared(std::atoi(argv[2]), std::atoi(argv[3]), argc >= 5 ? std::atof(argv[4]) : 0.5);
        return 0;
    }
    if (argc >= 3) {
        run(std::atoi(argv[1]), std::atoi(argv[2]), argc >= 4 ? std::atof(argv[3]) : 0.5);
        return 0;
    }
    for (const sdi::FormatTableRow& row : sdi::formatTable()) {
        for (int bitDepth : {8, 10}) {
            run(row.code, bitDepth, 0.5);
        }
    }
    return 0;
}
