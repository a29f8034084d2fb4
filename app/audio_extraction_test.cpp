#include "app/audio_extraction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "encoding/sdi/sdi_common.h"
#include "log/testing/capturing_logger.h"
#include "system/sdi/simulated_board/testing/stepped_port.h"

namespace {

using namespace std::string_literals;
using namespace ovtx::app::sdi_tap::v1;
namespace device = ovtx::system::sdi::deltacast_io::v1;
using ovtx::log::log_perf::v4::testing::CapturingLogger;
using ovtx::simulcast::capture_records::v1::AudioPairBlock;
using ovtx::simulcast::capture_records::v1::AudioRecord;
using ovtx::system::sdi::simulated_board::v1::testing::SteppedPort;

constexpr std::int64_t kSecond = 10000000;
// 1080p25: 7680, 7056 and 5120 bytes a frame at 48, 44.1 and 32 kHz; limit 9216.
const ovtx::encoding::sdi::sdi_common::v2::SdiFormatInfo kFormat(3);

// One locked slot of a simulated board carrying 1080p25 with the scenario's `audioPairs` and
// `errors`, and the audio step of a run on it. The board releases its stream when it goes.
class AudioExtractionTest : public ::testing::Test {
  protected:
    // A signal of board standard `standard` (clock divisor 0), 1080p25 unless told.
    void start(const std::string& audioPairs, const std::array<std::uint32_t, 8>& requested = {},
               const std::string& errors = "[]", std::uint32_t standard = kFormat.boardStandard) {
        m_port.reset();
        m_port = std::make_unique<SteppedPort>(R"({"signal": [{"standard": )" + std::to_string(standard) +
                                                   R"(}], "audio": {"pairs": )" + audioPairs +
                                                   R"(}, "errors": )" + errors + "}",
                                               standard);
        m_port->start();
        m_slot = m_port->lock();
        m_audio = std::make_unique<AudioExtraction>(m_port->board, standard, 0, requested, m_report);
    }
    bool extract(std::int64_t start = 100 * kSecond) {
        return m_audio->extract(m_slot, *m_record, true, start, start + kSecond / 25);
    }

