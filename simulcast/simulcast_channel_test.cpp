// The writer and the reader across real processes: the test process on one end, one or more
// simulcast_test_helper processes on the other.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <string>
#include <vector>

#include "simulcast/simulcast_params.h"
#include "simulcast/simulcast_reader.h"
#include "simulcast/simulcast_writer.h"
#include "system/ipc/named_objects.h"
#include "system/process/piped_child.h"
#include "testing/files.h"
#include "testing/shm.h"

namespace {

using namespace ovtx::simulcast::simulcast_channel::v1;
using namespace std::chrono_literals;
namespace ipc = ovtx::system::ipc::v2;
using ovtx::system::process::v1::PipedChild;
using ovtx::test_support::v1::shmEntries;
using ovtx::test_support::v1::uniqueName;

constexpr auto kAnswerTimeout = 30s;

class SimulcastChannelTest : public ::testing::Test {
  protected:
    void SetUp() override { m_name = uniqueName("sdi_tap_channel_test_"); }

    void TearDown() override {
        // Helpers leave as a consumer would; one that doesn't is killed and reaped.
        for (PipedChild& helper : m_helpers) {
            if (helper.valid() && helper.writeLine("exit")) {
                helper.wait(kAnswerTimeout);
            }
        }
        m_helpers.clear();
        EXPECT_EQ(shmEntries(m_name), std::vector<std::string>{});
    }

    PipedChild& startHelper() {
        m_helpers.push_back(
            PipedChild::spawn(ovtx::test_support::v1::binaryPath("simulcast_test_helper"), {}));
        EXPECT_TRUE(m_helpers.back().valid());
        return m_helpers.back();
    }

    std::string openCommand(std::int32_t numChunks, std::int32_t maxChunkBytes) const {
        return m_name + " " + std::to_string(numChunks) + " " + std::to_string(maxChunkBytes);
    }

    // Commits `count` chunks from the test process, each starting with its sequence number.
    static void writeChunks(SimulcastWriter& writer, int count) {
        for (int i = 0; i < count; ++i) {
            const std::uint64_t sequence = writer.nextSequence();
            auto* chunk = writer.beginChunk();
            ASSERT_NE(chunk, nullptr);
            std::memcpy(chunk, &sequence, sizeof sequence);
            writer.commitChunk();
        }
    }

    // One read of 8 bytes by a reader of the test process.
    struct LocalRead {
        bool delivered = false;
        bool discontinuity = false;
        bool timedOut = false;
        std::uint64_t payload = 0;
    };
    static LocalRead readHere(SimulcastReader& reader, std::uint32_t timeoutMs, std::int32_t bytes = 8) {
        LocalRead result;
        std::vector<std::uint8_t> buffer(
            std::max<std::size_t>(static_cast<std::size_t>(std::max(bytes, 0)), 8));
        result.delivered =
            reader.read(buffer.data(), bytes, timeoutMs, result.discontinuity, result.timedOut);
        std::memcpy(&result.payload, buffer.data(), sizeof result.payload);
        return result;
    }

