#include "system/sdi/simulated_board/signal_content.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>
#include <string_view>

#include "encoding/sdi/sdi_common.h"

namespace ovtx::system::sdi::simulated_board::v1 {
namespace {

namespace sdi = encoding::sdi::sdi_common::v2;
namespace device = deltacast_io::v1;
namespace cc = encoding::subtitling::v1;

constexpr std::uint32_t kStandard1080p24 = 8;
constexpr std::int32_t kNtscBlankAbove = 3;
constexpr std::int32_t kNtscBlankBetween = 4;
constexpr int kBarStep = 8;  // pixels the white bar moves a frame
constexpr int kBarWidth = 16;
constexpr int kBandStep = 4;  // lines the grey band moves a frame
constexpr std::size_t kV210GroupPixels = 48;
constexpr std::size_t kV210GroupBytes = 128;
constexpr std::uint32_t kV210Grey = 0x20080200;  // three 10-bit samples of 512
constexpr int kCaptionRow = 15;
constexpr std::size_t kCaptionColumns = 32;
constexpr int kClosingPage = 0xFF;

struct YCbCr {
    std::uint8_t y;
    std::uint8_t cb;
    std::uint8_t cr;
};
// 75% colour bars: white, yellow, cyan, green, magenta, red, blue, black.
constexpr YCbCr kBars[] = {{180, 128, 128}, {162, 44, 142}, {131, 156, 44}, {112, 72, 58},
                           {84, 184, 198},  {65, 100, 212}, {35, 212, 114}, {16, 128, 128}};
constexpr YCbCr kWhite{235, 128, 128};
constexpr YCbCr kGrey{126, 128, 128};
constexpr YCbCr kBlack{16, 128, 128};

void paint(std::vector<std::uint8_t>& row, std::int32_t fromPixel, std::int32_t toPixel, YCbCr colour) {
    for (std::int32_t x = fromPixel & ~1; x < toPixel; x += 2) {
        std::uint8_t* group = row.data() + 2 * x;
        group[0] = colour.cb;
        group[1] = colour.y;
        group[2] = colour.cr;
        group[3] = colour.y;
    }
}

// The picture rows in the order the buffer holds them; -1 for a blank line.
std::vector<std::int32_t> bufferRows(const FrameShape& shape, bool boardBlanking) {
    std::vector<std::int32_t> rows;
    if (!shape.interlaced) {
        for (std::int32_t r = 0; r < shape.height; ++r) {
            rows.push_back(r);
        }
        return rows;
    }
    const bool blanks = boardBlanking && shape.ntsc();
    rows.insert(rows.end(), blanks ? kNtscBlankAbove : 0, -1);
    for (std::int32_t r = 0; r < shape.height; r += 2) {
        rows.push_back(r);
    }
    rows.insert(rows.end(), blanks ? kNtscBlankBetween : 0, -1);
    for (std::int32_t r = 1; r < shape.height; r += 2) {
        rows.push_back(r);
    }
    return rows;
}

std::int64_t cumulativeSamples(std::uint32_t rate, const FrameShape& shape, std::int64_t frames) {
    return frames * rate * shape.rateDenominator / shape.rateNumerator;
}

std::uint8_t defaultStatusByte(std::uint32_t rate) {
    // Professional use (bit 0) and the sampling frequency in bits 6 and 7.
    switch (rate) {
        case 44100:
            return 0x41;
        case 32000:
            return 0xC1;
        default:
            return 0x81;
    }
}

std::int32_t sizeError(const AudioPairSpec& pair, std::int64_t frame) {
    std::int32_t bytes = 0;
    for (const AudioSizeError& error : pair.sizeErrors) {
        if (error.window.contains(frame)) {
            bytes += error.bytes;
        }
    }
    return bytes;
}

// The CDP frame rate code and the cc_count of that rate.
std::pair<std::uint8_t, std::uint8_t> cdpRate(const FrameShape& shape) {
    const double rate = static_cast<double>(shape.rateNumerator) / static_cast<double>(shape.rateDenominator);
    const bool reduced = shape.rateDenominator > 1000;
    if (rate < 24.5) {
        return {reduced ? 1 : 2, 25};
    }
    if (rate < 26) {
        return {3, 24};
    }
    if (rate < 31) {
        return {reduced ? 4 : 5, 20};
    }
    if (rate < 51) {
        return {6, 12};
    }
    return {reduced ? 7 : 8, 10};
}

cc::TeletextPacket initialPagePacket(int initialPage) {
    cc::TeletextPacket packet{};
    const int magazine = (initialPage >> 8) & 7;
    packet[0] = cc::hamming84(static_cast<std::uint8_t>(0 | (30 & 1) << 3));  // magazine 8 is sent as 0
    packet[1] = cc::hamming84(static_cast<std::uint8_t>((30 >> 1) & 15));
    packet[2] = cc::hamming84(0);  // designation code: format 1
    const std::uint8_t nibbles[6] = {static_cast<std::uint8_t>(initialPage & 15),
                                     static_cast<std::uint8_t>((initialPage >> 4) & 15),
                                     0x0F,
                                     static_cast<std::uint8_t>(0x07 | (magazine & 1) << 3),
                                     0x0F,
                                     static_cast<std::uint8_t>(0x03 | (magazine >> 1) << 2)};
    for (int i = 0; i < 6; ++i) {
        packet[3 + i] = cc::hamming84(nibbles[i]);
    }
    constexpr std::string_view kStatus = "SIMULATED BOARD     ";
    for (std::size_t i = 0; i < kStatus.size(); ++i) {
        packet[22 + i] = cc::withOddParity(static_cast<std::uint8_t>(kStatus[i]));
    }
    return packet;
}

}  // namespace

std::optional<FrameShape> shapeOf(std::uint32_t standard, std::uint32_t clockDivisor) {
    FrameShape shape;
    shape.standard = standard;
    if (standard == kStandard1080p24 && clockDivisor <= 1) {
        shape.width = 1920;
        shape.height = 1080;
        shape.rateNumerator = clockDivisor == 1 ? 24000 : 24;
        shape.rateDenominator = clockDivisor == 1 ? 1001 : 1;
        return shape;
    }
    const sdi::SDI_VIDEO_STANDARD code = sdi::formatFromBoard(standard, clockDivisor);
    if (code == sdi::NO_FORMAT) {
        return std::nullopt;
    }
    const sdi::SdiFormatInfo info(code);
    shape.width = info.width;
    shape.height = info.height;
    shape.interlaced = info.scan == sdi::SCAN_INTERLACED;
    shape.rateNumerator = info.rateNumerator;
    shape.rateDenominator = info.rateDenominator;
    return shape;
}

bool planarCapable(const device::BoardInfoEx& board) {
    return board.numRxChannels + board.numTxChannels >= 4 && board.boardType == 6;
}

void PictureRenderer::prepare(const FrameShape& shape) {
    if (m_width == shape.width) {
        return;
    }
    m_width = shape.width;
    m_barsRow.assign(static_cast<std::size_t>(2 * shape.width), 0);
    const std::int32_t barWidth = shape.width / 8;
    for (int bar = 0; bar < 8; ++bar) {
        paint(m_barsRow, bar * barWidth, bar == 7 ? shape.width : (bar + 1) * barWidth, kBars[bar]);
    }
}

void PictureRenderer::render(const FrameShape& shape, std::uint32_t packing, std::int64_t frame,
                             std::vector<std::uint8_t>& buffer) {
    prepare(shape);
    const std::int32_t w = shape.width;
    const std::int32_t h = shape.height;
    const auto barX = static_cast<std::int32_t>((frame * kBarStep) % w);
    const auto bandY = static_cast<std::int32_t>((frame * kBandStep) % h);
    const std::int32_t bandHeight = h / 12;
    m_rowA = m_barsRow;
    paint(m_rowA, barX, std::min(w, barX + kBarWidth), kWhite);
    m_rowB.assign(m_barsRow.size(), 0);
    paint(m_rowB, 0, w, kGrey);
    paint(m_rowB, barX, std::min(w, barX + kBarWidth), kWhite);
    std::vector<std::uint8_t> blank(m_barsRow.size());
    paint(blank, 0, w, kBlack);
    auto rowOf = [&](std::int32_t r) -> const std::vector<std::uint8_t>& {
        if (r < 0) {
            return blank;
        }
        return (r - bandY + h) % h < bandHeight ? m_rowB : m_rowA;
    };

    if (packing == device::kPackingPacked8Bit || packing == device::kPackingPacked10Bit) {
        const std::vector<std::int32_t> rows = bufferRows(shape, true);
        if (packing == device::kPackingPacked10Bit) {
            const std::size_t lineBytes =
                (static_cast<std::size_t>(w) + kV210GroupPixels - 1) / kV210GroupPixels * kV210GroupBytes;
            buffer.resize(rows.size() * lineBytes);
            for (std::size_t i = 0; i < buffer.size(); i += 4) {
                std::memcpy(buffer.data() + i, &kV210Grey, 4);
            }
            return;
        }
        const std::size_t lineBytes = 2 * static_cast<std::size_t>(w);
        buffer.resize(rows.size() * lineBytes);
        for (std::size_t i = 0; i < rows.size(); ++i) {
            std::memcpy(buffer.data() + i * lineBytes, rowOf(rows[i]).data(), lineBytes);
        }
        return;
    }
    // Planes Y, Cr, Cb of 4:2:0 (the order in which the capture engine's packed path gives them
    // to consumers), each field after field when interlaced.
    const bool wide = packing == device::kPackingPlanar10Bit;
    const std::size_t sampleBytes = wide ? 2 : 1;
    const std::size_t lumaSamples = static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
    buffer.resize(lumaSamples * 3 / 2 * sampleBytes);
    std::uint8_t* out = buffer.data();
    auto put = [&](std::uint8_t value) {
        if (wide) {
            const auto sample = static_cast<std::uint16_t>(value << 2);
            std::memcpy(out, &sample, 2);
            out += 2;
        } else {
            *out++ = value;
        }
    };
    for (std::int32_t r : bufferRows(shape, false)) {
        const std::vector<std::uint8_t>& row = rowOf(r);
        for (std::int32_t x = 0; x < w; ++x) {
            put(row[static_cast<std::size_t>(2 * x + 1)]);
        }
    }
    FrameShape chroma = shape;
    chroma.height = h / 2;
    for (const std::size_t component : {2u, 0u}) {  // Cr, then Cb, of the Cb Y Cr Y rows
        for (std::int32_t r : bufferRows(chroma, false)) {
            const std::vector<std::uint8_t>& row = rowOf(2 * r);
            for (std::int32_t x = 0; x < w / 2; ++x) {
                put(row[4 * static_cast<std::size_t>(x) + component]);
            }
        }
    }
}

std::uint32_t samplesInFrame(std::uint32_t rate, const FrameShape& shape, std::int64_t frameInSegment) {
    return static_cast<std::uint32_t>(cumulativeSamples(rate, shape, frameInSegment + 1) -
                                      cumulativeSamples(rate, shape, frameInSegment));
}

void fillAudio(const std::array<AudioPairSpec, kAudioPairs>& pairs, const FrameShape& shape,
               std::int64_t frameInSegment, std::int64_t frame, device::AudioInfo& audio) {
    for (std::size_t group = 0; group < device::kAudioGroups; ++group) {
        for (std::size_t channel = 0; channel < 4; ++channel) {
            device::AudioChannelInfo& entry = audio.groups[group].channels[channel];
            const AudioPairSpec& pair = pairs[group * 2 + channel / 2];
            if (channel % 2 == 1 || !pair.present) {
                entry.dataSize = 0;
                entry.statusValid = 0;
                continue;
            }
            entry.statusValid = pair.statusValid ? 1 : 0;
            entry.statusBytes[0] = pair.statusByte.value_or(defaultStatusByte(pair.rate));
            if (entry.mode != device::kAudioModeStereo || entry.format != device::kAudioFormat16Bit) {
                entry.dataSize = 0;
                continue;
            }
            const std::int64_t samples = samplesInFrame(pair.rate, shape, frameInSegment);
            const std::int64_t bytes = std::max<std::int64_t>(0, samples * 4 + sizeError(pair, frame));
            const std::int64_t written =
                entry.data == nullptr ? 0 : std::min<std::int64_t>(bytes, entry.dataSize);
            const std::int64_t first = cumulativeSamples(pair.rate, shape, frameInSegment);
            const double amplitude = 32767.0 * std::pow(10.0, pair.levelDbfs / 20.0);
            const double step = 2 * M_PI * pair.toneHz / pair.rate;
            for (std::int64_t i = 0; i < written / 4; ++i) {
                const auto value =
                    static_cast<std::int16_t>(std::lround(amplitude * std::sin(step * double(first + i))));
                std::memcpy(entry.data + 4 * i, &value, 2);
                std::memcpy(entry.data + 4 * i + 2, &value, 2);
            }
            entry.dataSize = static_cast<std::uint32_t>(bytes);
        }
    }
}

CaptionTrack::CaptionTrack(const std::vector<CaptionSpec>& captions) {
    for (const CaptionSpec& caption : captions) {
        const cc::Cea608Channel channel =
            caption.field == 1 ? cc::Cea608Channel::CC1 : cc::Cea608Channel::CC3;
        std::vector<cc::Cea608Pair> pairs{
            cc::cea608Control(cc::Cea608Command::ResumeCaptionLoading, channel),
            cc::cea608Control(cc::Cea608Command::EraseNonDisplayedMemory, channel),
            cc::cea608PreambleAddress(kCaptionRow, 0, channel)};
        for (const cc::Cea608Pair pair :
             cc::cea608Text(std::string_view(caption.text).substr(0, kCaptionColumns))) {
            pairs.push_back(pair);
        }
        pairs.push_back(cc::cea608Control(cc::Cea608Command::EndOfCaption, channel));
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            m_fields[caption.field - 1][caption.at + static_cast<std::int64_t>(i)] = pairs[i];
        }
    }
}

