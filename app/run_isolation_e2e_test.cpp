// The daemon against what other processes of the machine do to its port: a second daemon, a
// consumer stopped while it holds a channel, a stop request that outlived its run, a consumer kept
// across a restart, a foreign file where a channel belongs. Each case runs the real binary on
// port 0 and its counterpart in processes of their own.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "log/testing/log_file_reader.h"
#include "simulcast/capture_records.h"
#include "simulcast/simulcast_reader.h"
#include "system/ipc/named_objects.h"
#include "system/ipc/testing/ipc_helper.h"
#include "system/process/piped_child.h"
#include "testing/install_root.h"
#include "testing/shm.h"

namespace {

namespace records = ovtx::simulcast::capture_records::v1;
using ovtx::log::log_perf::v4::testing::containsText;
using ovtx::log::log_perf::v4::testing::readLogFile;
using ovtx::simulcast::simulcast_channel::v1::SimulcastReader;
using ovtx::system::ipc::v2::NamedEvent;
using ovtx::system::ipc::v2::testing::startIpcHelper;
using ovtx::system::process::v1::ExitStatus;
using ovtx::system::process::v1::PipedChild;
using ovtx::test_support::v1::eventually;
using ovtx::test_support::v1::InstallRoot;
using ovtx::test_support::v1::runObjects;
using namespace std::chrono_literals;

constexpr auto kTimeout = 60s;
constexpr int kPal = 0;        // 720 x 576 at 25 frames a second
constexpr int kHd1080p25 = 3;  // 1920 x 1080 at 25 frames a second

class RunIsolationTest : public testing::Test {
  protected:
    void TearDown() override {
        EXPECT_TRUE(eventually([] { return runObjects("0").empty(); }, 10s))
            << "left in /dev/shm: " << testing::PrintToString(runObjects("0"));
    }

    PipedChild startDaemon(int videoFormat) {
        return m_install.start("sdi_tap",
                               {"-sdiport", "0", "-videoformat", std::to_string(videoFormat), "-pattern"});
    }

    // Starts a daemon and waits until it publishes frames.
    PipedChild startPublishing(int videoFormat) {
        PipedChild daemon = startDaemon(videoFormat);
        EXPECT_TRUE(daemon.waitForStandardError("Generated frame #", kTimeout)) << daemon.standardError();
        return daemon;
    }

    static std::string channel(std::string_view prefix) { return records::channelName(prefix, "0"); }

    static void openWhenReady(SimulcastReader& reader, std::string_view prefix) {
        ASSERT_TRUE(eventually([&] { return reader.open(channel(prefix).c_str()); }, kTimeout));
    }

    bool logHas(const std::string& text) const {
        return containsText(readLogFile(m_install.logFile("0").string()), text);
    }

