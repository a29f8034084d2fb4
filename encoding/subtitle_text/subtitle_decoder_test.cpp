#include "encoding/subtitle_text/subtitle_decoder.h"

#include <gtest/gtest.h>

#include <vector>

#include "encoding/subtitling/cea608.h"
#include "encoding/subtitling/teletext_coding.h"

namespace {

using namespace ovtx::encoding::subtitle_text::v1;
namespace cc = ovtx::encoding::subtitling::v1;

void feed(SubtitleDecoder& decoder, const std::vector<cc::Cea608Pair>& pairs) {
    for (const cc::Cea608Pair& pair : pairs) {
        decoder.feedCaptionPair(pair.first, pair.second);
    }
}

std::vector<cc::Cea608Pair> popOn(const std::string& text) {
    std::vector<cc::Cea608Pair> pairs{cc::cea608Control(cc::Cea608Command::ResumeCaptionLoading),
                                      cc::cea608Control(cc::Cea608Command::EraseNonDisplayedMemory),
                                      cc::cea608PreambleAddress(15, 0)};
    for (const cc::Cea608Pair& pair : cc::cea608Text(text)) {
        pairs.push_back(pair);
    }
    pairs.push_back(cc::cea608Control(cc::Cea608Command::EndOfCaption));
    return pairs;
}

std::vector<std::uint8_t> teletextPage(int page, const std::string& row22) {
    cc::TeletextPageHeader header;
    header.magazine = page >> 8;
    header.page = page & 0xFF;
    header.subtitle = true;
    header.erasePage = true;
    cc::TeletextPageHeader end = header;
    end.page = 0xFF;
    std::vector<cc::TeletextPacket> packets{cc::pageHeaderPacket(header)};
    if (!row22.empty()) {
        packets.push_back(cc::displayRowPacket(header.magazine, 22, row22));
    }
    packets.push_back(cc::pageHeaderPacket(end));
    std::vector<std::uint8_t> data{cc::kTeletextDataIdentifier};
    for (std::size_t i = 0; i < packets.size(); ++i) {
        data.resize(data.size() + cc::kTeletextDataUnitSize);
        cc::writeTeletextDataUnit(data.data() + data.size() - cc::kTeletextDataUnitSize,
                                  cc::kDataUnitEbuSubtitle, cc::lineOffsetByte(7 + static_cast<int>(i)),
                                  packets[i]);
    }
    return data;
}

TEST(SubtitleDecoderTest, PopOnCaption_ShowsAtEndOfCaptionAndGoesAtErase) {
    SubtitleDecoder decoder;
    feed(decoder, popOn("BEEP  BOP"));
    EXPECT_EQ(decoder.captionText(), "BEEP BOP");
    feed(decoder, {cc::cea608Control(cc::Cea608Command::EraseDisplayedMemory)});
    EXPECT_EQ(decoder.captionText(), "");
}

// A teletext page whose transmission was cut by lost frames is not shown half made.
TEST(SubtitleDecoderTest, GapInAPageTransmission_PageNotTakenFromBothHalves) {
    for (const bool gap : {false, true}) {
        SubtitleDecoder decoder;
        std::vector<std::uint8_t> page = teletextPage(0x888, "Beep");
        const std::size_t headerOnly = 1 + cc::kTeletextDataUnitSize;
        decoder.feedTeletextData(std::span(page).first(headerOnly));
        if (gap) {
            decoder.markGap();
        }
        std::vector<std::uint8_t> rest{cc::kTeletextDataIdentifier};
        rest.insert(rest.end(), page.begin() + headerOnly, page.end());
        decoder.feedTeletextData(rest);
        EXPECT_EQ(decoder.teletextText(0x888), gap ? std::nullopt : std::optional<std::string>("Beep"))
            << gap;
    }
}

TEST(SubtitleDecoderTest, TeletextPage_ReadsItsRowsAndNothingForOtherPages) {
    SubtitleDecoder decoder;
    EXPECT_FALSE(decoder.teletextText(0x888).has_value());
    decoder.feedTeletextData(teletextPage(0x888, "Beep"));
    EXPECT_EQ(decoder.teletextText(0x888), "Beep");
    EXPECT_FALSE(decoder.teletextText(0x777).has_value());
    decoder.feedTeletextData(teletextPage(0x888, ""));
    EXPECT_EQ(decoder.teletextText(0x888), "");
}

TEST(SubtitleDecoderTest, TeletextPageNumbers_ParsedOrRefused) {
    const struct {
        const char* text;
        std::optional<int> page;
    } cases[] = {{"888", 0x888},        {"100", 0x100},       {"1aF", 0x1AF},         {"088", std::nullopt},
                 {"988", std::nullopt}, {"88", std::nullopt}, {"8888", std::nullopt}, {"8x8", std::nullopt}};
    for (const auto& c : cases) {
        EXPECT_EQ(parseTeletextPage(c.text), c.page) << c.text;
    }
}

}  // namespace