cc::Cea608Pair CaptionTrack::pairAt(int field, std::int64_t frame) const {
    const auto& pairs = m_fields[field - 1];
    const auto found = pairs.find(frame);
    return found == pairs.end() ? cc::cea608Null() : found->second;
}

std::vector<cc::TeletextPacket> teletextPackets(const TeletextSpec& teletext, std::int64_t frame,
                                                std::size_t capacity) {
    std::vector<cc::TeletextPacket> all;
    for (const TeletextPageSpec& page : teletext.pages) {
        cc::TeletextPageHeader header;
        header.magazine = page.magazine;
        header.page = page.page;
        header.subtitle = page.subtitle;
        header.erasePage = page.subtitle;
        header.suppressHeader = page.subtitle;
        header.text = "SIMULATED BOARD";
        all.push_back(cc::pageHeaderPacket(header));
        for (const auto& [row, text] : page.rows) {
            all.push_back(cc::displayRowPacket(page.magazine, row, text));
        }
    }
    // A header of page xFF closes the transmission of each magazine's page at once, so that a
    // decoder shows it without waiting for the next frame.
    std::set<int> magazines;
    for (const TeletextPageSpec& page : teletext.pages) {
        magazines.insert(page.magazine);
    }
    for (const int magazine : magazines) {
        cc::TeletextPageHeader header;
        header.magazine = magazine;
        header.page = kClosingPage;
        all.push_back(cc::pageHeaderPacket(header));
    }
    if (teletext.initialPage) {
        all.push_back(initialPagePacket(*teletext.initialPage));
    }
    if (all.size() <= capacity) {
        return all;
    }
    std::vector<cc::TeletextPacket> packets;
    const std::size_t first = static_cast<std::size_t>(frame) * capacity % all.size();
    for (std::size_t i = 0; i < capacity; ++i) {
        packets.push_back(all[(first + i) % all.size()]);
    }
    return packets;
}

