// A pattern run followed by the consumer tools, all in processes of their own: simulcast_follow
// dumps the run to Y4M and WAV while it checks the continuity of times and samples, and
// sdi_tap_stop or SIGINT ends the run with exit code 0 and nothing left in /dev/shm. The 8-bit
// PAL run with a stop by the named event is followed record by record in pattern_loop_test.
//
// PatternE2eTest runs PatternLoop through pattern_loop_helper on a port name of its own;
// SdiTapPatternE2eTest runs the daemon itself on port 0.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "system/process/piped_child.h"
#include "testing/files.h"
#include "testing/install_root.h"
#include "testing/shm.h"
#include "testing/tool_run.h"

namespace {

using namespace std::chrono_literals;
using ovtx::system::process::v1::ExitStatus;
using ovtx::system::process::v1::PipedChild;
using ovtx::test_support::v1::binaryPath;
using ovtx::test_support::v1::finishTool;
using ovtx::test_support::v1::InstallRoot;
using ovtx::test_support::v1::readFileBytes;
using ovtx::test_support::v1::runObjects;
using ovtx::test_support::v1::runTool;
using ovtx::test_support::v1::ToolResult;
using ovtx::test_support::v1::uniqueName;
using ovtx::test_support::v1::valueAt;
namespace fs = std::filesystem;

constexpr auto kTimeout = 60s;

// The value of `key=` in a line of simulcast_follow, as a number.
std::int64_t field(const std::string& line, const std::string& key) {
    const std::size_t at = line.find(" " + key + "=");
    EXPECT_NE(at, std::string::npos) << key << " in " << line;
    return at == std::string::npos ? -1 : std::stoll(line.substr(at + key.size() + 2));
}

// Follows `portName` for `records` records into files under `dir`, and checks that each channel's
// records join without a gap and that the audio of pair 1 holds exactly the samples of its times.
void followAndCheck(const std::string& portName, const fs::path& dir, int width, int height, int bitDepth) {
    const fs::path y4m = dir / "video.y4m";
    const std::string wav = (dir / "pair").string();
    // A follow of whole seconds rather than of a count of records: under load one channel's reader
    // may open a good while after another's, and a count would be spent on the early channels.
    const ToolResult follow =
        runTool("simulcast_follow", {portName, "--seconds", "2", "--y4m", y4m.string(), "--wav", wav});
    ASSERT_EQ(follow.exitCode, 0);

    // The files begin with the first frame both the video and the audio channel have.
    std::map<std::string, std::int64_t> lastEnd;
    std::map<std::string, int> seen;
    std::int64_t dumpStart = -1;
    std::int64_t audioEnd = -1;
    int videoFrames = 0;
    for (const std::string& line : follow.lines) {
        dumpStart = line.starts_with("first frame=") ? field(line, "start") : dumpStart;
    }
    ASSERT_GE(dumpStart, 0);
    for (const std::string& line : follow.lines) {
        const std::string kind = line.substr(0, line.find(' '));
        if (kind == "first") {
            continue;
        }
        const std::int64_t start = field(line, "start");
        if (seen[kind]++ > 0) {
            EXPECT_EQ(field(line, "disc"), 0) << line;
            EXPECT_EQ(start, lastEnd[kind]) << "gap before " << line;
        }
        lastEnd[kind] = field(line, "end");
        if (kind == "audio") {
            audioEnd = lastEnd[kind];
        }
        videoFrames += kind == "video" && start >= dumpStart ? 1 : 0;
    }
    // The four channels are followed by four readers that open one after another, so the first
    // records of a channel may come a few frames after another's: ask for a handful of each.
    for (const char* kind : {"video", "audio", "captions", "teletext"}) {
        EXPECT_GT(seen[kind], 2) << kind;
    }

    const std::string video = readFileBytes(y4m);
    const std::string header = "YUV4MPEG2 W" + std::to_string(width) + " H" + std::to_string(height) + " ";
    ASSERT_EQ(video.substr(0, header.size()), header);
    const std::size_t sampleBytes = bitDepth > 8 ? 2 : 1;
    const std::size_t frameBytes =
        std::string("FRAME\n").size() + static_cast<std::size_t>(width) * height * 3 / 2 * sampleBytes;
    const std::size_t headerBytes = video.find('\n') + 1;
    EXPECT_EQ((video.size() - headerBytes) % frameBytes, 0u);
    EXPECT_EQ((video.size() - headerBytes) / frameBytes, static_cast<std::size_t>(videoFrames));

    const std::string audio = readFileBytes(wav + "1.wav");
    ASSERT_GE(audio.size(), 44u);
    EXPECT_EQ(valueAt<std::uint32_t>(audio, 24), 48000u);
    const std::int64_t expectedSamples = audioEnd * 48000 / 10000000 - dumpStart * 48000 / 10000000;
    EXPECT_EQ(static_cast<std::int64_t>(valueAt<std::uint32_t>(audio, 40)), expectedSamples * 4);
}

class PatternE2eTest : public testing::Test {
  protected:
    void SetUp() override {
        m_port = uniqueName("pe");
        m_dir = fs::temp_directory_path() / ("sdi_tap_pattern_" + m_port);
        fs::create_directories(m_dir);
    }

    void TearDown() override {
        if (m_run.valid()) {
            m_run.kill(PipedChild::Signal::Kill);
            m_run.wait(kTimeout);
        }
        fs::remove_all(m_dir);
        EXPECT_EQ(runObjects(m_port), std::vector<std::string>{});
    }

    void startRun(const std::string& format, const std::string& bitDepth) {
        m_run = PipedChild::spawn(binaryPath("pattern_loop_helper"),
                                  {m_port, format, bitDepth, (m_dir / "run.stderr").string()});
        ASSERT_TRUE(m_run.valid());
    }

    std::string m_port;
    fs::path m_dir;
    PipedChild m_run;
};

TEST_F(PatternE2eTest, TenBitRun_IsContinuousAndEndsByInterrupt) {
    startRun("2", "10");
    followAndCheck(m_port, m_dir, 720, 480, 10);
    ASSERT_TRUE(m_run.kill(PipedChild::Signal::Interrupt));
    EXPECT_EQ(m_run.wait(kTimeout), ExitStatus::exitedWith(0));
}

// The daemon on its default path: no board, port 0, 1080p25. Its stop by a console signal is
// tested with the binary's other runs.
TEST(SdiTapPatternE2eTest, DefaultRun_IsFollowedAndEndsBySdiTapStop) {
    InstallRoot install;
    PipedChild daemon = install.start("sdi_tap", {"-sdiport", "0", "-videoformat", "3"});
    followAndCheck("0", install.directory(), 1920, 1080, 8);
    EXPECT_EQ(runTool("sdi_tap_stop", {"0"}).exitCode, 0);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(0));
    EXPECT_EQ(runObjects("0"), std::vector<std::string>{});
}

}  // namespace
