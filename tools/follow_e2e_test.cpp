// simulcast_follow on the daemon itself (pattern mode, port 0, PAL), read back with the standard
// tools: ffmpeg reads the SCC file and the teletext transport stream, ffprobe the Y4M and WAV a
// pipe carries, and the beep is found at the same moment in picture, sound, captions and teletext.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
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
using ovtx::test_support::v1::valueAt;
namespace fs = std::filesystem;

constexpr auto kTimeout = 60s;
constexpr std::int64_t kMs = 10000;  // 100 ns units
constexpr std::int64_t kBeepPeriod = 2000 * kMs;
constexpr std::int64_t kBeepLength = 100 * kMs;
constexpr std::int64_t kFrame = 40 * kMs;  // PAL
constexpr std::size_t kLumaBytes = 720 * 576;

struct Cue {
    std::int64_t startMs;
    std::int64_t endMs;
    std::string text;
};

// The cues of an SRT file; tags such as <font> are kept in the text.
std::vector<Cue> readSubRip(const fs::path& path) {
    const std::string text = readFileBytes(path);
    const std::regex cue(R"((\d+):(\d+):(\d+),(\d+) --> (\d+):(\d+):(\d+),(\d+)\r?\n([^\r\n]*))");
    auto ms = [](const std::smatch& m, int at) {
        return ((std::stoll(m[at]) * 60 + std::stoll(m[at + 1])) * 60 + std::stoll(m[at + 2])) * 1000 +
               std::stoll(m[at + 3]);
    };
    std::vector<Cue> cues;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), cue); it != std::sregex_iterator(); ++it) {
        cues.push_back({ms(*it, 1), ms(*it, 5), (*it)[9]});
    }
    return cues;
}

// Starts of the cues that hold `word`.
std::vector<std::int64_t> cueStarts(const std::vector<Cue>& cues, const std::string& word) {
    std::vector<std::int64_t> starts;
    for (const Cue& cue : cues) {
        if (cue.text.find(word) != std::string::npos &&
            (starts.empty() || cue.startMs - starts.back() > 500)) {
            starts.push_back(cue.startMs);  // ffmpeg's teletext decoder repeats the page every frame
        }
    }
    return starts;
}

// Runs `command` through the shell and collects its standard output.
ToolResult runShell(const std::string& command) {
    PipedChild shell = PipedChild::spawn("/bin/sh", {"-c", command});
    shell.closeInput();
    return finishTool(shell, kTimeout);
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

// Indexes of the Y4M frames that are white (the beep's flash), read at a point below the panel.
std::vector<std::int64_t> whiteFrames(const fs::path& path, std::int64_t& frames) {
    std::ifstream file(path, std::ios::binary);
    std::string header;
    std::getline(file, header);
    const std::size_t frameBytes = 6 + kLumaBytes * 3 / 2;
    std::vector<std::int64_t> white;
    std::vector<char> frame(frameBytes);
    for (frames = 0; file.read(frame.data(), static_cast<std::streamsize>(frameBytes)); ++frames) {
        if (static_cast<std::uint8_t>(frame[6 + 500 * 720 + 700]) == 240) {
            white.push_back(frames);
        }
    }
    return white;
}

// Sample indexes where pair 1's tone (220 Hz, 440 Hz during a beep) starts a beep, by its zero
// crossings in windows of 10 ms.
std::vector<std::int64_t> beepSamples(const std::string& wav) {
    std::vector<std::int64_t> starts;
    const std::size_t samples = (wav.size() - 44) / 4;
    bool inBeep = false;
    constexpr std::size_t kWindow = 480;
    for (std::size_t w = 0; (w + 1) * kWindow < samples; ++w) {
        int crossings = 0;
        for (std::size_t i = w * kWindow + 1; i < (w + 1) * kWindow; ++i) {
            const auto a = valueAt<std::int16_t>(wav, 44 + 4 * (i - 1));
            const auto b = valueAt<std::int16_t>(wav, 44 + 4 * i);
            crossings += (a < 0) != (b < 0) ? 1 : 0;
        }
        const bool beep = crossings >= 7;  // 440 Hz gives about 9 in 10 ms, 220 Hz about 4
        if (beep && !inBeep) {
            starts.push_back(static_cast<std::int64_t>(w * kWindow));
        }
        inBeep = beep;
    }
    return starts;
}

class FollowDaemonE2eTest : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        s_install = new InstallRoot();
        s_daemon = new PipedChild(s_install->start("sdi_tap", {"-sdiport", "0", "-videoformat", "0"}));
    }

    static void TearDownTestSuite() {
        EXPECT_EQ(runTool("sdi_tap_stop", {"0"}).exitCode, 0);
        EXPECT_EQ(s_daemon->wait(kTimeout), ExitStatus::exitedWith(0));
        EXPECT_EQ(runObjects("0"), std::vector<std::string>{});
        delete s_daemon;
        delete s_install;
    }

    fs::path dir() const { return s_install->directory(); }

    static InstallRoot* s_install;
    static PipedChild* s_daemon;
};

