#include "pattern/pattern_loop.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "pattern/caption_source.h"
#include "pattern/frame_counter.h"
#include "pattern/frame_pacer.h"
#include "pattern/pattern_channels.h"
#include "pattern/pattern_format.h"
#include "pattern/pattern_frames.h"
#include "simulcast/run_objects.h"
#include "system/console/console.h"

namespace ovtx::pattern::pattern_source::v1 {

using ovtx::simulcast::capture_records::v1::RunChannel;
using ovtx::simulcast::capture_records::v1::RunKind;
using ovtx::simulcast::capture_records::v1::RunObjects;

namespace {

class LoopEnvironment final : public IPaceEnvironment {
  public:
    LoopEnvironment(RunObjects& objects, const std::atomic<bool>& keepRunning)
        : m_objects(objects), m_keepRunning(keepRunning) {}

    bool keepRunning() override { return m_keepRunning.load(); }
    bool stopSignalled() override { return m_objects.stopRequested(); }
    std::uint32_t tickCount() override { return monotonicTickCount(); }
    void sleep(std::chrono::milliseconds duration) override { std::this_thread::sleep_for(duration); }

  private:
    RunObjects& m_objects;
    const std::atomic<bool>& m_keepRunning;
};

// The frame period rounded up to whole milliseconds, at least one.
std::chrono::milliseconds wholeMilliseconds(const FrameRational& period) {
    const auto milliseconds = static_cast<std::int64_t>(std::ceil(period.toDouble() * 1000.0));
    return std::chrono::milliseconds(std::max<std::int64_t>(1, milliseconds));
}

void announce(const PatternFormat& format) {
    std::ostringstream rate;
    rate << std::setprecision(4) << format.period.inverted().toDouble();
    std::cerr << "Switched to beep stub mode" << std::endl;
    std::cerr << "Resolution: " << format.width << "x" << format.height << std::endl;
    std::cerr << "Framerate: " << rate.str() << " fps" << std::endl;
}

}  // namespace

void PatternLoop(const std::string& portName, int videoFormat, int bitDepth,
                 std::span<const std::uint32_t> audioSampling, ovtx::log::i_logger::v0::ILogger& logger,
                 const std::atomic<bool>& keepRunning) {
    const PatternFormat format = patternFormat(videoFormat);
    announce(format);
    const std::chrono::milliseconds framePeriod = wholeMilliseconds(format.period);

    // The caller holds the port's claim, so a stop request that outlived an earlier run is cleared
    // here instead of ending this run at once.
    RunObjects objects(RunKind::Pattern, portName, logger);
    objects.openStopEvent();
    objects.clearStaleStop();
    objects.openBlocks(videoFormat, bitDepth, framePeriod);

    if (const std::optional<RunChannel> failed =
            objects.openChannels(pictureBytes(format, bitDepth), framePeriod)) {
        std::cerr << "Could not open simulcast" << std::endl;
        const std::string failure = objects.failure(*failed);
        objects.closeChannels();
        if (!failure.empty()) {  // refused by the system: no success for a supervisor to see
            throw std::runtime_error("Could not open simulcast " + failure);
        }
        return;
    }
    PatternChannels channels(objects);

    // The caption source and the teletext state come with the test card, whose font is looked up
    // here, before the clock starts, so that the first frames don't start late.
    const int captionEntries = patternCaptionEntries(format.period);
    std::optional<PatternFrames> frames(std::in_place, format, bitDepth, audioSampling, captionEntries);
    if (!frames->testCard().hasFont()) {
        logger.Log(1, "No font found for the test card; the panel shows no text");
    }

    LoopEnvironment environment(objects, keepRunning);
    FramePacer pacer(format.period, environment);
    const FrameCounter counter(format.period, ovtx::system::console::v1::standardErrorIsTerminal());

    pacer.run([&](std::int64_t f) {
        channels.publishFrame(*frames, f);
        objects.logSkips();
        // A consumer that keeps the clock's mutex costs the clock this frame's update, not the pace.
        objects.publishClock(frames->startTime(f));
        if (const std::string text = counter.textAfterFrame(f); !text.empty()) {
            std::cerr << text << std::flush;
        }
    });

    objects.closeStopEvent();
    frames.reset();
    objects.close();
}

}  // namespace ovtx::pattern::pattern_source::v1
