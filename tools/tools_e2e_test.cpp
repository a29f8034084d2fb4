// simulcast_follow and sdi_tap_stop against a stand-in run (tools_test_run), or a pattern run
// (pattern_loop_helper), in other processes.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "simulcast/capture_records.h"
#include "system/process/piped_child.h"
#include "testing/files.h"
#include "testing/shm.h"
#include "testing/tool_run.h"

namespace {

using namespace std::chrono_literals;
using ovtx::simulcast::capture_records::v1::channelName;
using ovtx::simulcast::capture_records::v1::kCaptionPrefix;
using ovtx::simulcast::capture_records::v1::kVideoPrefix;
using ovtx::system::process::v1::ExitStatus;
using ovtx::system::process::v1::PipedChild;
using ovtx::system::process::v1::SpawnOptions;
using ovtx::test_support::v1::binaryPath;
using ovtx::test_support::v1::finishTool;
using ovtx::test_support::v1::readFileBytes;
using ovtx::test_support::v1::removeShmEntries;
using ovtx::test_support::v1::runTool;
using ovtx::test_support::v1::shmEntries;
using ovtx::test_support::v1::ToolResult;
using ovtx::test_support::v1::uniqueName;
using ovtx::test_support::v1::valueAt;

constexpr auto kTimeout = 60s;

class SimulcastToolsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_port = uniqueName("e2e");
        m_dir = std::filesystem::temp_directory_path() / ("sdi_tap_tools_" + m_port);
        std::filesystem::create_directories(m_dir);
    }

    void TearDown() override {
        if (m_run.valid()) {
            m_run.closeInput();
            runTool("sdi_tap_stop", {m_port});
            m_run.wait(kTimeout);
        }
        m_run = PipedChild();
        std::filesystem::remove_all(m_dir);
        const std::vector<std::string> left = shmEntries(m_port);
        EXPECT_EQ(left, std::vector<std::string>{});
        removeShmEntries(left);
    }

    void startRun() {
        m_run = PipedChild::spawn(binaryPath("tools_test_run"), {m_port});
        ASSERT_EQ(m_run.readLine(kTimeout), "ready");
    }

    // A pattern run of `format` and `bitDepth` on the test's port, in place of the one running.
    void startPatternRun(const std::string& format, const std::string& bitDepth) {
        if (m_run.valid()) {
            ASSERT_TRUE(m_run.kill(PipedChild::Signal::Interrupt));
            ASSERT_EQ(m_run.wait(kTimeout), ExitStatus::exitedWith(0));
        }
        const std::string log = (m_dir / ("run" + std::to_string(++m_runs) + ".stderr")).string();
        m_run = PipedChild::spawn(binaryPath("pattern_loop_helper"), {m_port, format, bitDepth, log});
        ASSERT_TRUE(m_run.valid());
    }

    std::string m_port;
    std::filesystem::path m_dir;
    PipedChild m_run;
    int m_runs = 0;
};

