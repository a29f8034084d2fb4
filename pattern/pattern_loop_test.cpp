// PatternLoop in a process of its own (pattern_loop_helper), followed from this one through the
// public objects of its run, and stopped as a consumer or the console would stop it.
#include "pattern/pattern_loop.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "pattern/beep_audio.h"
#include "pattern/frame_rational.h"
#include "pattern/pattern_format.h"
#include "simulcast/capture_records.h"
#include "simulcast/simulcast_reader.h"
#include "system/ipc/generic_shared_memory.h"
#include "system/ipc/named_objects.h"
#include "system/process/piped_child.h"
#include "testing/files.h"
#include "testing/shm.h"

namespace {

using namespace std::chrono_literals;
using namespace ovtx::pattern::pattern_source::v1;
namespace records = ovtx::simulcast::capture_records::v1;
using ovtx::simulcast::simulcast_channel::v1::SimulcastReader;
using ovtx::system::ipc::v2::GenericSharedMemory;
using ovtx::system::ipc::v2::NamedEvent;
using ovtx::system::process::v1::PipedChild;
using ovtx::test_support::v1::binaryPath;
using ovtx::test_support::v1::runObjects;
using ovtx::test_support::v1::uniqueName;

constexpr int kFormat = 0;  // 720 x 576 at 25 frames a second: small and quick
constexpr auto kGenerous = 60s;

class PatternLoopTest : public testing::Test {
  protected:
    void SetUp() override {
        helper = binaryPath("pattern_loop_helper");
        portName = uniqueName("pl");
        errorsFile = (std::filesystem::path(testing::TempDir()) / (portName + ".stderr")).string();
    }

    void TearDown() override {
        if (child.valid()) {
            child.kill(PipedChild::Signal::Kill);
            child.wait(kGenerous);
        }
        std::filesystem::remove(errorsFile);
    }

    void start(int bitDepth = 8) {
        child = PipedChild::spawn(helper,
                                  {portName, std::to_string(kFormat), std::to_string(bitDepth), errorsFile});
        ASSERT_TRUE(child.valid());
    }

    std::string name(std::string_view prefix) const { return records::channelName(prefix, portName); }

    // Opens `reader` on a channel of the run, retrying while the loop sets it up.
    void openWhenReady(SimulcastReader& reader, std::string_view prefix) {
        const auto deadline = std::chrono::steady_clock::now() + kGenerous;
        while (!reader.open(name(prefix).c_str())) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "channel never opened";
            std::this_thread::sleep_for(20ms);
        }
    }

    int exitCode() {
        const auto status = child.wait(kGenerous);
        EXPECT_TRUE(status.has_value()) << "still running";
        if (!status) {
            return -1;
        }
        EXPECT_TRUE(status->exited) << "ended by signal " << status->signal;
        return status->exited ? status->code : -1;
    }

