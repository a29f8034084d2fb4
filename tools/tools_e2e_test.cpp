// simulcast_follow and sdi_tap_stop against a stand-in run (tools_test_run) in other processes.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "system/process/piped_child.h"
#include "testing/files.h"
#include "testing/shm.h"
#include "testing/tool_run.h"

namespace {

using namespace std::chrono_literals;
using ovtx::system::process::v1::PipedChild;
using ovtx::system::process::v1::SpawnOptions;
using ovtx::test_support::v1::binaryPath;
using ovtx::test_support::v1::finishTool;
using ovtx::test_support::v1::readFileBytes;
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
        EXPECT_EQ(shmEntries(m_port), std::vector<std::string>{});
    }

    void startRun() {
        m_run = PipedChild::spawn(binaryPath("tools_test_run"), {m_port});
        ASSERT_EQ(m_run.readLine(kTimeout), "ready");
    }

    std::string m_port;
    std::filesystem::path m_dir;
    PipedChild m_run;
};

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