// Reads `follow`'s lines until one holds `text`; false when it ends or takes too long first.
bool readUntil(PipedChild& follow, const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    for (auto line = follow.readLine(kTimeout); line && std::chrono::steady_clock::now() < deadline;
         line = follow.readLine(kTimeout)) {
        if (line->find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

std::size_t occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

TEST_F(SimulcastToolsTest, FollowRun_PrintsRecordsAndWritesPlayableFiles) {
    startRun();
    const auto y4m = m_dir / "video.y4m";
    const auto wav = (m_dir / "pair").string();
    const ToolResult follow =
        runTool("simulcast_follow", {m_port, "--records", "16", "--y4m", y4m.string(), "--wav", wav});
    ASSERT_EQ(follow.exitCode, 0);
    ASSERT_EQ(follow.lines.size(), 17u) << "16 records and the dump's first frame";

    std::map<std::string, int> seen;
    for (const std::string& line : follow.lines) {
        const std::string kind = line.substr(0, line.find(' '));
        if (kind == "first") {
            EXPECT_EQ(line.rfind("first frame=", 0), 0u) << line;
            continue;
        }
        const bool first = seen[kind]++ == 0;
        EXPECT_NE(line.find(first ? " disc=1 " : " disc=0 "), std::string::npos) << line;
        EXPECT_NE(line.find(" start="), std::string::npos) << line;
        if (kind == "video") {
            EXPECT_NE(line.find("magic=0x4A9E mismatch=0 rdisc=0 aspect=4:3"), std::string::npos) << line;
        } else if (kind == "audio") {
            EXPECT_NE(line.find("magic=0x5541 rdisc=0 pairs=1/1920/1,0/1920/1,"), std::string::npos) << line;
        } else if (kind == "captions") {
            EXPECT_NE(line.find(" count=3"), std::string::npos) << line;
        } else {
            EXPECT_EQ(kind, "teletext");
            EXPECT_NE(line.find("magic=0x5454 desc=2 data=0"), std::string::npos) << line;
        }
    }
    ASSERT_GT(seen["video"], 0);
    ASSERT_GT(seen["audio"], 0);

    const std::string video = readFileBytes(y4m);
    const std::string header = "YUV4MPEG2 W720 H576 F25:1 It A16:15 C420p10 XYSCSS=420P10\nFRAME\n";
    ASSERT_EQ(video.substr(0, header.size()), header);
    const std::size_t luma = 720 * 576 * 2;
    const std::size_t frameBytes = std::string("FRAME\n").size() + luma * 3 / 2;
    EXPECT_EQ((video.size() - header.size() + 6) % frameBytes, 0u);
    EXPECT_EQ(valueAt<std::uint16_t>(video, header.size()), 100);                    // Y
    EXPECT_EQ(valueAt<std::uint16_t>(video, header.size() + luma), 50);              // Cb first
    EXPECT_EQ(valueAt<std::uint16_t>(video, header.size() + luma + luma / 4), 200);  // then Cr

    const std::string audio = readFileBytes(wav + "1.wav");
    ASSERT_GE(audio.size(), 44u);
    EXPECT_EQ(audio.substr(0, 4), "RIFF");
    EXPECT_EQ(audio.substr(8, 8), "WAVEfmt ");
    EXPECT_EQ(valueAt<std::uint32_t>(audio, 24), 48000u);
    EXPECT_EQ(valueAt<std::uint32_t>(audio, 40), audio.size() - 44);
    EXPECT_EQ(valueAt<std::uint32_t>(audio, 4), audio.size() - 8);
    EXPECT_EQ((audio.size() - 44) % (1920 * 4), 0u);
    EXPECT_EQ(valueAt<std::int16_t>(audio, 44), 1000);
    EXPECT_EQ(valueAt<std::int16_t>(audio, 46), -1000);
    EXPECT_TRUE(std::filesystem::exists(wav + "8.wav"));
}

// The files are created, WAV headers included, before the follow reads anything: whatever moment
// the interrupt comes at, every pair's file is a complete WAV file.
TEST_F(SimulcastToolsTest, FollowInterrupted_EndsCleanlyWithCompleteWav) {
    startRun();
    const auto wav = (m_dir / "pair").string();
    PipedChild follow = PipedChild::spawn(binaryPath("simulcast_follow"), {m_port, "--wav", wav});
    ASSERT_TRUE(follow.readLine(kTimeout).has_value());
    ASSERT_TRUE(follow.kill(PipedChild::Signal::Interrupt));
    const ToolResult result = finishTool(follow);
    EXPECT_EQ(result.exitCode, 0);
    for (const char* pair : {"1", "2", "8"}) {
        const std::string audio = readFileBytes(wav + pair + ".wav");
        ASSERT_GE(audio.size(), 44u) << pair;
        EXPECT_EQ(audio.substr(0, 4), "RIFF");
        EXPECT_EQ(valueAt<std::uint32_t>(audio, 4), audio.size() - 8);
        EXPECT_EQ(valueAt<std::uint32_t>(audio, 40), audio.size() - 44);
    }
}

TEST_F(SimulcastToolsTest, FollowOneChannelByName_OnlyThatChannel) {
    startRun();
    const std::string channel = "08A59B6C_B5E7_47f9_BC06_B06CB0484FC1_Sdi_Writer_CloseCaption_" + m_port;
    const ToolResult follow = runTool("simulcast_follow", {"--channel", channel, "--records", "3"});
    ASSERT_EQ(follow.exitCode, 0);
    ASSERT_EQ(follow.lines.size(), 3u);
    for (const std::string& line : follow.lines) {
        EXPECT_EQ(line.rfind("captions seq=", 0), 0u) << line;
    }
}

// A channel that is there but refused is told with its object and reason, once however often the
// open is retried, apart from "no run yet"; the follow goes on once the channel can be had.
TEST_F(SimulcastToolsTest, FollowRefusedChannel_TellsObjectAndReasonOnceThenFollows) {
    const std::string channel = channelName(kCaptionPrefix, m_port);
    const std::string blocked = "/dev/shm/" + channel + "_MAP_PARAM";
    ASSERT_TRUE(std::filesystem::create_directory(blocked));
    SpawnOptions options;
    options.captureStandardError = true;
    PipedChild follow =
        PipedChild::spawn(binaryPath("simulcast_follow"), {"--channel", channel, "--records", "3"}, options);
    const std::string refusal = channel + "_MAP_PARAM: Is a directory";
    ASSERT_TRUE(follow.waitForStandardError(refusal, kTimeout));
    std::this_thread::sleep_for(300ms);  // retries, refused alike
    std::filesystem::remove(blocked);
    ASSERT_TRUE(follow.waitForStandardError("waiting for channel " + channel, kTimeout));
    startRun();

    const ToolResult result = finishTool(follow);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.lines.size(), 3u);
    const std::string told = follow.standardError();
    EXPECT_EQ(occurrences(told, refusal), 1u) << told;
    EXPECT_EQ(occurrences(told, "channel " + channel + " is there but can't be opened: " + refusal), 1u)
        << told;
    EXPECT_EQ(occurrences(told, "waiting for channel"), 1u) << told;
}

// Followers kept across restarts of the run: into the same format the Y4M file goes on; into a
// larger one it ends complete (exit code 2, with the reason), while a follower without files goes on
// with whole records of the new size.
TEST_F(SimulcastToolsTest, FollowAcrossRestarts_Y4mGoesOnUntilThePictureChangesAndRecordsGrow) {
    const std::string channel = channelName(kVideoPrefix, m_port);
    const auto y4m = m_dir / "video.y4m";
    SpawnOptions options;
    options.captureStandardError = true;
    PipedChild dump = PipedChild::spawn(binaryPath("simulcast_follow"),
                                        {"--channel", channel, "--y4m", y4m.string()}, options);
    PipedChild raw =
        PipedChild::spawn(binaryPath("simulcast_follow"), {"--channel", channel, "--kind", "raw"}, options);
    startPatternRun("0", "8");  // 720x576i 25, 8 bit
    ASSERT_TRUE(readUntil(dump, "video seq="));
    ASSERT_TRUE(readUntil(raw, "bytes=622128"));
    startPatternRun("0", "8");
    ASSERT_TRUE(readUntil(dump, " disc=1 "));
    ASSERT_TRUE(readUntil(dump, " disc=0 "));  // frames of the second run in the file
    startPatternRun("3", "8");                 // 1920x1080p 25, 8 bit
    ASSERT_TRUE(readUntil(raw, "bytes=3110448"));
    ASSERT_TRUE(raw.kill(PipedChild::Signal::Interrupt));
    EXPECT_EQ(finishTool(raw).exitCode, 0);

    const ToolResult ended = finishTool(dump);
    EXPECT_EQ(ended.exitCode, 2);
    EXPECT_NE(dump.standardError().find("the run now sends 1920x1080p 25 fps 8-bit; " + y4m.string() +
                                        " holds 720x576i 25 fps 8-bit, and a Y4M file can't change its "
                                        "picture mid-file: the follow ends here"),
              std::string::npos)
        << dump.standardError();
    const std::string video = readFileBytes(y4m);
    const std::string header = "YUV4MPEG2 W720 H576 F25:1 It A16:15 C420\n";
    ASSERT_EQ(video.substr(0, header.size()), header);
    const std::size_t frameBytes = std::string("FRAME\n").size() + 720 * 576 * 3 / 2;
    EXPECT_EQ((video.size() - header.size()) % frameBytes, 0u);
    EXPECT_GE((video.size() - header.size()) / frameBytes, 2u);
}

TEST_F(SimulcastToolsTest, SdiTapStop_SetsTheRunsStopEvent) {
    startRun();
    const ToolResult stop = runTool("sdi_tap_stop", {m_port});
    EXPECT_EQ(stop.exitCode, 0);
    EXPECT_EQ(m_run.readLine(kTimeout), "stopped");
    const auto status = m_run.wait(kTimeout);
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(status->exited);
    EXPECT_EQ(status->code, 0);
}

TEST_F(SimulcastToolsTest, SdiTapStopWithoutRun_FailsWithExitCodeOne) {
    EXPECT_EQ(runTool("sdi_tap_stop", {m_port}).exitCode, 1);
    EXPECT_EQ(runTool("sdi_tap_stop", {}).exitCode, 1);
}

TEST_F(SimulcastToolsTest, HelpAndBadCommandLines_ExitCodes) {
    const ToolResult help = runTool("simulcast_follow", {"--help"});
    EXPECT_EQ(help.exitCode, 0);
    ASSERT_FALSE(help.lines.empty());
    EXPECT_EQ(help.lines[0].rfind("Usage: simulcast_follow", 0), 0u);
    EXPECT_EQ(runTool("sdi_tap_stop", {"--help"}).exitCode, 0);
    EXPECT_EQ(runTool("simulcast_follow", {}).exitCode, 1);
    EXPECT_EQ(runTool("simulcast_follow", {"0", "--records", "many"}).exitCode, 1);
    EXPECT_EQ(runTool("simulcast_follow", {"0", "--kind", "video"}).exitCode, 1);
    EXPECT_EQ(runTool("simulcast_follow", {"0", "--bogus", "1"}).exitCode, 1);
    EXPECT_EQ(runTool("simulcast_follow", {"0", "--wav-pair", "9", "x.wav"}).exitCode, 1);
    EXPECT_EQ(runTool("simulcast_follow", {"0", "--y4m", "-", "--wav-pair", "1", "/dev/stdout"}).exitCode, 1);

    // An unknown option is told as such, also as the last argument or with a single dash.
    for (const char* option : {"--bogus", "-stats"}) {
        SpawnOptions options;
        options.captureStandardError = true;
        PipedChild follow = PipedChild::spawn(binaryPath("simulcast_follow"), {"0", option}, options);
        follow.closeInput();
        EXPECT_EQ(finishTool(follow).exitCode, 1);
        EXPECT_NE(follow.standardError().find(std::string("unknown option ") + option), std::string::npos)
            << follow.standardError();
    }
}

}  // namespace