    std::string m_name;
    std::deque<PipedChild> m_helpers;  // a deque keeps references stable
};

// A helper's answer to "read": "ok SEQUENCE DISCONTINUITY PAYLOAD".
std::string delivered(std::uint64_t sequence, bool discontinuity) {
    return "ok " + std::to_string(sequence) + " " + (discontinuity ? "1" : "0") + " " +
           std::to_string(sequence);
}

TEST_F(SimulcastChannelTest, Open_LaysOutBlockAndRingAsPublished) {
    SimulcastWriter writer;
    ASSERT_TRUE(writer.open(32, 1635, m_name.c_str()));

    auto paramMapping = ipc::NamedMapping::createOrJoin(m_name + "_MAP_PARAM", 144);
    auto paramView = ipc::MappedView::map(paramMapping, 144, ipc::MappedView::Access::ReadOnly);
    ASSERT_TRUE(paramView.valid());
    const auto* block = static_cast<const SimulcastParams*>(paramView.data());
    EXPECT_EQ(std::string(block->name, m_name.size()), m_name);
    EXPECT_EQ(block->name[m_name.size()], '\0');
    EXPECT_EQ(block->numChunks, 32);
    EXPECT_EQ(block->maxChunkBytes, 1635);
    EXPECT_EQ(block->chunkStride, 1648);
    EXPECT_EQ(block->writeIndex, 0);

    auto dataMapping = ipc::NamedMapping::createOrJoin(m_name + "_MAP_DATA", 16);
    ASSERT_TRUE(dataMapping.valid());
    EXPECT_EQ(dataMapping.size(), 53248u) << "52992 bytes rounded up to whole pages";
    auto dataView = ipc::MappedView::map(dataMapping, 52992, ipc::MappedView::Access::ReadOnly);
    ASSERT_TRUE(dataView.valid());
    const auto* data = static_cast<const std::uint8_t*>(dataView.data());
    const auto* table = static_cast<const std::uint64_t*>(dataView.data());

    auto* chunk0 = static_cast<std::uint8_t*>(writer.beginChunk());
    ASSERT_NE(chunk0, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(chunk0) % 16, 0u);
    std::memset(chunk0, 0x11, 1635);
    writer.commitChunk();
    EXPECT_EQ(table[0], 2u);
    EXPECT_EQ(block->writeIndex, 1);
    EXPECT_EQ(data[256], 0x11);  // chunk 0 follows the 32 entries of the table

    auto* chunk1 = static_cast<std::uint8_t*>(writer.beginChunk());
    std::memset(chunk1, 0x22, 1635);
    writer.commitChunk();
    EXPECT_EQ(data[1904], 0x22);
    EXPECT_EQ(data[1903], 0);  // the stride's padding after chunk 0's payload is untouched
    EXPECT_EQ(table[1], 3u);

    for (int i = 2; i < 32; ++i) {
        writer.beginChunk();
        writer.commitChunk();
    }
    EXPECT_EQ(block->writeIndex, 0);
    EXPECT_EQ(table[31], 33u);
}

TEST_F(SimulcastChannelTest, OpenTwiceOrOddChunksOrClosed_Refused) {
    SimulcastWriter odd;
    EXPECT_FALSE(odd.open(31, 1024, m_name.c_str()));
    EXPECT_EQ(odd.beginChunk(), nullptr);
    odd.commitChunk();  // no effect on a closed writer
    EXPECT_EQ(odd.nextSequence(), 2u);
    EXPECT_FALSE(odd.open(8, 1024, nullptr));
    odd.close();

    SimulcastWriter writer;
    ASSERT_TRUE(writer.open(8, 1024, m_name.c_str()));
    EXPECT_FALSE(writer.open(16, 2048, m_name.c_str()));
    auto paramMapping = ipc::NamedMapping::createOrJoin(m_name + "_MAP_PARAM", 144);
    auto paramView = ipc::MappedView::map(paramMapping, 144, ipc::MappedView::Access::ReadOnly);
    ASSERT_TRUE(paramView.valid());
    EXPECT_EQ(static_cast<const SimulcastParams*>(paramView.data())->numChunks, 8);
}

TEST_F(SimulcastChannelTest, WriterInOtherProcess_ReaderGetsChunksInOrderFromSequenceTwo) {
    PipedChild& writer = startHelper();
    ASSERT_EQ(writer.ask("wopen " + openCommand(8, 64)), "ok");
    ASSERT_EQ(writer.ask("write 2"), "ok");  // before the first read: never delivered

    SimulcastReader reader;
    ASSERT_TRUE(reader.open(m_name.c_str()));
    EXPECT_EQ(reader.numChunks(), 8);
    EXPECT_EQ(reader.maxChunkBytes(), 64);
    const LocalRead idle = readHere(reader, 0);
    EXPECT_FALSE(idle.delivered);
    EXPECT_TRUE(idle.timedOut);

    ASSERT_EQ(writer.ask("write 3"), "ok");
    for (std::uint64_t expected : {4u, 5u, 6u}) {
        const LocalRead chunk = readHere(reader, 10000);
        ASSERT_TRUE(chunk.delivered);
        EXPECT_EQ(chunk.payload, expected);
        EXPECT_EQ(reader.lastSequence(), static_cast<std::int64_t>(expected));
        EXPECT_EQ(chunk.discontinuity, expected == 4u);  // always set on the first chunk
        EXPECT_FALSE(chunk.timedOut);
    }
    EXPECT_TRUE(readHere(reader, 50).timedOut);
}

TEST_F(SimulcastChannelTest, ReadSizeOutOfRange_FailsWithoutTimeout) {
    SimulcastWriter writer;
    ASSERT_TRUE(writer.open(8, 64, m_name.c_str()));
    PipedChild& reader = startHelper();
    ASSERT_EQ(reader.ask("ropen " + m_name), "ok");
    EXPECT_EQ(reader.ask("read 65 1000"), "fail");
    EXPECT_EQ(reader.ask("read -1 1000"), "fail");
    EXPECT_EQ(reader.ask("read 64 0"), "timeout");
}

TEST_F(SimulcastChannelTest, ReaderInOtherProcess_SeesTheTestsChunks) {
    SimulcastWriter writer;
    ASSERT_TRUE(writer.open(8, 64, m_name.c_str()));
    PipedChild& reader = startHelper();
    ASSERT_EQ(reader.ask("ropen " + m_name), "ok");
    ASSERT_EQ(reader.ask("read 8 0"), "timeout");  // fixes the reader's start
    writeChunks(writer, 2);
    EXPECT_EQ(reader.ask("read 8 10000"), delivered(2, true));
    EXPECT_EQ(reader.ask("read 8 10000"), delivered(3, false));
}

TEST_F(SimulcastChannelTest, ReaderBeforeWriter_FailsThenSucceeds) {
    PipedChild& reader = startHelper();
    EXPECT_EQ(reader.ask("ropen " + m_name), "fail");
    SimulcastWriter writer;
    ASSERT_TRUE(writer.open(8, 64, m_name.c_str()));
    EXPECT_EQ(reader.ask("ropen " + m_name), "ok");
}

TEST_F(SimulcastChannelTest, ReaderBetweenWritersSteps_FailsThenSucceedsOnRetry) {
    PipedChild& writer = startHelper();
    ASSERT_EQ(writer.ask("partial " + openCommand(8, 64)), "ok");
    SimulcastReader reader;
    EXPECT_FALSE(reader.open(m_name.c_str()));  // block filled, data mutex not there yet
    ASSERT_EQ(writer.ask("wopen " + openCommand(8, 64)), "ok");
    EXPECT_TRUE(reader.open(m_name.c_str()));
}

TEST_F(SimulcastChannelTest, ReaderFallsBehindRing_DiscontinuityThenIndexOrder) {
    SimulcastWriter writer;
    ASSERT_TRUE(writer.open(8, 64, m_name.c_str()));
    PipedChild& reader = startHelper();
    ASSERT_EQ(reader.ask("ropen " + m_name), "ok");
    ASSERT_EQ(reader.ask("read 8 0"), "timeout");
    writeChunks(writer, 1);
    EXPECT_EQ(reader.ask("read 8 10000"), delivered(2, true));
    writeChunks(writer, 11);  // sequences 3..13 wrap the 8-chunk ring; index 1 now holds 11
    EXPECT_EQ(reader.ask("read 8 10000"), delivered(11, true));
    EXPECT_EQ(reader.ask("read 8 10000"), delivered(12, false));
    EXPECT_EQ(reader.ask("read 8 10000"), delivered(13, false));
    EXPECT_EQ(reader.ask("read 8 0"), "timeout");
}

// A new run makes the channel afresh, here with larger chunks: the attached reader reads the old
// run to its end, reattaches by itself and gets nothing of the old ring twice.
TEST_F(SimulcastChannelTest,
       WriterRestartsWithOtherSizesAndReaderAttached_ReaderReattachesWithDiscontinuity) {
    SimulcastReader reader;
    PipedChild& first = startHelper();
    ASSERT_EQ(first.ask("wopen " + openCommand(8, 64)), "ok");
    ASSERT_TRUE(reader.open(m_name.c_str()));
    EXPECT_TRUE(readHere(reader, 0).timedOut);
    ASSERT_EQ(first.ask("write 5"), "ok");
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(readHere(reader, 10000).delivered);
    }
    ASSERT_EQ(first.ask("write 2"), "ok");  // not read yet when the run ends
    ASSERT_EQ(first.ask("exit"), "<no answer>");

