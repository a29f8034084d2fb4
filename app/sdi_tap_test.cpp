// The capture engine against the simulated board: set-up decisions, the slot loop's numbering,
// loss accounting and markers, read back from the log and from the rings in shared memory.
#include "app/sdi_tap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <map>

#include "app/slot_timing.h"
#include "log/testing/capturing_logger.h"
#include "simulcast/simulcast_params.h"
#include "system/sdi/simulated_board/testing/stepped_port.h"
#include "testing/expect_failure.h"
#include "testing/files.h"
#include "testing/shm.h"

namespace {

using namespace ovtx::app::sdi_tap::v1;
namespace device = ovtx::system::sdi::deltacast_io::v1;
namespace board = ovtx::system::sdi::simulated_board::v1;
namespace records = ovtx::simulcast::capture_records::v1;
namespace ring = ovtx::simulcast::simulcast_channel::v1;
using ovtx::log::log_perf::v4::testing::CapturingLogger;
using ovtx::system::ipc::v2::MappedView;
using ovtx::system::ipc::v2::NamedMapping;
using ovtx::system::sdi::simulated_board::v1::testing::scenarioOfPort0;
using ovtx::system::sdi::simulated_board::v1::testing::SteppedClock;
using ovtx::test_support::v1::expectFailure;
using ovtx::test_support::v1::valueAt;

// Every chunk of a channel that the writer has committed and the ring still holds, oldest first,
// read from the channel's shared memory as a consumer process would see it.
std::vector<std::string> ringRecords(const std::string& channel) {
    NamedMapping paramMapping = NamedMapping::createOrJoin(channel + "_MAP_PARAM", ring::kParamBlockBytes);
    MappedView paramView =
        MappedView::map(paramMapping, ring::kParamBlockBytes, MappedView::Access::ReadOnly);
    const auto params = *static_cast<const ring::SimulcastParams*>(paramView.data());
    const std::uint64_t bytes = ring::dataRegionSize(params.numChunks, params.chunkStride);
    NamedMapping dataMapping = NamedMapping::createOrJoin(channel + "_MAP_DATA", bytes);
    MappedView dataView = MappedView::map(dataMapping, bytes, MappedView::Access::ReadOnly);
    const auto* base = static_cast<const char*>(dataView.data());
    std::map<std::uint64_t, std::string> chunks;  // by sequence number
    for (std::int32_t i = 0; i < params.numChunks; ++i) {
        std::uint64_t sequence = 0;
        std::memcpy(&sequence, base + i * ring::kSequenceEntryBytes, sizeof sequence);
        if (sequence != 0) {  // 0: never written
            chunks[sequence] = std::string(base + ring::chunkOffset(params.numChunks, params.chunkStride, i),
                                           static_cast<std::size_t>(params.maxChunkBytes));
        }
    }
    std::vector<std::string> result;
    for (auto& [sequence, chunk] : chunks) {
        result.push_back(std::move(chunk));
    }
    return result;
}

class SdiTapTest : public ovtx::test_support::v1::ShmTest {
  protected:
    // A board of `boardKeys` whose port 0 carries `port`, on a clock that moves only when the
    // board waits for a slot or the engine pauses: slots come as fast as they are asked for.
    void makeBoard(const std::string& port, const std::string& boardKeys = R"("rx": 2, "tx": 2)") {
        auto clock = std::make_unique<SteppedClock>();
        m_clock = clock.get();
        m_board = std::make_unique<board::SimulatedBoard>(scenarioOfPort0(port, boardKeys), std::move(clock));
    }
    // `pausesTakeBoardTime` false: the set-up's wait takes no board time, so that the first slot
    // is input frame 0.
    std::unique_ptr<SdiTap> makeEngine(std::int32_t format, bool use10Bit = false, bool useTimecode = false,
                                       std::int32_t port = 0, bool pausesTakeBoardTime = true) {
        RunParameters parameters;
        parameters.sdiPort = port;
        parameters.videoFormat = format;
        parameters.print = true;
        parameters.use10Bit = use10Bit;
        parameters.useTimecode = useTimecode;
        SdiTap::Environment environment{*m_board, name("port")};
        environment.pause = [this, pausesTakeBoardTime](std::chrono::milliseconds duration) {
            if (pausesTakeBoardTime) {
                m_clock->sleepFor(std::chrono::nanoseconds(duration).count());
            }
        };
        m_logger = std::make_unique<CapturingLogger>();
        return std::make_unique<SdiTap>(parameters, *m_logger, std::move(environment));
    }
    std::vector<std::string> records(records::RunChannel channel) {
        return ringRecords(records::channelName(records::runChannelPrefix(channel), name("port")));
    }
    static void runPasses(SdiTap& engine, int passes) {
        for (int i = 0; i < passes; ++i) {
            ASSERT_FALSE(engine.runPass());
        }
    }

