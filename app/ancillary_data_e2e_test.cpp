// The daemon on a simulated board that sends captions, teletext and WSS: a consumer process reads
// the caption and teletext records back through standard decoders as the text that was sent, and
// finds in each video record the aspect that the WSS of its own frame signalled.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "encoding/subtitle_text/subtitle_decoder.h"
#include "simulcast/capture_records.h"
#include "simulcast/simulcast_reader.h"
#include "system/process/piped_child.h"
#include "testing/files.h"
#include "testing/install_root.h"
#include "testing/shm.h"

namespace {

namespace records = ovtx::simulcast::capture_records::v1;
using ovtx::encoding::subtitle_text::v1::SubtitleDecoder;
using ovtx::simulcast::simulcast_channel::v1::SimulcastReader;
using ovtx::system::process::v1::ExitStatus;
using ovtx::system::process::v1::PipedChild;
using ovtx::system::process::v1::SpawnOptions;
using ovtx::test_support::v1::binaryPath;
using ovtx::test_support::v1::eventually;
using ovtx::test_support::v1::InstallRoot;
using ovtx::test_support::v1::runObjects;
using namespace std::chrono_literals;

constexpr auto kTimeout = 60s;
constexpr auto kFollowFor = 30s;

// WSS that turns every 40 frames: 16:9 in frames 0-39, 4:3 in 40-79, and so on.
std::string wssSchedule() {
    std::string changes;
    for (int at = 0; at < 4000; at += 40) {
        changes += std::string(changes.empty() ? "" : ", ") + R"({"at": )" + std::to_string(at) +
                   R"(, "aspect": ")" + (at / 40 % 2 == 0 ? "16:9" : "4:3") + R"("})";
    }
    return R"("wss": [)" + changes + "]";
}
std::string scheduledAspect(std::int64_t frame) {
    return frame / 40 % 2 == 0 ? "16:9" : "4:3";
}

// The same caption every 30 frames, so that a consumer that attaches at any time sees it whole.
std::string repeatedCaption(const std::string& text) {
    std::string captions;
    for (int at = 0; at < 4000; at += 30) {
        captions += std::string(captions.empty() ? "" : ", ") + R"({"at": )" + std::to_string(at) +
                    R"(, "text": ")" + text + R"("})";
    }
    return R"("captions": [)" + captions + "]";
}

const std::string kPages = R"("teletext": {"pages": [
    {"magazine": 8, "page": "0x88", "subtitle": true, "rows": {"22": "Subtitle from the signal"}},
    {"magazine": 1, "page": "0x00", "rows": {"1": "Index page"}}], "initialPage": "0x112"})";

struct SignalCase {
    std::string name;
    int format;
    std::string port;         // the keys of port 0 beside its signal
    std::string captionText;  // what CC1 shows; empty: no caption entries at all
    std::map<int, std::string> pages;
    bool wss;  // the aspect follows wssSchedule(); else `aspect` throughout
    std::string aspect;
    std::vector<std::uint8_t> descriptor;  // of the last teletext record
};

// What a consumer gathered from the three channels of a run.
struct Followed {
    SubtitleDecoder captions;
    SubtitleDecoder teletext;
    int captionEntries = 0;
    int videoRecords = 0;
    std::vector<std::string> wrongAspects;  // "frame n: a:b"
    std::vector<std::string> aspectsSeen;
    std::vector<std::uint8_t> descriptor;
};

class AncillaryDataE2eTest : public testing::TestWithParam<SignalCase> {
  protected:
    void TearDown() override {
        EXPECT_TRUE(eventually([] { return runObjects("0").empty(); }, 10s))
            << "left in /dev/shm: " << testing::PrintToString(runObjects("0"));
    }

