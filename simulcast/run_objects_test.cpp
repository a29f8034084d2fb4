#include "simulcast/run_objects.h"

#include <gtest/gtest.h>

#include "log/testing/capturing_logger.h"
#include "simulcast/simulcast_reader.h"
#include "testing/shm.h"

namespace {

using namespace ovtx::simulcast::capture_records::v1;
using ovtx::log::log_perf::v4::testing::CapturingLogger;
using ovtx::simulcast::simulcast_channel::v1::SimulcastReader;
using ovtx::system::ipc::v2::GenericSharedMemory;
using namespace std::chrono_literals;

class RunObjectsTest : public ovtx::test_support::v1::ShmTest {};

struct KindCase {
    RunKind kind;
    std::int64_t pictureBytes;
    std::array<ChannelSize, 4> sizes;  // video, audio, teletext, closed captions
    std::int64_t clockAtOpen;          // the pattern source sets its clock to 0, capture leaves it
};

TEST_F(RunObjectsTest, EachKind_OpensItsSizesAndWritesTheFormatBlock) {
    const KindCase cases[] = {
        {RunKind::Capture, 3110400, {{{64, 3110432}, {128, 73856}, {64, 1608}, {64, 1024}}}, 77},
        {RunKind::Pattern, 3110400, {{{32, 3110448}, {64, 73856}, {32, 1635}, {32, 1024}}}, 0},
    };
    for (const KindCase& c : cases) {
        CapturingLogger logger;
        const std::string port = name(c.kind == RunKind::Capture ? "capture" : "pattern");
        GenericSharedMemory consumerClock(channelName(kClockPrefix, port), kClockBlockBytes);
        static_cast<ClockBlock*>(consumerClock.view())->clock = 77;
        RunObjects objects(c.kind, port, logger);
        objects.openBlocks(9, 10, 40ms);
        std::vector<RunChannel> opened;
        EXPECT_FALSE(
            objects.openChannels(c.pictureBytes, 40ms, [&](RunChannel ch) { opened.push_back(ch); }));
        EXPECT_EQ(opened, std::vector<RunChannel>(kRunChannelOrder.begin(), kRunChannelOrder.end()));
        for (RunChannel channel : kRunChannelOrder) {
            SimulcastReader reader;
            ASSERT_TRUE(reader.open(channelName(runChannelPrefix(channel), port).c_str()));
            const ChannelSize& expected = c.sizes[static_cast<std::size_t>(channel)];
            EXPECT_EQ(reader.numChunks(), expected.numChunks);
            EXPECT_EQ(reader.maxChunkBytes(), expected.chunkBytes);
        }
        GenericSharedMemory format(channelName(kVideoFormatPrefix, port), kCaptureFormatBlockBytes);
        EXPECT_EQ(static_cast<FormatBlock*>(format.view())->formatCode, 9);
        EXPECT_EQ(static_cast<FormatBlock*>(format.view())->bitDepth, 10);
        EXPECT_EQ(static_cast<ClockBlock*>(consumerClock.view())->clock, c.clockAtOpen);
        objects.publishClock(1234);
        EXPECT_EQ(static_cast<ClockBlock*>(consumerClock.view())->clock, 1234);
    }
}

}  // namespace
