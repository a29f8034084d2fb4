// The daemon on a simulated board that sends captions, teletext and WSS: a consumer process reads
// the caption and teletext records back through standard decoders as the text that was sent, and
// finds in each video record the aspect that the WSS of its own frame signalled.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "encoding/subtitle_text/subtitle_decoder.h"
#include "simulcast/capture_records.h"
#include "simulcast/simulcast_reader.h"
#include "system/process/piped_child.h"
#include "testing/install_root.h"
#include "testing/shm.h"

namespace {

namespace records = ovtx::simulcast::capture_records::v1;
using ovtx::simulcast::simulcast_channel::v1::SimulcastReader;
using ovtx::system::process::v1::PipedChild;
using ovtx::test_support::v1::eventually;
using namespace std::chrono_literals;

// Entries of `key` every 40 frames for ever, `first` and `second` in turn: WSS that changes, or a
// caption sent anew, so that a consumer attaching at any time sees one whole.
std::string every40Frames(const std::string& key, const std::string& first, const std::string& second) {
    std::string list;
    for (int at = 0; at < 4000; at += 40) {
        list += (list.empty() ? "" : ", ") + std::string(R"({"at": )") + std::to_string(at) + ", " + key +
                R"(: ")" + (at % 80 == 0 ? first : second) + R"("})";
    }
    return list;
}

const std::string kPages = R"("teletext": {"pages": [
    {"magazine": 8, "page": "0x88", "subtitle": true, "rows": {"22": "Subtitle from the signal"}},
    {"magazine": 1, "page": "0x00", "rows": {"1": "Index page"}}]})";
const std::map<int, std::string> kPageTexts{{0x888, "Subtitle from the signal"}, {0x100, "Index page"}};

struct SignalCase {
    std::string name;
    int format;
    std::string port;  // what port 0 carries beside its signal
    std::string captionText;
    std::map<int, std::string> pages;
    std::string aspect;  // "wss": 16:9 in input frames 0-39, 4:3 in 40-79, ...
};
void PrintTo(const SignalCase& c, std::ostream* out) {
    *out << c.name;
}

class AncillaryDataE2eTest : public testing::TestWithParam<SignalCase> {
  protected:
    void TearDown() override {
        EXPECT_TRUE(eventually([] { return ovtx::test_support::v1::runObjects("0").empty(); }, 10s));
    }
};

TEST_P(AncillaryDataE2eTest, RecordsCarryWhatTheSignalSent) {
    const SignalCase& c = GetParam();
    ovtx::test_support::v1::InstallRoot install;
    // At half speed: the daemon under test has time for every picture even on a loaded machine.
    const std::string scenario =
        install.writeScenario("", R"("speed": 0.5, "ports": {"0": {"signal": [{"format": )" +
                                      std::to_string(c.format) + "}], " + c.port + "}}");
    PipedChild daemon = install.start(
        "sdi_tap", {"-sdiport", "0", "-videoformat", std::to_string(c.format), "-usetc"}, scenario);
    SimulcastReader video, teletext, captions;
    for (auto [reader, prefix] : {std::pair{&video, records::kVideoPrefix},
                                  {&teletext, records::kTeletextPrefix},
                                  {&captions, records::kCaptionPrefix}}) {
        ASSERT_TRUE(eventually([&] { return reader->open(records::channelName(prefix, "0").c_str()); }, 60s));
    }
    ovtx::encoding::subtitle_text::v1::SubtitleDecoder ccDecoder, pageDecoder;
    records::VideoRecordHeader header{};
    records::TeletextRecord text{};
    records::CaptionRecord caption{};
    std::vector<std::string> wrongAspects;
    std::set<std::string> aspects;
    const auto done = [&] {
        bool all =
            ccDecoder.captionText() == c.captionText && aspects.size() == (c.aspect == "wss" ? 2u : 1u);
        for (const auto& [page, pageText] : c.pages) {
            all = all && pageDecoder.teletextText(page) == pageText;
        }
        return all;
    };
    bool discontinuity = false, timedOut = false;
    for (int frame = 0; frame < 750 && !done(); ++frame) {
        const std::int64_t textEnd = text.end, captionEnd = caption.end;
        ASSERT_TRUE(video.read(&header, sizeof header, 5000, discontinuity, timedOut));
        ASSERT_TRUE(teletext.read(&text, sizeof text, 5000, discontinuity, timedOut));
        ASSERT_TRUE(captions.read(&caption, sizeof caption, 5000, discontinuity, timedOut));
        if (text.start != textEnd) {  // frames lost on the way: what was in transmission goes
            pageDecoder.markGap();
        }
        if (caption.start != captionEnd) {
            ccDecoder.markGap();
        }
        pageDecoder.feedTeletextData({text.data, std::min<std::size_t>(text.dataLength, sizeof text.data)});
        for (std::size_t i = 0; i < std::min<std::size_t>(caption.count, records::kMaxCaptionEntries); ++i) {
            if (caption.entries[i].ccValid == 1 && caption.entries[i].ccType == 0) {
                ccDecoder.feedCaptionPair(caption.entries[i].ccData1, caption.entries[i].ccData2);
            }
        }
        const std::int64_t inputFrame = header.start * 25 / records::kTimeUnitsPerSecond;  // by timecode
        const std::string aspect =
            std::to_string(header.aspectNumerator) + ":" + std::to_string(header.aspectDenominator);
        aspects.insert(aspect);
        if (aspect != (c.aspect != "wss" ? c.aspect : inputFrame / 40 % 2 == 0 ? "16:9" : "4:3")) {
            wrongAspects.push_back(std::to_string(inputFrame) + ": " + aspect);
        }
    }
    daemon.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(daemon.wait(60s), ovtx::system::process::v1::ExitStatus::exitedWith(0));
    EXPECT_TRUE(done()) << "CC1 shows \"" << ccDecoder.captionText() << "\", 888 shows \""
                        << pageDecoder.teletextText(0x888).value_or("nothing") << "\"";
    EXPECT_EQ(wrongAspects, std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(
    Signals, AncillaryDataE2eTest,
    testing::Values(SignalCase{"PalTeletextAndWss", 0,
                               kPages + R"(, "wss": [)" + every40Frames(R"("aspect")", "16:9", "4:3") + "]",
                               "", kPageTexts, "wss"},
                    SignalCase{
                        "NtscLine21",
                        2,
                        R"("captions": [)" + every40Frames(R"("text")", "ON LINE 21", "ON LINE 21") + "]",
                        "ON LINE 21",
                        {},
                        "4:3"},
                    SignalCase{"HdAncillaryPackets", 3,
                               kPages + R"(, "captions": [)" +
                                   every40Frames(R"("text")", "IN PACKETS", "IN PACKETS") + "]",
                               "IN PACKETS", kPageTexts, "16:9"}),
    [](const testing::TestParamInfo<SignalCase>& info) { return info.param.name; });

}  // namespace