    InstallRoot m_install;
};

struct Record {
    bool delivered = false;
    bool discontinuity = false;
    records::VideoRecordHeader header{};
};

Record readVideoHeader(SimulcastReader& reader) {
    Record record;
    bool timedOut = false;
    record.delivered =
        reader.read(&record.header, sizeof record.header, 10000, record.discontinuity, timedOut);
    return record;
}

// `count` records of an audio reader follow one another without a gap.
void expectContinuousAudio(SimulcastReader& reader, int count) {
    records::AudioRecord record{};
    std::int64_t previousEnd = -1;
    for (int i = 0; i < count; ++i) {
        bool discontinuity = false;
        bool timedOut = false;
        ASSERT_TRUE(reader.read(&record, 32, 10000, discontinuity, timedOut)) << "record " << i;
        ASSERT_EQ(record.magic, records::kAudioMagic);
        if (previousEnd >= 0) {
            ASSERT_FALSE(discontinuity) << "record " << i;
            ASSERT_EQ(record.start, previousEnd) << "record " << i;
        }
        previousEnd = record.end;
    }
}

TEST_F(RunIsolationTest, SecondRunOnARunningPort_EndsWithExitOneAndLeavesTheFirstUntouched) {
    PipedChild first = startPublishing(kPal);
    SimulcastReader video;
    openWhenReady(video, records::kVideoPrefix);
    ASSERT_TRUE(readVideoHeader(video).delivered);

    PipedChild second = startDaemon(kHd1080p25);
    EXPECT_EQ(second.wait(kTimeout), ExitStatus::exitedWith(1));
    EXPECT_EQ(second.standardError(), "Port 0 is already served by sdi_tap process " +
                                          std::to_string(first.pid()) +
                                          "; this run ends and leaves it untouched (stop it first with "
                                          "sdi_tap_stop 0)\n");

    for (int i = 0; i < 10; ++i) {
        const Record record = readVideoHeader(video);
        ASSERT_TRUE(record.delivered);
        ASSERT_FALSE(record.discontinuity) << "record " << i;
        ASSERT_EQ(record.header.magic, records::kVideoMagic);
    }
    EXPECT_EQ(video.maxChunkBytes(), 720 * 576 * 3 / 2 + 48);
    first.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(first.wait(kTimeout), ExitStatus::exitedWith(0));
}

TEST_F(RunIsolationTest, ReaderStoppedHoldingTheVideoMutex_PublishingGoesOnAndAStopEndsTheRunWithinASecond) {
    PipedChild daemon = startPublishing(kPal);
    SimulcastReader audio, video;
    openWhenReady(audio, records::kAudioPrefix);
    openWhenReady(video, records::kVideoPrefix);
    ASSERT_TRUE(readVideoHeader(video).delivered);
    PipedChild paused = startIpcHelper();
    ASSERT_EQ(paused.ask("mutex " + channel(records::kVideoPrefix) + "_MUTEX_DATA"), "ok");
    const auto pause = [&] {
        ASSERT_EQ(paused.ask("lock"), "ok");
        ASSERT_TRUE(paused.kill(PipedChild::Signal::Stop));
    };
    pause();

    expectContinuousAudio(audio, 50);  // two seconds of the other channels

    // Once the reader lets go, the first video record after the gap says so.
    ASSERT_TRUE(paused.kill(PipedChild::Signal::Continue));
    ASSERT_EQ(paused.ask("unlock"), "ok");
    Record record = readVideoHeader(video);
    for (int i = 0; i < 40 && record.delivered && !record.discontinuity; ++i) {
        record = readVideoHeader(video);
    }
    ASSERT_TRUE(record.discontinuity);
    EXPECT_EQ(record.header.discontinuity, 1);

    pause();
    NamedEvent stop = NamedEvent::open(channel(records::kStopEventPrefix));
    ASSERT_TRUE(stop.set());
    EXPECT_EQ(daemon.wait(1s), ExitStatus::exitedWith(0)) << "the stop waits for no reader";
    EXPECT_TRUE(logHas("Simulcast " + channel(records::kVideoPrefix) +
                       ": a reader held the channel for over a frame, 1 record(s) skipped"));
    ASSERT_TRUE(paused.kill(PipedChild::Signal::Continue));
}

TEST_F(RunIsolationTest, StopEventHeldSetAcrossARestart_TheNextRunClearsItAndRuns) {
    PipedChild first = startPublishing(kPal);
    PipedChild holder = startIpcHelper();
    ASSERT_EQ(holder.ask("event " + channel(records::kStopEventPrefix)), "ok");
    ASSERT_EQ(holder.ask("set"), "ok");
    EXPECT_EQ(first.wait(kTimeout), ExitStatus::exitedWith(0));

    PipedChild next = startPublishing(kPal);
    std::this_thread::sleep_for(500ms);
    EXPECT_TRUE(next.running()) << next.standardError();
    next.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(next.wait(kTimeout), ExitStatus::exitedWith(0));
    EXPECT_TRUE(logHas("Stop event " + channel(records::kStopEventPrefix) +
                       " was still set from an earlier run; cleared"));
}

TEST_F(RunIsolationTest, FollowerAcrossARestartWithALargerFormat_FollowsTheNewRunWithADiscontinuity) {
    PipedChild first = startPublishing(kPal);
    SimulcastReader video;
    openWhenReady(video, records::kVideoPrefix);
    ASSERT_TRUE(readVideoHeader(video).delivered);
    first.kill(PipedChild::Signal::Terminate);
    ASSERT_EQ(first.wait(kTimeout), ExitStatus::exitedWith(0));

    PipedChild next = startPublishing(kHd1080p25);
    Record record = readVideoHeader(video);
    while (record.delivered && !record.discontinuity) {  // what the first run left unread
        record = readVideoHeader(video);
    }
    ASSERT_TRUE(record.delivered);
    EXPECT_TRUE(record.discontinuity);
    EXPECT_EQ(record.header.magic, records::kVideoMagic);
    EXPECT_EQ(video.maxChunkBytes(), 1920 * 1080 * 3 / 2 + 48);
    next.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(next.wait(kTimeout), ExitStatus::exitedWith(0));
}

TEST_F(RunIsolationTest, DirectoryWhereAChannelBelongs_EndsWithExitOneNamingIt) {
    const std::string video = channel(records::kVideoPrefix);
    const std::filesystem::path blocker = "/dev/shm/" + video + "_MAP_DATA";
    ASSERT_TRUE(std::filesystem::create_directory(blocker));
    PipedChild daemon = startDaemon(kPal);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(1));
    const std::string errors = daemon.standardError();
    EXPECT_NE(errors.find("Could not open simulcast\n"), std::string::npos) << errors;
    EXPECT_NE(errors.find("Exception:Could not open simulcast " + video + ": " + video +
                          "_MAP_DATA: Is a directory\n"),
              std::string::npos)
        << errors;
    std::filesystem::remove(blocker);
}

}  // namespace