InstallRoot* FollowDaemonE2eTest::s_install = nullptr;
PipedChild* FollowDaemonE2eTest::s_daemon = nullptr;

// One follow writes every kind of file; the beep has to be found at the same time in each.
TEST_F(FollowDaemonE2eTest, FilesOfOneFollow_BeepAtTheSameMomentEverywhere) {
    const fs::path d = dir();
    const ToolResult follow = runTool(
        "simulcast_follow",
        {"0", "--seconds", "4.6", "--quiet", "--y4m", (d / "v.y4m").string(), "--wav-pair", "1",
         (d / "a.wav").string(), "--scc", (d / "cc.scc").string(), "--cc-srt", (d / "cc.srt").string(),
         "--teletext-ts", (d / "t.ts").string(), "--teletext-srt", "888", (d / "t.srt").string()});
    ASSERT_EQ(follow.exitCode, 0);
    ASSERT_EQ(follow.lines.size(), 1u) << joined(follow.lines);
    std::smatch first;
    ASSERT_TRUE(std::regex_match(follow.lines[0], first, std::regex(R"(first frame=(\d+) start=(\d+))")));
    const std::int64_t origin = std::stoll(first[2]);
    EXPECT_EQ(origin, std::stoll(first[1]) * kFrame);

    std::int64_t frames = 0;
    const std::vector<std::int64_t> white = whiteFrames(d / "v.y4m", frames);
    ASSERT_GT(frames, 80);
    const std::int64_t length = frames * kFrame;
    // Beeps in the dump, as times from its start: every multiple of 2 s of stream time.
    std::vector<std::int64_t> beepsMs;
    std::vector<std::int64_t> whiteMs;
    for (std::int64_t b = origin / kBeepPeriod * kBeepPeriod; b < origin + length; b += kBeepPeriod) {
        if (b + kBeepLength > origin) {  // a dump may begin in the middle of a beep
            beepsMs.push_back(std::max<std::int64_t>(b - origin, 0) / kMs);
        }
    }
    for (std::int64_t f : white) {
        if (whiteMs.empty() || f * 40 - whiteMs.back() > 500) {
            whiteMs.push_back(f * 40);
        }
    }
    ASSERT_FALSE(beepsMs.empty());
    EXPECT_EQ(whiteMs, beepsMs) << "the flash of the picture";

    const std::string wav = readFileBytes(d / "a.wav");
    ASSERT_GT(wav.size(), 44u);
    // A stop finds the channels a frame or two apart: the ends may differ, the starts don't.
    const auto soundFrames = static_cast<std::int64_t>((wav.size() - 44) / 4 / 1920);
    EXPECT_LE(std::abs(soundFrames - frames), 3) << "sound about as long as the picture";
    std::vector<std::int64_t> soundMs;
    for (std::int64_t sample : beepSamples(wav)) {
        soundMs.push_back(sample / 48);
    }
    EXPECT_EQ(soundMs, beepsMs) << "the tone's octave";

    // Teletext is there from the first frame. A caption is loaded into the decoder's hidden memory
    // soon after the beep before it, so a beep in the first 2 s of the dump may have none.
    std::vector<std::int64_t> captionBeepsMs;
    for (std::int64_t ms : beepsMs) {
        if (ms >= 2000 && ms <= length / kMs - 200) {
            captionBeepsMs.push_back(ms);
        }
    }
    auto near = [](std::vector<std::int64_t> found, const std::vector<std::int64_t>& expected,
                   std::int64_t slackMs) {
        found.erase(std::remove_if(found.begin(), found.end(),
                                   [&](std::int64_t ms) {
                                       return std::none_of(
                                           expected.begin(), expected.end(),
                                           [&](std::int64_t e) { return std::abs(ms - e) <= slackMs; });
                                   }),
                    found.end());
        return found.size();
    };

    const std::vector<std::int64_t> ownCaptions = cueStarts(readSubRip(d / "cc.srt"), "BEEP");
    EXPECT_EQ(near(ownCaptions, captionBeepsMs, 0), captionBeepsMs.size()) << readFileBytes(d / "cc.srt");
    // The run's first beep, at time 0, has its word painted on: it shows a frame after the beep.
    EXPECT_EQ(near(ownCaptions, beepsMs, 200), ownCaptions.size()) << "none outside a beep:\n"
                                                                   << readFileBytes(d / "cc.srt");

    ASSERT_EQ(runShell("ffmpeg -v error -y -i " + (d / "cc.scc").string() + " " + (d / "cc_ff.srt").string())
                  .exitCode,
              0);
    const std::vector<std::int64_t> sccCaptions = cueStarts(readSubRip(d / "cc_ff.srt"), "BEEP");
    EXPECT_EQ(near(sccCaptions, captionBeepsMs, 40), captionBeepsMs.size()) << readFileBytes(d / "cc.scc");
    EXPECT_EQ(near(sccCaptions, beepsMs, 200), sccCaptions.size()) << readFileBytes(d / "cc_ff.srt");

    const std::vector<std::int64_t> ownTeletext = cueStarts(readSubRip(d / "t.srt"), "Beep");
    EXPECT_EQ(ownTeletext, beepsMs) << readFileBytes(d / "t.srt");

    ASSERT_EQ(runShell("ffmpeg -v error -y -txt_format text -txt_page 888 -i " + (d / "t.ts").string() +
                       " -map 0:s " + (d / "t_ff.srt").string())
                  .exitCode,
              0);
    const std::vector<std::int64_t> tsTeletext = cueStarts(readSubRip(d / "t_ff.srt"), "Beep");
    EXPECT_EQ(near(tsTeletext, beepsMs, 20), beepsMs.size()) << readFileBytes(d / "t_ff.srt");
    EXPECT_EQ(tsTeletext.size(), beepsMs.size());
}