std::optional<std::uint16_t> wssAt(const std::vector<WssChange>& changes, std::int64_t frame) {
    std::optional<std::uint16_t> value;
    std::int64_t latest = -1;
    for (const WssChange& change : changes) {
        if (change.at <= frame && change.at >= latest) {
            latest = change.at;
            value = change.value;
        }
    }
    return value;
}

std::vector<std::uint16_t> captionDistributionPacket(const FrameShape& shape, std::uint16_t sequence,
                                                     cc::Cea608Pair field1, cc::Cea608Pair field2) {
    const auto [rateCode, ccCount] = cdpRate(shape);
    std::vector<std::uint8_t> bytes{0x96,
                                    0x69,
                                    0,
                                    static_cast<std::uint8_t>(rateCode << 4 | 0x0F),
                                    0x43,
                                    static_cast<std::uint8_t>(sequence >> 8),
                                    static_cast<std::uint8_t>(sequence),
                                    0x72,
                                    static_cast<std::uint8_t>(0xE0 | ccCount)};
    bytes.insert(bytes.end(), {0xFC, field1.first, field1.second, 0xFD, field2.first, field2.second});
    for (int i = 2; i < ccCount; ++i) {
        bytes.insert(bytes.end(), {0xFA, 0x00, 0x00});
    }
    bytes.insert(bytes.end(),
                 {0x74, static_cast<std::uint8_t>(sequence >> 8), static_cast<std::uint8_t>(sequence), 0});
    bytes[2] = static_cast<std::uint8_t>(bytes.size());
    std::uint8_t sum = 0;
    for (const std::uint8_t byte : bytes) {
        sum = static_cast<std::uint8_t>(sum + byte);
    }
    bytes.back() = static_cast<std::uint8_t>(-sum);
    std::vector<std::uint16_t> words;
    for (const std::uint8_t byte : bytes) {
        words.push_back(byte);
    }
    return words;
}

std::vector<std::uint16_t> teletextAncWords(const cc::TeletextPacket& packet, bool subtitle, int lineOffset) {
    std::uint8_t unit[cc::kTeletextDataUnitSize];
    cc::writeTeletextDataUnit(unit, subtitle ? cc::kDataUnitEbuSubtitle : cc::kDataUnitEbuNonSubtitle,
                              cc::lineOffsetByte(lineOffset), packet);
    std::vector<std::uint16_t> words{static_cast<std::uint16_t>(0x10 | (lineOffset & 0x0F))};
    for (const std::uint8_t byte : unit) {
        words.push_back(byte);
    }
    return words;
}

}  // namespace ovtx::system::sdi::simulated_board::v1
