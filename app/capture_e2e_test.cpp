// The daemon's capture path end to end: the real binary on a simulated board, followed by the
// project's reader in another process, stopped by the named event and by a signal, and an input
// whose cable is pulled and put back. Each case has a port of its own on an eight-input board.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "log/testing/log_file_reader.h"
#include "system/process/piped_child.h"
#include "testing/files.h"
#include "testing/install_root.h"
#include "testing/shm.h"
#include "testing/tool_run.h"

namespace {

using ovtx::log::log_perf::v4::testing::containsText;
using ovtx::log::log_perf::v4::testing::readLogFile;
using ovtx::system::process::v1::ExitStatus;
using ovtx::system::process::v1::PipedChild;
using ovtx::test_support::v1::InstallRoot;
using ovtx::test_support::v1::readFileBytes;
using ovtx::test_support::v1::runObjects;
using ovtx::test_support::v1::runTool;
using ovtx::test_support::v1::ToolResult;
using ovtx::test_support::v1::valueAt;
using namespace std::chrono_literals;

constexpr auto kTimeout = 60s;
constexpr std::int64_t kPalFrame = 400000;  // 100 ns units

// The daemon on a board of this test process alone: eight inputs, `port` carrying `signal`.
PipedChild startDaemon(const InstallRoot& install, const std::string& port, const std::string& signal) {
    const std::string scenario =
        install.writeScenario(R"("rx": 8, "tx": 0)", R"("ports": {")" + port + R"(": )" + signal + "}");
    return install.start("sdi_tap", {"-sdiport", port, "-videoformat", "0", "-print"}, scenario);
}

struct Record {
    std::int64_t start = 0;
    std::int64_t end = 0;
    std::string summary;  // what follows the times
};

// The record lines of a follow, by kind.
std::map<std::string, std::vector<Record>> recordsByKind(const ToolResult& follow) {
    const std::regex line(R"((\w+) seq=\d+ disc=\d start=(\d+) end=(\d+) ?(.*))");
    std::map<std::string, std::vector<Record>> records;
    for (const std::string& text : follow.lines) {
        std::smatch match;
        if (std::regex_match(text, match, line)) {
            records[match[1]].push_back({std::stoll(match[2]), std::stoll(match[3]), match[4]});
        }
    }
    return records;
}

// Frequency (by rising zero crossings) and RMS level in dBFS of the left channel of a WAV file,
// the medians over its windows of 100 ms, so that a record lost on a loaded machine (silence in
// the file) doesn't move them. {0, -200} for a silent file.
std::pair<double, double> toneOf(const std::string& wav) {
    constexpr std::size_t kWindow = 4800;
    const std::size_t samples = wav.size() > 44 ? (wav.size() - 44) / 4 : 0;
    std::vector<double> frequencies;
    std::vector<double> levels;
    for (std::size_t first = 1; first + kWindow <= samples; first += kWindow) {
        double sum = 0;
        int crossings = 0;
        for (std::size_t i = first; i < first + kWindow; ++i) {
            const auto sample = valueAt<std::int16_t>(wav, 44 + 4 * i);
            sum += double(sample) * sample;
            crossings += valueAt<std::int16_t>(wav, 44 + 4 * (i - 1)) < 0 && sample >= 0 ? 1 : 0;
        }
        if (sum > 0) {
            frequencies.push_back(crossings * 10.0);
            levels.push_back(20 * std::log10(std::sqrt(sum / kWindow) / 32768));
        }
    }
    if (levels.size() < 10) {
        return {0, -200};
    }
    std::nth_element(frequencies.begin(), frequencies.begin() + frequencies.size() / 2, frequencies.end());
    std::nth_element(levels.begin(), levels.begin() + levels.size() / 2, levels.end());
    return {frequencies[frequencies.size() / 2], levels[levels.size() / 2]};
}

TEST(CaptureE2eTest, FollowedRun_PublishesFramesInStepAndTonesInTheirPairs_NamedStopEndsIt) {
    InstallRoot install;
    PipedChild daemon = startDaemon(install, "5", R"({"signal": [{"format": 0}], "audio": {"pairs": [
        {"pair": 1, "tone": 440, "level": -12}, {"pair": 4, "present": false}]}})");
    const std::string prefix = (install.directory() / "pair").string();
    const ToolResult follow = runTool("simulcast_follow", {"5", "--records", "200", "--wav", prefix});
    ASSERT_EQ(follow.exitCode, 0);

    auto records = recordsByKind(follow);
    std::map<std::int64_t, int> kindsByStart;
    for (const char* kind : {"video", "audio", "teletext", "captions"}) {
        ASSERT_GE(records[kind].size(), 20u) << kind;
        std::set<std::int64_t> starts;
        for (const Record& record : records[kind]) {
            EXPECT_EQ(record.end - record.start, kPalFrame) << kind;
            EXPECT_EQ(record.start % kPalFrame, 0) << kind;
            EXPECT_TRUE(starts.insert(record.start).second) << kind << " repeats " << record.start;
            ++kindsByStart[record.start];
        }
    }
    // A record after one that a loaded machine cost carries the discontinuity flag.
    for (const Record& video : records["video"]) {
        EXPECT_TRUE(
            std::regex_match(video.summary, std::regex("magic=0x4A9E mismatch=0 rdisc=[01] aspect=4:3")))
            << video.summary;
    }
    // Present pairs carry a frame of 48 kHz samples; the absent fifth pair is made-up silence.
    const std::regex pairs(R"(magic=0x5541 rdisc=[01] pairs=(1/1920/1,){4}0/\d+/\d+(,1/1920/1){3})");
    for (const Record& audio : records["audio"]) {
        EXPECT_TRUE(std::regex_match(audio.summary, pairs)) << audio.summary;
    }
    // The four records of a frame carry the same times: many starts stand in all four kinds.
    EXPECT_GE(
        std::count_if(kindsByStart.begin(), kindsByStart.end(), [](const auto& k) { return k.second == 4; }),
        10);

    const auto [frequency1, level1] = toneOf(readFileBytes(prefix + "1.wav"));
    const auto [frequency2, level2] = toneOf(readFileBytes(prefix + "2.wav"));
    const auto [frequency5, level5] = toneOf(readFileBytes(prefix + "5.wav"));
    EXPECT_NEAR(frequency1, 1000, 10);
    EXPECT_NEAR(level1, -23, 0.5);  // RMS of a sine 3 dB below its -20 dBFS peak
    EXPECT_NEAR(frequency2, 440, 10);
    EXPECT_NEAR(level2, -15, 0.5);
    EXPECT_EQ(level5, -200);  // absent: made-up silence

    EXPECT_EQ(runTool("sdi_tap_stop", {"5"}).exitCode, 0);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(0)) << daemon.standardError();
    EXPECT_EQ(runObjects("5"), std::vector<std::string>{});
    const auto lines = readLogFile(install.logFile("5").string());
    EXPECT_TRUE(containsText(lines, "Warning : STOP SIGNAL DETECTED"));
}