    std::unique_ptr<CapturingLogger> m_logger;
    SteppedClock* m_clock = nullptr;
    std::unique_ptr<board::SimulatedBoard> m_board;
};

TEST_F(SdiTapTest, SignalOfAnotherFormatAtStart_SetsUpWithoutStandardAndPublishesMarkersOnly) {
    makeBoard(R"({"signal": [{"format": "HD_1280_720p_50"}]})");
    auto engine = makeEngine(3);
    EXPECT_TRUE(engine->standardMismatch());
    EXPECT_EQ(m_logger->countContaining("Cannot set video Standard [Video]"), 1u);
    EXPECT_EQ(m_logger->countContaining("Auto detected video format: 1280x720p 50 fps"), 1u);
    engine->startRun();
    runPasses(*engine, 3);
    const auto video = records(records::RunChannel::Video);
    ASSERT_EQ(video.size(), 3u);
    for (const std::string& chunk : video) {
        const auto header = valueAt<records::VideoRecordHeader>(chunk, 0);
        EXPECT_EQ(header.magic, records::kVideoMagic);
        EXPECT_NE(header.standardMismatch, 0);
        EXPECT_EQ(header.aspectNumerator, 4);
        EXPECT_EQ(header.aspectDenominator, 3);
        EXPECT_EQ(header.start, 0);
    }
    EXPECT_TRUE(records(records::RunChannel::Audio).empty());
    EXPECT_EQ(m_logger->countContaining("Warning : Incoherent Input Video Standard"), 3u);
    engine->requestStop();  // obeyed within the pass, mismatch or not
    EXPECT_TRUE(engine->runPass());
    EXPECT_EQ(m_logger->count("2 Warning : STOP SIGNAL DETECTED"), 1u);
}

TEST_F(SdiTapTest, PortBeyondTheInputs_IsRefusedByTheEngine) {
    makeBoard(R"({"signal": [{"format": 3}]})");
    expectFailure([&] { makeEngine(3, false, false, 3); }, "Invalid deltacast port #3");
}

TEST_F(SdiTapTest, ChannelRefusedBySystem_FailsInTheEnginesWordsAndLogsTheReason) {
    makeBoard(R"({"signal": [{"format": 0}]})");
    const std::string blocker =
        "/dev/shm/" + records::channelName(records::kTeletextPrefix, name("port")) + "_MAP_PARAM";
    std::filesystem::create_directory(blocker);
    expectFailure([&] { makeEngine(0); }, "cannot open simulcast [teletext]");
    std::filesystem::remove(blocker);
    EXPECT_EQ(m_logger->countContaining("1 Could not open simulcast " +
                                        records::channelName(records::kTeletextPrefix, name("port"))),
              1u);
    EXPECT_EQ(m_logger->count("2 Opened simulcast [AUDIO]."), 1u);
}

TEST_F(SdiTapTest, LostFrames_AreToldApartByTheBoardsDroppedCounter) {
    const struct {
        std::string faults;
        std::string text;
    } cases[] = {
        {R"("gaps": [{"at": 30, "frames": 1}])", "Frame(s) not captured : 1"},
        {R"("drops": [{"at": 30, "frames": 1}])", "Frame(s) captured and dropped : 1"},
    };
    for (const auto& c : cases) {
        makeBoard(R"({"signal": [{"format": 0}], )" + c.faults + "}");
        auto engine = makeEngine(0);
        engine->startRun();
        runPasses(*engine, 20);
        EXPECT_EQ(m_logger->count("0 " + c.text), 1u) << c.text;
        EXPECT_EQ(m_logger->countContaining("Frame(s)"), 1u) << c.text;  // and no other loss
    }
}

TEST_F(SdiTapTest, LossText_NamesDroppedAndNeverCapturedFrames) {
    const struct {
        std::int32_t notCaptured;
        std::int32_t dropped;
        std::string text;
    } cases[] = {
        {0, 0, ""},
        {1, 0, "Frame(s) not captured : 1"},
        {1, 1, "Frame(s) captured and dropped : 1"},
        {2, 1, "Frame(s) captured and dropped : 1 , Frame(s) not captured : 1"},
        {0, 1,
         "Very weird case : more dropped frames than not captured frames ! (1 dropped > 0 not captured )"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(lossText(c.notCaptured, c.dropped), c.text);
    }
    EXPECT_EQ(elapsedFramePeriods(1080000, 1000000, 25, 1), 2);
    EXPECT_EQ(elapsedFramePeriods(1000000, 1000000, 25, 1), 1);
}

TEST_F(SdiTapTest, SlotAudioOrBufferFailing_FlagsTheNextRecordsOrCostsOneVideoRecord) {
    makeBoard(R"({"signal": [{"format": 0}], "errors": [
        {"operation": "VHD_SlotExtractAudio", "at": 25, "code": 2},
        {"operation": "VHD_GetSlotBuffer", "at": 27, "code": 2}]})");
    auto engine = makeEngine(0);
    engine->startRun();
    runPasses(*engine, 11);  // a wait, then input frames 21 to 30
    std::vector<std::int64_t> audioStarts, audioFlagged, videoStarts, videoFlagged;
    for (const std::string& chunk : records(records::RunChannel::Audio)) {
        const auto record = valueAt<records::AudioRecord>(chunk, 0);
        audioStarts.push_back(record.start);
        if (record.discontinuity != 0) {
            audioFlagged.push_back(record.start);
        }
    }
    for (const std::string& chunk : records(records::RunChannel::Video)) {
        const auto header = valueAt<records::VideoRecordHeader>(chunk, 0);
        videoStarts.push_back(header.start);
        if (header.discontinuity != 0) {
            videoFlagged.push_back(header.start);
        }
    }
    ASSERT_EQ(audioStarts.size(), 10u);
    EXPECT_EQ(records(records::RunChannel::Teletext).size(), 10u);
    ASSERT_EQ(audioFlagged.size(), 1u);  // the slot after the failed audio
    EXPECT_EQ(videoFlagged, audioFlagged);
    std::vector<std::int64_t> withoutVideo;
    std::set_difference(audioStarts.begin(), audioStarts.end(), videoStarts.begin(), videoStarts.end(),
                        std::back_inserter(withoutVideo));
    EXPECT_EQ(withoutVideo, std::vector<std::int64_t>{audioFlagged[0] + 400000});
    EXPECT_EQ(m_logger->count("2 ERROR : Cannot get slot buffer. Result = 0x00000002\n"), 1u);
    EXPECT_EQ(m_logger->count("2 Warning : discontinuity detected."), 1u);
}