    PipedChild& restarted = startHelper();
    ASSERT_EQ(restarted.ask("wopen " + openCommand(8, 256)), "ok");
    for (const std::uint64_t oldRecord : {7u, 8u}) {  // the old run's last records, then its end
        const LocalRead late = readHere(reader, 10000);
        ASSERT_TRUE(late.delivered);
        EXPECT_EQ(late.payload, oldRecord);
        EXPECT_FALSE(late.discontinuity);
    }
    EXPECT_TRUE(readHere(reader, 300).timedOut) << "nothing of the old ring is delivered twice";
    EXPECT_EQ(reader.maxChunkBytes(), 256) << "reattached to the new run";
    ASSERT_EQ(restarted.ask("write 2"), "ok");
    const LocalRead afterRestart = readHere(reader, 10000, 200);
    ASSERT_TRUE(afterRestart.delivered);
    EXPECT_TRUE(afterRestart.discontinuity);
    EXPECT_EQ(afterRestart.payload, 2u) << "the new run's first chunk";
    const LocalRead next = readHere(reader, 10000, 200);
    ASSERT_TRUE(next.delivered);
    EXPECT_FALSE(next.discontinuity);
}

TEST_F(SimulcastChannelTest, WriterKilledHoldingDataMutex_ReaderGoesOnWithTheSuccessor) {
    PipedChild& writer = startHelper();
    ASSERT_EQ(writer.ask("wopen " + openCommand(8, 64)), "ok");
    SimulcastReader reader;
    ASSERT_TRUE(reader.open(m_name.c_str()));
    EXPECT_TRUE(readHere(reader, 0).timedOut);
    ASSERT_EQ(writer.ask("write 1"), "ok");
    ASSERT_TRUE(readHere(reader, 10000).delivered);
    ASSERT_EQ(writer.ask("begin"), "begun");
    ASSERT_TRUE(writer.kill(PipedChild::Signal::Kill));
    const auto status = writer.wait(kAnswerTimeout);
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(status->signal, 9);

    // The abandoned mutex is taken; no chunk follows, so the read times out instead of hanging.
    const LocalRead afterDeath = readHere(reader, 200);
    EXPECT_FALSE(afterDeath.delivered);
    EXPECT_TRUE(afterDeath.timedOut);

    SimulcastWriter successor;
    ASSERT_TRUE(successor.open(8, 64, m_name.c_str()));
    EXPECT_TRUE(readHere(reader, 300).timedOut);  // reattaches, nothing new yet
    writeChunks(successor, 2);
    const LocalRead fromSuccessor = readHere(reader, 10000);
    ASSERT_TRUE(fromSuccessor.delivered);
    EXPECT_TRUE(fromSuccessor.discontinuity);
    EXPECT_EQ(fromSuccessor.payload, 2u);
}