// A signal ends the run as the named event does, and takes its public objects with it.
TEST(CaptureE2eTest, CablePulledAndPutBack_MarkersInTheRecordsAndTheLogThenFramesAgain_SignalEndsIt) {
    InstallRoot install;
    PipedChild daemon = startDaemon(
        install, "7",
        R"({"signal": [{"format": 0, "frames": 75}, {"noSignal": true, "frames": 25}, {"format": 0}]})");
    const ToolResult follow = runTool("simulcast_follow", {"7", "--seconds", "6"});
    ASSERT_EQ(follow.exitCode, 0);
    EXPECT_FALSE(runObjects("7").empty());
    daemon.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(0)) << daemon.standardError();
    EXPECT_EQ(runObjects("7"), std::vector<std::string>{});

    // Frames, then markers (the header alone, 4:3, the time standing still), then frames again.
    std::vector<char> phases;
    std::int64_t markerStart = -1;
    auto records = recordsByKind(follow);
    for (const Record& video : records["video"]) {
        const bool marker = video.summary.find("mismatch=0") == std::string::npos;
        EXPECT_NE(video.summary.find("aspect=4:3"), std::string::npos) << video.summary;
        if (marker) {
            EXPECT_TRUE(markerStart < 0 || video.start == markerStart) << video.start;
            markerStart = video.start;
        }
        if (phases.empty() || phases.back() != (marker ? 'm' : 'f')) {
            phases.push_back(marker ? 'm' : 'f');
        }
    }
    EXPECT_EQ(std::string(phases.begin(), phases.end()), "fmf");

    // One loss of the format and one restart; the format told at the set-up and at the restart.
    const auto lines = readLogFile(install.logFile("7").string());
    const auto count = [&lines](const std::string& text) {
        return std::count_if(lines.begin(), lines.end(),
                             [&](const auto& line) { return line.text.find(text) != std::string::npos; });
    };
    EXPECT_EQ(count("Auto detected incoherent format"), 1);
    EXPECT_EQ(count("Video format : PAL - 576i @ 25Hz"), 2);
    EXPECT_EQ(count("Auto detected video format: 720x576i 25 fps"), 2);
    for (const char* text : {"Warning : Incoherent Input Video Standard", "Set Input Video Standard done",
                             "Opened input stream"}) {
        EXPECT_TRUE(containsText(lines, text)) << text;
    }
    EXPECT_EQ(count("Opened input stream"), 2);  // at the start (with a dot) and at the restart
}

}  // namespace