// Video and sound piped into ffprobe, and the stats of a follow, on one run.
TEST_F(FollowDaemonE2eTest, StandardOutputAndStats_ReadByFfprobeAndEverySecond) {
    const std::string follow = binaryPath("simulcast_follow") + " 0 --records 40 ";
    const ToolResult video =
        runShell(follow + "--y4m - | ffprobe -v error -show_entries " +
                 "stream=width,height,r_frame_rate,field_order,sample_aspect_ratio -of default=nw=1 -");
    EXPECT_EQ(joined(video.lines),
              "width=720\nheight=576\nsample_aspect_ratio=16:15\nfield_order=tt\nr_frame_rate=25/1\n");
    const ToolResult audio = runShell(follow + "--wav-pair 1 /dev/stdout | ffprobe -v error -show_entries " +
                                      "stream=codec_name,sample_rate,channels -of default=nw=1 -");
    EXPECT_EQ(joined(audio.lines), "codec_name=pcm_s16le\nsample_rate=48000\nchannels=2\n");

    const ToolResult stats = runTool("simulcast_follow", {"0", "--stats", "--seconds", "2.5"});
    ASSERT_EQ(stats.exitCode, 0);
    ASSERT_EQ(stats.lines.size(), 8u) << joined(stats.lines);
    const std::string last = joined({stats.lines.begin() + 4, stats.lines.end()});
    EXPECT_TRUE(std::regex_search(
        last, std::regex(R"(stats video records=\d+ rate=2\d\.\d\d disc=0 last_start=\d+ aspect=4:3)")))
        << last;
    EXPECT_NE(last.find(" peak_dBFS=-12.0,-12.0,-12.0,-12.0,-12.0,-12.0,-12.0,-12.0"), std::string::npos)
        << last;
    EXPECT_NE(last.find(" entries=48 cc1_pairs="), std::string::npos) << last;
    EXPECT_NE(last.find(" pages=888 lines="), std::string::npos) << last;
}

}  // namespace