// A reader stopped while it holds the data mutex costs the writer one lock timeout, then nothing;
// the chunks it could not write show as a discontinuity once the reader lets go.
TEST_F(SimulcastChannelTest, ReaderKeepsDataMutex_WriterSkipsWithinTheTimeoutAndMarksTheGap) {
    SimulcastWriter writer;
    writer.setLockTimeout(50ms);
    ASSERT_TRUE(writer.open(8, 64, m_name.c_str()));
    SimulcastReader reader;
    ASSERT_TRUE(reader.open(m_name.c_str()));
    EXPECT_TRUE(readHere(reader, 0).timedOut);
    writeChunks(writer, 1);
    ASSERT_TRUE(readHere(reader, 10000).delivered);

    PipedChild& holder = startHelper();
    ASSERT_EQ(holder.ask("hold " + m_name + "_MUTEX_DATA"), "ok");
    ASSERT_TRUE(holder.kill(PipedChild::Signal::Stop));
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(writer.beginChunk(), nullptr);
    EXPECT_EQ(writer.beginChunk(), nullptr);
    EXPECT_EQ(writer.beginChunk(), nullptr);
    const auto waited = std::chrono::steady_clock::now() - started;
    EXPECT_GE(waited, 50ms);
    EXPECT_LT(waited, 2s) << "only the first attempt waits";
    EXPECT_EQ(writer.skippedChunks(), 3u);

    ASSERT_TRUE(holder.kill(PipedChild::Signal::Continue));
    ASSERT_EQ(holder.ask("release"), "ok");
    writeChunks(writer, 1);
    const LocalRead afterGap = readHere(reader, 10000);
    ASSERT_TRUE(afterGap.delivered);
    EXPECT_TRUE(afterGap.discontinuity);
    EXPECT_EQ(afterGap.payload, 6u) << "sequence numbers 3 to 5 were skipped";
}

TEST_F(SimulcastChannelTest, ObjectRefusedToAReader_IsNamedWhileAnAbsentRunIsNot) {
    SimulcastReader reader;
    EXPECT_FALSE(reader.open(m_name.c_str()));
    EXPECT_EQ(reader.openFailure(), "") << "no run yet is no failure to report";

    const std::filesystem::path blocker = "/dev/shm/" + m_name + "_MAP_PARAM";
    ASSERT_TRUE(std::filesystem::create_directory(blocker));
    EXPECT_FALSE(reader.open(m_name.c_str()));
    EXPECT_EQ(reader.openFailure(), m_name + "_MAP_PARAM: Is a directory");
    std::filesystem::remove(blocker);
}

TEST_F(SimulcastChannelTest, EveryHolderKilled_FreshOpenAndCloseLeaveNothing) {
    PipedChild& writer = startHelper();
    PipedChild& reader = startHelper();
    ASSERT_EQ(writer.ask("wopen " + openCommand(8, 64)), "ok");
    ASSERT_EQ(reader.ask("ropen " + m_name), "ok");
    ASSERT_EQ(writer.ask("begin"), "begun");
    for (PipedChild* helper : {&writer, &reader}) {
        helper->kill(PipedChild::Signal::Kill);
        ASSERT_TRUE(helper->wait(kAnswerTimeout).has_value());
    }
    SimulcastWriter fresh;
    ASSERT_TRUE(fresh.open(8, 64, m_name.c_str()));
    EXPECT_EQ(fresh.beginChunk() != nullptr, true);  // the data mutex is usable again
    fresh.commitChunk();
    fresh.close();
}

}  // namespace