    std::string errors() const {
        std::ifstream in(errorsFile);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    std::string helper;
    std::string portName;
    std::string errorsFile;
    PipedChild child;
};

// The contents of a shared block of the run, read under its mutex; the block is let go at once.
template <typename Block>
Block readBlock(const std::string& name, std::uint32_t size) {
    GenericSharedMemory block(name, size);
    block.lock();
    const Block contents = *static_cast<const Block*>(block.view());
    block.unlock();
    return contents;
}

template <typename Record>
Record readRecord(SimulcastReader& reader, bool& discontinuity) {
    Record record{};
    bool timedOut = false;
    const bool ok = reader.read(
        &record, static_cast<std::int32_t>(std::min<std::size_t>(sizeof(Record), reader.maxChunkBytes())),
        static_cast<std::uint32_t>(std::chrono::milliseconds(kGenerous).count()), discontinuity, timedOut);
    EXPECT_TRUE(ok) << "timed out: " << timedOut;
    return record;
}

TEST_F(PatternLoopTest, FollowedRun_IsContinuousAndStopsByTheNamedEvent) {
    start();
    struct Readers {
        SimulcastReader video, audio, teletext, caption;
    };
    auto readers = std::make_unique<Readers>();
    auto& [video, audio, teletext, caption] = *readers;
    openWhenReady(video, records::kVideoPrefix);
    openWhenReady(audio, records::kAudioPrefix);
    openWhenReady(teletext, records::kTeletextPrefix);
    openWhenReady(caption, records::kCaptionPrefix);
    EXPECT_EQ(video.maxChunkBytes(), 720 * 576 * 3 / 2 + 48);
    EXPECT_EQ(video.numChunks(), 32);
    EXPECT_EQ(audio.numChunks(), 64);
    EXPECT_EQ(teletext.maxChunkBytes(), 1635);
    EXPECT_EQ(caption.maxChunkBytes(), 1024);

    const auto format =
        readBlock<records::FormatBlock>(name(records::kVideoFormatPrefix), sizeof(records::FormatBlock));
    EXPECT_EQ(format.formatCode, kFormat);
    EXPECT_EQ(format.bitDepth, 8);

    const FrameRational period = patternFormat(kFormat).period;
    std::int64_t previousVideoEnd = -1, previousAudioEnd = -1, firstAudioStart = -1, samples = 0;
    std::int64_t lastFrame = 0;
    for (int i = 0; i < 50; ++i) {  // two seconds of stream
        bool discontinuity = false;
        const auto header = readRecord<records::VideoRecordHeader>(video, discontinuity);
        ASSERT_EQ(header.magic, 0x4A9E);
        const std::int64_t frame = header.start * 25 / 10000000;
        ASSERT_EQ(header.start, frameTime(frame, period));
        ASSERT_EQ(header.end, frameTime(frame + 1, period));
        if (previousVideoEnd >= 0) {
            ASSERT_FALSE(discontinuity) << "video record " << i;
            ASSERT_EQ(header.start, previousVideoEnd) << "video record " << i;
        }
        previousVideoEnd = header.end;

        const auto sound = readRecord<records::AudioRecord>(audio, discontinuity);
        ASSERT_EQ(sound.magic, 0x5541);
        if (previousAudioEnd >= 0) {
            ASSERT_FALSE(discontinuity);
            ASSERT_EQ(sound.start, previousAudioEnd);
        } else {
            firstAudioStart = sound.start;
        }
        previousAudioEnd = sound.end;
        samples += sound.pairs[0].sampleCount;

        const auto text = readRecord<records::TeletextRecord>(teletext, discontinuity);
        ASSERT_EQ(text.magic, 0x5454);
        ASSERT_EQ(text.descriptorLength, 7u);
        std::array<std::uint8_t, 1024> captionChunk{};
        bool timedOut = false;
        ASSERT_TRUE(caption.read(captionChunk.data(), 1024, 60000, discontinuity, timedOut));
        ASSERT_EQ(reinterpret_cast<const records::CaptionRecord*>(captionChunk.data())->count, 48);
        lastFrame = frame;
    }
    EXPECT_EQ(samples, sampleIndexAt(previousAudioEnd, 48000) - sampleIndexAt(firstAudioStart, 48000));

    // The clock moves after a frame's four records are committed: once the last captions are read,
    // it holds at least the frame before them.
    EXPECT_GE(readBlock<records::ClockBlock>(name(records::kClockPrefix), records::kClockBlockBytes).clock,
              frameTime(lastFrame - 1, period));

    NamedEvent stop = NamedEvent::open(name(records::kStopEventPrefix));
    ASSERT_TRUE(stop.valid());
    ASSERT_TRUE(stop.set());
    EXPECT_EQ(exitCode(), 0);
    const std::string text = errors();
    EXPECT_EQ(text.rfind("Switched to beep stub mode\nResolution: 720x576\nFramerate: 25 fps\n", 0), 0u)
        << text;
    // Off a terminal the counter writes a line for the first frame of each minute only.
    EXPECT_NE(text.find("Generated frame #0\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("Generated frame #1\n"), std::string::npos) << text;

    stop.close();
    readers.reset();
    EXPECT_EQ(runObjects(portName), std::vector<std::string>{}) << "the readers were the last holders";
}

TEST_F(PatternLoopTest, DanglingLinkWhereAChannelBelongs_IsReplacedAndTheRunPublishes) {
    const std::filesystem::path link = "/dev/shm/" + name(records::kVideoPrefix) + "_MAP_PARAM";
    std::filesystem::create_symlink("/nonexistent/" + portName, link);
    start();
    {
        SimulcastReader video;
        openWhenReady(video, records::kVideoPrefix);
        bool discontinuity = false;
        EXPECT_EQ(readRecord<records::VideoRecordHeader>(video, discontinuity).magic, 0x4A9E);
        EXPECT_FALSE(std::filesystem::is_symlink(link));
    }
    child.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(exitCode(), 0);
    EXPECT_EQ(runObjects(portName), std::vector<std::string>{});
}

}  // namespace
