#include "pattern/pattern_loop.h"

#include <algorithm>
#include <cmath>
#include <cstring>
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
#include "simulcast/capture_records.h"
#include "system/console/console.h"
#include "system/ipc/generic_shared_memory.h"
#include "system/ipc/named_objects.h"

namespace ovtx::pattern::pattern_source::v1 {

namespace records = ovtx::simulcast::capture_records::v1;
using ovtx::system::ipc::v2::GenericSharedMemory;
using ovtx::system::ipc::v2::NamedEvent;
using ovtx::system::ipc::v2::WaitResult;

namespace {

class LoopEnvironment final : public IPaceEnvironment {
  public:
    LoopEnvironment(NamedEvent& stopEvent, const std::atomic<bool>& keepRunning)
        : m_stopEvent(stopEvent), m_keepRunning(keepRunning) {}

    bool keepRunning() override { return m_keepRunning.load(); }
    bool stopSignalled() override {
        return m_stopEvent.valid() && m_stopEvent.wait(std::chrono::milliseconds(0)) == WaitResult::Acquired;
    }
    std::uint32_t tickCount() override { return monotonicTickCount(); }
    void sleep(std::chrono::milliseconds duration) override { std::this_thread::sleep_for(duration); }

  private:
    NamedEvent& m_stopEvent;
    const std::atomic<bool>& m_keepRunning;
};

constexpr std::chrono::milliseconds kFormatBlockLockTimeout{1000};

// The frame period rounded up to whole milliseconds, at least one.
std::chrono::milliseconds wholeMilliseconds(const FrameRational& period) {
    const auto milliseconds = static_cast<std::int64_t>(std::ceil(period.toDouble() * 1000.0));
    return std::chrono::milliseconds(std::max<std::int64_t>(1, milliseconds));
}

// The run's stop event. The run has its port to itself (the caller holds the port's claim), so a
// stop request that outlived an earlier run, because another process held the event when it was
// set, is cleared here instead of ending this run at once.
NamedEvent openStopEvent(const std::string& portName, ovtx::log::i_logger::v0::ILogger& logger) {
    NamedEvent stopEvent = NamedEvent::createOrJoin(records::channelName(records::kStopEventPrefix, portName),
                                                    NamedEvent::Reset::Manual, false);
    if (!stopEvent.valid()) {
        throw std::runtime_error("Can't create stop event " + stopEvent.name() + ": " +
                                 std::strerror(stopEvent.error()));
    }
    if (stopEvent.wait(std::chrono::milliseconds(0)) == WaitResult::Acquired) {
        stopEvent.reset();
        logger.Log(1, "Stop event %s was still set from an earlier run; cleared", stopEvent.name().c_str());
    }
    return stopEvent;
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

    NamedEvent stopEvent = openStopEvent(portName, logger);

    GenericSharedMemory formatBlock(records::channelName(records::kVideoFormatPrefix, portName),
                                    records::kPatternFormatBlockBytes);
    const bool formatLocked = formatBlock.lockFor(kFormatBlockLockTimeout);
    if (!formatLocked) {
        logger.Log(1, "Format block of port %s held by another process; written without its mutex",
                   portName.c_str());
    }
    // The block is asked for with 4 bytes and holds 8: the mapping's page has room for both fields.
    *static_cast<records::FormatBlock*>(formatBlock.view()) = {videoFormat, bitDepth};
    if (formatLocked) {
        formatBlock.unlock();
    }

    GenericSharedMemory clockBlock(records::channelName(records::kClockPrefix, portName),
                                   records::kClockBlockBytes);
    auto* clock = static_cast<records::ClockBlock*>(clockBlock.view());
    if (clockBlock.lockFor(framePeriod)) {
        clock->clock = 0;
        clockBlock.unlock();
    }

    PatternChannels channels;
    if (!channels.open(portName, pictureBytes(format, bitDepth), framePeriod)) {
        std::cerr << "Could not open simulcast" << std::endl;
        const std::string failure = channels.failure();
        channels.close();
        if (!failure.empty()) {  // refused by the system: no success for a supervisor to see
            throw std::runtime_error("Could not open simulcast " + failure);
        }
        return;
    }

    // The caption source and the teletext state come with the test card, whose font is looked up
    // here, before the clock starts, so that the first frames don't start late.
    const int captionEntries = patternCaptionEntries(format.period);
    std::optional<PatternFrames> frames(std::in_place, format, bitDepth, audioSampling, captionEntries);
    if (!frames->testCard().hasFont()) {
        logger.Log(1, "No font found for the test card; the panel shows no text");
    }

    LoopEnvironment environment(stopEvent, keepRunning);
    FramePacer pacer(format.period, environment);
    const FrameCounter counter(format.period, ovtx::system::console::v1::standardErrorIsTerminal());

    pacer.run([&](std::int64_t f) {
        channels.publishFrame(*frames, f);
        channels.logSkips(logger);
        // A consumer that keeps the clock's mutex costs the clock this frame's update, not the pace.
        if (clockBlock.lockFor(framePeriod)) {
            clock->clock = frames->startTime(f);
            clockBlock.unlock();
        }
        if (const std::string text = counter.textAfterFrame(f); !text.empty()) {
            std::cerr << text << std::flush;
        }
    });

    stopEvent.close();
    frames.reset();
    channels.close();
}

}  // namespace ovtx::pattern::pattern_source::v1