    PipedChild startDaemon() {
        const std::string scenario = (m_install.directory() / "board.json").string();
        std::ofstream(scenario) << R"({"board": {"serial": "0x5E3)"
                                << ovtx::system::process::v1::currentProcessId()
                                << R"(", "rx": 2, "tx": 2}, "ports": {"0": {"signal": [{"format": )"
                                << GetParam().format << "}], " << GetParam().port << "}}}";
        SpawnOptions options;
        options.environment = m_install.environment();
        options.environment["SDI_TAP_SIMULATED_BOARD"] = scenario;
        options.captureStandardError = true;
        return PipedChild::spawn(
            binaryPath("sdi_tap"),
            {"-sdiport", "0", "-videoformat", std::to_string(GetParam().format), "-usetc"}, options);
    }

    static void openWhenReady(SimulcastReader& reader, std::string_view prefix) {
        ASSERT_TRUE(
            eventually([&] { return reader.open(records::channelName(prefix, "0").c_str()); }, kTimeout));
    }

    // Reads one record of each channel a frame until all that the case expects was seen.
    void follow(Followed& followed) {
        SimulcastReader video, teletext, captions;
        openWhenReady(video, records::kVideoPrefix);
        openWhenReady(teletext, records::kTeletextPrefix);
        openWhenReady(captions, records::kCaptionPrefix);
        records::VideoRecordHeader header{};
        records::TeletextRecord text{};
        records::CaptionRecord caption{};
        const auto deadline = std::chrono::steady_clock::now() + kFollowFor;
        while (std::chrono::steady_clock::now() < deadline) {
            bool discontinuity = false;
            bool timedOut = false;
            ASSERT_TRUE(video.read(&header, sizeof header, 5000, discontinuity, timedOut));
            ASSERT_TRUE(teletext.read(&text, sizeof text, 5000, discontinuity, timedOut));
            if (discontinuity) {
                followed.teletext.markGap();
            }
            followed.teletext.feedTeletextData({text.data, std::min<std::size_t>(text.dataLength, 1473)});
            followed.descriptor.assign(text.descriptor,
                                       text.descriptor + std::min<std::size_t>(text.descriptorLength, 102));
            ASSERT_TRUE(captions.read(&caption, sizeof caption, 5000, discontinuity, timedOut));
            if (discontinuity) {
                followed.captions.markGap();
            }
            for (std::size_t i = 0; i < std::min<std::size_t>(caption.count, records::kMaxCaptionEntries);
                 ++i) {
                const records::CaptionEntry& entry = caption.entries[i];
                ++followed.captionEntries;
                if (entry.ccValid == 1 && entry.ccType == 0) {
                    followed.captions.feedCaptionPair(static_cast<std::uint8_t>(entry.ccData1),
                                                      static_cast<std::uint8_t>(entry.ccData2));
                }
            }
            noteAspect(header, followed);
            if (seenAll(followed)) {
                return;
            }
        }
    }

    static void noteAspect(const records::VideoRecordHeader& header, Followed& followed) {
        const SignalCase& c = GetParam();
        ++followed.videoRecords;
        const std::string aspect =
            std::to_string(header.aspectNumerator) + ":" + std::to_string(header.aspectDenominator);
        const std::int64_t frame = header.start * 25 / records::kTimeUnitsPerSecond;  // PAL and HD at 25
        const std::string expected = c.wss ? scheduledAspect(frame) : c.aspect;
        if (aspect != expected) {
            followed.wrongAspects.push_back("frame " + std::to_string(frame) + ": " + aspect);
        }
        if (followed.aspectsSeen.empty() || followed.aspectsSeen.back() != aspect) {
            followed.aspectsSeen.push_back(aspect);
        }
    }

    static bool seenAll(Followed& followed) {
        const SignalCase& c = GetParam();
        if (followed.captions.captionText() != c.captionText) {
            return false;
        }
        for (const auto& [page, text] : c.pages) {
            if (followed.teletext.teletextText(page) != text) {
                return false;
            }
        }
        return followed.videoRecords >= 100 && (!c.wss || followed.aspectsSeen.size() >= 3);
    }

    InstallRoot m_install;
};

TEST_P(AncillaryDataE2eTest, RecordsCarryWhatTheSignalSent) {
    const SignalCase& c = GetParam();
    PipedChild daemon = startDaemon();
    Followed followed;
    follow(followed);
    daemon.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(0)) << daemon.standardError();

    EXPECT_EQ(followed.captions.captionText(), c.captionText);
    if (c.captionText.empty()) {
        EXPECT_EQ(followed.captionEntries, 0);
    }
    for (const auto& [page, text] : c.pages) {
        EXPECT_EQ(followed.teletext.teletextText(page), text) << std::hex << page;
    }
    EXPECT_EQ(followed.descriptor, c.descriptor);
    EXPECT_EQ(followed.wrongAspects, std::vector<std::string>{});
    if (c.wss) {
        EXPECT_GE(followed.aspectsSeen.size(), 3u) << testing::PrintToString(followed.aspectsSeen);
    }
}

// Page 888 (magazine bits 0) as a subtitle, then the initial page 0x12 as listed: 0x84.
const std::vector<std::uint8_t> kDescriptor{0x46, 10, 'u', 'n', 'd', 0x10, 0x88, 'u', 'n', 'd', 0x09, 0x84};
const std::vector<std::uint8_t> kEmptyDescriptor{0x46, 0x00};

INSTANTIATE_TEST_SUITE_P(
    Signals, AncillaryDataE2eTest,
    testing::Values(SignalCase{"PalTeletextAndWss",
                               0,
                               kPages + ", " + wssSchedule(),
                               "",
                               {{0x888, "Subtitle from the signal"}, {0x100, "Index page"}},
                               true,
                               "",
                               kDescriptor},
                    SignalCase{"NtscLine21",
                               2,
                               repeatedCaption("CC1 ON LINE 21"),
                               "CC1 ON LINE 21",
                               {},
                               false,
                               "4:3",
                               kEmptyDescriptor},
                    SignalCase{"HdAncillaryPackets",
                               3,
                               kPages + ", " + repeatedCaption("IN CAPTION PACKETS"),
                               "IN CAPTION PACKETS",
                               {{0x888, "Subtitle from the signal"}, {0x100, "Index page"}},
                               false,
                               "16:9",
                               kDescriptor}),
    [](const testing::TestParamInfo<SignalCase>& info) { return info.param.name; });

}  // namespace
