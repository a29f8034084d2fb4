#include "pattern/pattern_loop.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <optional>
#include <sstream>
#include <thread>

#include "pattern/caption_source.h"
#include "pattern/frame_pacer.h"
#include "pattern/pattern_format.h"
#include "pattern/pattern_frames.h"
#include "simulcast/capture_records.h"
#include "simulcast/simulcast_writer.h"
#include "system/ipc/generic_shared_memory.h"
#include "system/ipc/named_objects.h"

namespace ovtx::pattern::pattern_source::v1 {

namespace records = ovtx::simulcast::capture_records::v1;
using ovtx::simulcast::simulcast_channel::v1::SimulcastWriter;
using ovtx::system::ipc::v2::GenericSharedMemory;
using ovtx::system::ipc::v2::NamedEvent;
using ovtx::system::ipc::v2::WaitResult;

namespace {

// The four channels of a run, opened in the order video, audio, teletext, closed caption.
struct PatternChannels {
    SimulcastWriter video;
    SimulcastWriter audio;
    SimulcastWriter teletext;
    SimulcastWriter caption;

    bool open(const std::string& portName, std::int64_t pictureBytes) {
        const auto videoChunkBytes =
            static_cast<std::int32_t>(pictureBytes + records::kPatternVideoExtraBytes);
        return openOne(video, records::kVideoPrefix, portName,
                       {records::kPatternVideoChunks, videoChunkBytes}) &&
               openOne(audio, records::kAudioPrefix, portName, records::kPatternAudioSize) &&
               openOne(teletext, records::kTeletextPrefix, portName, records::kPatternTeletextSize) &&
               openOne(caption, records::kCaptionPrefix, portName, records::kPatternCaptionSize);
    }

    void close() {
        caption.close();
        teletext.close();
        audio.close();
        video.close();
    }

    static bool openOne(SimulcastWriter& writer, std::string_view prefix, const std::string& portName,
                        records::ChannelSize size) {
        const std::string name = records::channelName(prefix, portName);
        return writer.open(size.numChunks, size.chunkBytes, name.c_str());
    }
};

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

// Takes a chunk, fills it and commits it; a writer that isn't open yields no chunk and is passed.
template <typename Fill>
void publish(SimulcastWriter& writer, Fill&& fill) {
    if (auto* chunk = static_cast<std::uint8_t*>(writer.beginChunk())) {
        fill(chunk);
        writer.commitChunk();
    }
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

    NamedEvent stopEvent = NamedEvent::createOrJoin(records::channelName(records::kStopEventPrefix, portName),
                                                    NamedEvent::Reset::Manual, false);
    const int budget = captionBudget(format.period);

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
    const int captionEntries =
        std::min(budget, captionEntriesThatFit(records::kPatternCaptionSize.chunkBytes));
    std::optional<PatternFrames> frames(std::in_place, format, bitDepth, audioSampling, captionEntries);
    if (!frames->testCard().hasFont()) {
        logger.Log(1, "No font found for the test card; the panel shows no text");
    }

    LoopEnvironment environment(stopEvent, keepRunning);
    FramePacer pacer(format.period, environment);

    pacer.run([&](std::int64_t f) {
        publish(channels.video, [&](std::uint8_t* chunk) { frames->writeVideo(chunk, f); });
        publish(channels.audio, [&](std::uint8_t* chunk) { frames->writeAudio(chunk, f); });
        publish(channels.teletext, [&](std::uint8_t* chunk) { frames->writeTeletext(chunk, f); });
        publish(channels.caption, [&](std::uint8_t* chunk) { frames->writeCaptions(chunk, f); });
        clockBlock.lock();
        clock->clock = frames->startTime(f);
        clockBlock.unlock();
        std::cerr << "\rGenerated frame #" << f << std::flush;
    });

    stopEvent.close();
    frames.reset();
    channels.close();
}

}  // namespace ovtx::pattern::pattern_source::v1