TEST_F(SdiTapTest, DropFrameTimecode_NumbersTheFrameWithoutTheSkippedNumbers) {
    // The stream starts at input frame 0, and its first slot is frame 1: 00:01:00:02 in drop-frame
    // counting, the first number of the minute.
    makeBoard(R"({"signal": [{"format": 4}], "timecode": {"start": "00:00:59:29", "dropFrame": true}})");
    auto engine = makeEngine(4, false, true, 0, false);
    engine->startRun();
    runPasses(*engine, 2);  // the first lock waits for the first whole frame
    EXPECT_EQ(engine->slotFrameNumber(), 1800);
    const auto video = records(records::RunChannel::Video);
    ASSERT_EQ(video.size(), 1u);
    EXPECT_EQ(valueAt<records::VideoRecordHeader>(video[0], 0).start,
              records::frameStartTime(1800, 30000, 1001));
    EXPECT_EQ(valueAt<records::AudioRecord>(records(records::RunChannel::Audio)[0], 0).start,
              records::frameStartTime(1800, 30000, 1001));
}

TEST_F(SdiTapTest, TimecodeMissingForSomeFrames_CountsOnAndComplainsOnce) {
    makeBoard(
        R"({"signal": [{"format": 0}], "timecode": {"start": "10:00:00:00", "missing": [{"at": 25, "frames": 3}]}})");
    auto engine = makeEngine(0, false, true);
    engine->startRun();
    runPasses(*engine, 1);  // the first lock waits for the first whole frame
    std::vector<std::int64_t> numbers;
    for (int i = 0; i < 8; ++i) {
        ASSERT_FALSE(engine->runPass());
        numbers.push_back(engine->slotFrameNumber());
    }
    EXPECT_EQ(m_logger->countContaining("Could not read timecode"), 1u);
    for (std::size_t i = 1; i < numbers.size(); ++i) {
        EXPECT_EQ(numbers[i], numbers[i - 1] + 1) << i;
    }
    EXPECT_GT(numbers.front(), 10 * 3600 * 25);  // from the timecode, before it went missing
}

TEST_F(SdiTapTest, TenBitsOnAPackedBoard_FailsAtTheFirstFrame) {
    const struct {
        std::int32_t format;
        std::string text;
    } cases[] = {{0, "Cannot Extract 10 bits interleave Field When Planar feature is unavailable"},
                 {7, "Cannot Extract 10 bits progressive Frame When Planar feature is unavailable"}};
    for (const auto& c : cases) {
        makeBoard(R"({"signal": [{"format": )" + std::to_string(c.format) + "}]}",
                  R"("type": 0, "rx": 2, "tx": 2)");
        auto engine = makeEngine(c.format, true);
        engine->startRun();
        try {
            runPasses(*engine, 2);  // the second lock has the first slot
            ADD_FAILURE() << "no failure: " << c.text;
        } catch (const SdiTapException& failure) {
            EXPECT_EQ(failure.what(), c.text);
        }
    }
}

}  // namespace