    CapturingLogger m_logger;
    EngineReport m_report{m_logger, true};
    std::unique_ptr<SteppedPort> m_port;
    device::DeviceHandle m_slot = device::kNoHandle;
    std::unique_ptr<AudioExtraction> m_audio;
    std::unique_ptr<AudioRecord> m_record = std::make_unique<AudioRecord>();
};

bool allSilent(const AudioPairBlock& block) {
    return std::all_of(block.samples, block.samples + block.sampleCount * 2,
                       [](std::int16_t s) { return s == 0; });
}

// The scenario keys of a pair whose every frame is `bytes` off its true size.
std::string offBy(int bytes) {
    return R"("sizeErrors": [{"at": 0, "frames": 100000, "bytes": )" + std::to_string(bytes) + "}]";
}

TEST_F(AudioExtractionTest, EightPairs_SamplingPresenceStatisticsAndToneAsTheSignalTells) {
    const struct {
        std::string pairKeys;
        std::uint32_t requested, present, sampling, sampleCount;
        std::int32_t detected, percent;
    } cases[] = {
        {R"("rate": 44100, "statusValid": false)", 0, 1, 2, 1764, 4, 0},   // nearest size: 44.1 kHz
        {R"("statusValid": false, )" + offBy(-312), 0, 1, 1, 1842, 4, 0},  // halfway 48 / 44.1: lower code
        {R"("rate": 44100, "statusValid": false, )" + offBy(-968), 0, 1, 2, 1522, 4, 0},  // 44.1 / 32
        {R"("statusByte": "0xC1")", 0, 1, 3, 1920, 3, 150},       // the status wins over the size
        {R"("tone": 1000, "level": -6)", 2, 1, 2, 1920, 1, 100},  // what was asked wins over the status
        {R"("present": false)", 0, 0, 3, 1280, 4, 0},             // no status, 0 bytes: nearest is 32 kHz
        {R"("present": false)", 1, 0, 1, 1920, 4, 0},             // silence of the asked sampling
        {offBy(1600), 0, 0, 1, 1920, 1, 120},                     // above the limit: silence
    };
    std::string pairs;
    std::array<std::uint32_t, 8> requested{};
    for (std::size_t pair = 0; pair < 8; ++pair) {
        pairs += (pair ? ", " : "") + R"({"pair": )"s + std::to_string(pair) + ", " + cases[pair].pairKeys +
                 (pair == 4 ? "}" : R"(, "tone": 0})");
        requested[pair] = cases[pair].requested;
    }
    start("[" + pairs + "]", requested);
    std::memset(m_record.get(), 0xAB, sizeof(AudioRecord));
    ASSERT_TRUE(extract());
    for (std::size_t pair = 0; pair < 8; ++pair) {
        SCOPED_TRACE(pair);
        const AudioPairBlock& block = m_record->pairs[pair];
        EXPECT_EQ(block.present, cases[pair].present);
        EXPECT_EQ(block.mode, 2);
        EXPECT_EQ(block.sampling, cases[pair].sampling);
        EXPECT_EQ(block.sampleCount, cases[pair].sampleCount);
        EXPECT_EQ(m_audio->statistic(pair).detectedSampling, cases[pair].detected);
        EXPECT_EQ(m_audio->statistic(pair).percent, cases[pair].percent);
        EXPECT_EQ(allSilent(block), pair != 4);
    }
    // Several pairs are more than 12 bytes off; the first of them speaks for the slot.
    EXPECT_EQ(m_logger.lines(), std::vector{"1 Unexpected audio frame size: 7368 instead of 7680"s});
    EXPECT_EQ(m_record->magic, 0x5541);
    EXPECT_EQ(m_record->discontinuity, 1);
    EXPECT_EQ(m_record->start, 100 * kSecond);
    EXPECT_EQ(m_record->end, 100 * kSecond + 400000);

    const std::int16_t* tone = m_record->pairs[4].samples;
    int peak = 0;
    int crossings = 0;
    for (int i = 0; i < 1920; ++i) {
        ASSERT_EQ(tone[2 * i], tone[2 * i + 1]);
        peak = std::max(peak, std::abs(int{tone[2 * i]}));
        crossings += i > 0 && (tone[2 * i - 2] < 0) != (tone[2 * i] < 0) ? 1 : 0;
    }
    EXPECT_NEAR(peak, 32767 * std::pow(10.0, -6.0 / 20), 2);
    EXPECT_NEAR(crossings, 80, 1);  // 1 kHz over 40 ms
}

TEST_F(AudioExtractionTest, SizeWithin12BytesOrAboveTheLimit_NoComplaint) {
    const struct {
        int bytes;
        bool complains;
        std::uint8_t present;
        std::uint16_t sampleCount;
    } cases[] = {{-12, false, 1, 1917}, {12, false, 1, 1923},  {-16, true, 1, 1916},
                 {16, true, 1, 1924},   {1536, true, 1, 2304}, {1540, false, 0, 1920}};
    for (const auto& size : cases) {
        SCOPED_TRACE(size.bytes);
        start(R"([{"pair": 0, )" + offBy(size.bytes) + "}]");
        const std::size_t linesBefore = m_logger.lines().size();
        ASSERT_TRUE(extract());
        EXPECT_EQ(m_logger.lines().size() - linesBefore, size.complains ? 1u : 0u);
        EXPECT_EQ(m_record->pairs[0].present, size.present);
        EXPECT_EQ(m_record->pairs[0].sampleCount, size.sampleCount);
    }
}

// At 24 frames a second the limit (9600 bytes) lies above what a pair block holds (9216): a long
// frame on the record's last pair is cut to the block and does not run past the record.
TEST_F(AudioExtractionTest, LongFrameAt24FramesASecond_CutToTheBlock) {
    constexpr std::uint32_t k1080p24 = 8;
    start(R"([{"pair": 7, "tone": 0, )" + offBy(1500) + "}]", {}, "[]", k1080p24);
    ASSERT_EQ(m_audio->limit(), 9600u);
    ASSERT_TRUE(extract());
    EXPECT_EQ(m_record->pairs[7].present, 1);
    EXPECT_EQ(m_record->pairs[7].sampleCount, 2304);
    EXPECT_TRUE(allSilent(m_record->pairs[7]));
}

TEST_F(AudioExtractionTest, BadFramesInsideFiveSeconds_OneComplaint) {
    start(R"([{"pair": 3, )" + offBy(400) + "}]");
    // None in the first 5 seconds of record time; one at 6 s, none at 7 s nor at exactly 5 s
    // later, the next just after.
    const std::pair<std::int64_t, std::size_t> complaintsAfter[] = {
        {kSecond, 0}, {6 * kSecond, 1}, {7 * kSecond, 1}, {11 * kSecond, 1}, {11 * kSecond + 1, 2}};
    for (const auto& [start, complaints] : complaintsAfter) {
        ASSERT_TRUE(extract(start));
        EXPECT_EQ(m_logger.lines().size(), complaints) << start;
    }
    EXPECT_EQ(m_logger.lines().back(), "1 Unexpected audio frame size: 8080 instead of 7680");
}

TEST_F(AudioExtractionTest, BoardFailsToExtract_FalseHeadOnlyAndNoAudioStatistics) {
    start("[]", {}, R"([{"operation": "VHD_SlotExtractAudio", "code": 13}])");
    std::memset(m_record.get(), 0xAB, sizeof(AudioRecord));
    EXPECT_FALSE(extract(3 * kSecond));
    EXPECT_EQ(m_record->magic, 0x5541);
    EXPECT_EQ(m_record->start, 3 * kSecond);
    EXPECT_EQ(m_record->pairs[0].present, 0xAB);
    EXPECT_EQ(m_record->pairs[7].sampleCount, 0xABAB);
    for (std::size_t pair = 0; pair < 8; ++pair) {
        EXPECT_EQ(m_audio->statistic(pair).detectedSampling, 4);
        EXPECT_EQ(m_audio->statistic(pair).percent, 0);
    }
    EXPECT_EQ(m_logger.lines(), std::vector{"2 Audio Extraction Error : 0xD"s});
    EXPECT_THROW(m_audio->statistic(8), std::out_of_range);
    EXPECT_THROW(m_audio->expectedSize(4), std::out_of_range);
}

TEST(AudioSamplingTest, StatusByteRateBits_SamplingCode) {
    const std::pair<std::uint8_t, std::uint32_t> cases[] = {{0x00, 4}, {0x3F, 4}, {0x41, 2}, {0x7F, 2},
                                                            {0x81, 1}, {0x85, 1}, {0xC1, 3}, {0xFF, 3}};
    for (const auto& [statusByte, code] : cases) {
        EXPECT_EQ(samplingFromStatusByte(statusByte), code) << int{statusByte};
    }
}

}  // namespace
