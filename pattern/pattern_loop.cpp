#include "pattern/pattern_loop.h"

#include <iomanip>
#include <iostream>
#include <optional>
#include <sstream>
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

    NamedEvent stopEvent = NamedEvent::createOrJoin(records::channelName(records::kStopEventPrefix, portName),
                                                    NamedEvent::Reset::Manual, false);

    GenericSharedMemory formatBlock(records::channelName(records::kVideoFormatPrefix, portName),
                                    records::kPatternFormatBlockBytes);
    formatBlock.lock();
    // The block is asked for with 4 bytes and holds 8: the mapping's page has room for both fields.
    *static_cast<records::FormatBlock*>(formatBlock.view()) = {videoFormat, bitDepth};
    formatBlock.unlock();

    GenericSharedMemory clockBlock(records::channelName(records::kClockPrefix, portName),
                                   records::kClockBlockBytes);
    auto* clock = static_cast<records::ClockBlock*>(clockBlock.view());
    clockBlock.lock();
    clock->clock = 0;
    clockBlock.unlock();

    PatternChannels channels;
    if (!channels.open(portName, pictureBytes(format, bitDepth))) {
        std::cerr << "Could not open simulcast" << std::endl;
        channels.close();
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
        clockBlock.lock();
        clock->clock = frames->startTime(f);
        clockBlock.unlock();
        if (const std::string text = counter.textAfterFrame(f); !text.empty()) {
            std::cerr << text << std::flush;
        }
    });

    stopEvent.close();
    frames.reset();
    channels.close();
}

}  // namespace ovtx::pattern::pattern_source::v1
