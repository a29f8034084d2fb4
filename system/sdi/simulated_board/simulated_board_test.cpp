#include "system/sdi/simulated_board/simulated_board.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <numeric>

#include "system/process/piped_child.h"
#include "system/sdi/simulated_board/device_choice.h"
#include "system/sdi/simulated_board/testing/stepped_port.h"
#include "testing/files.h"

namespace {

using namespace ovtx::system::sdi::simulated_board::v1;
namespace device = ovtx::system::sdi::deltacast_io::v1;
using device::DeviceHandle;
using ovtx::system::process::v1::PipedChild;
using ovtx::system::process::v1::SpawnOptions;
using ovtx::system::sdi::simulated_board::v1::testing::SteppedPort;
using ovtx::system::sdi::simulated_board::v1::testing::uniqueSerial;

// At a high speed factor on the real clock: slots keep the input's frame period in their times,
// and a port without signal answers 22 once the timeout is up.
TEST(SimulatedBoardTest, HighSpeedFactor_KeepsFramePeriodAndTimeout) {
    SimulatedBoard board(parseScenario(R"({"speed": 100, "board": {)" + uniqueSerial() + R"(},
        "ports": {"0": {"signal": [{"format": 4}]}, "1": {"signal": [{"noSignal": true}]}}})",
                                       "test"));
    const DeviceHandle handle = device::openBoard(board, 0);
    const DeviceHandle stream = device::openStream(board, handle, 0);
    ASSERT_EQ(board.setStreamProperty(stream, device::kStreamVideoStandard, 1), 0u);
    ASSERT_EQ(board.setStreamProperty(stream, device::kStreamBufferDepth, 32), 0u);
    ASSERT_EQ(board.startStream(stream), 0u);
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    constexpr int kSlots = 20;
    for (int i = 0; i < kSlots; ++i) {
        DeviceHandle slot = device::kNoHandle;
        ASSERT_EQ(board.lockSlotHandle(stream, slot), 0u);
        ASSERT_EQ(board.getSlotSystemTime(slot, last), 0u);
        first = i == 0 ? last : first;
        ASSERT_EQ(board.unlockSlotHandle(slot), 0u);
    }
    std::uint32_t dropped = 0;
    ASSERT_EQ(board.getStreamProperty(stream, device::kStreamSlotsDropped, dropped), 0u);
    // 29.97 frames a second: 33366.7 microseconds a frame, rounded per frame.
    EXPECT_NEAR(static_cast<double>(last - first), (kSlots - 1 + dropped) * 1001000.0 / 30, 1.0);
    const DeviceHandle silent = device::openStream(board, handle, 1);
    ASSERT_EQ(board.setStreamProperty(silent, device::kStreamVideoStandard, 1), 0u);
    ASSERT_EQ(board.startStream(silent), 0u);
    DeviceHandle slot = device::kNoHandle;
    EXPECT_EQ(board.lockSlotHandle(silent, slot), device::kDeviceTimeout);
}

TEST(SimulatedBoardTest, NoSlotOfTheStreamsStandard_LockTimesOutWith22) {
    for (const char* signal : {R"([{"noSignal": true}])", R"([{"format": "HD_1280_720p_50"}])"}) {
        SteppedPort port(std::string(R"({"signal": )") + signal + "}", 0);
        port.start();
        DeviceHandle slot = device::kNoHandle;
        EXPECT_EQ(port.board.lockSlotHandle(port.stream, slot), device::kDeviceTimeout) << signal;
    }
}

// The cable out for 10 frames: the port reports no signal and no slot comes, then slots resume
// with a time that tells how long the input was gone.
TEST(SimulatedBoardTest, CablePulledAndPutBack_SlotsStopAndResume) {
    SteppedPort port(
        R"({"signal": [{"format": 3, "frames": 5}, {"noSignal": true, "frames": 10}, {"format": 3}]})", 0);
    port.start();
    std::uint64_t before = 0;
    for (int i = 0; i < 4; ++i) {  // frames 1 to 4
        const DeviceHandle slot = port.lock();
        before = port.time(slot);
        EXPECT_EQ(port.board.unlockSlotHandle(slot), 0u);
        EXPECT_EQ(port.board.unlockSlotHandle(slot), device::kDeviceFrameAlreadyUnlocked);
    }
    DeviceHandle slot = device::kNoHandle;
    std::uint32_t value = 0;
    EXPECT_EQ(port.board.lockSlotHandle(port.stream, slot), device::kDeviceTimeout);
    EXPECT_EQ(port.board.getBoardProperty(port.handle, device::kPortNumbers[0].standardProperty, value),
              device::kDeviceBadInputSignal);
    while (port.board.lockSlotHandle(port.stream, slot) == device::kDeviceTimeout) {
    }
    EXPECT_EQ(port.time(slot) - before, 11u * 40000);  // frame 15 after frame 4
    EXPECT_EQ(port.board.getBoardProperty(port.handle, device::kPortNumbers[0].standardProperty, value), 0u);
    EXPECT_EQ(port.property(device::kStreamSlotsDropped), 0u);
}

// 48 kHz at 29.97 frames a second: 8008 samples in every five frames, as an embedder sends them.
TEST(SimulatedBoardTest, AudioAt2997_FollowsTheFiveFrameCadence) {
    const FrameShape shape = *shapeOf(1, 1);
    std::vector<std::uint32_t> counts;
    for (std::int64_t frame = 0; frame < 5; ++frame) {
        counts.push_back(samplesInFrame(48000, shape, frame));
    }
    EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), 0u), 8008u);
    for (const std::uint32_t count : counts) {
        EXPECT_TRUE(count == 1601 || count == 1602) << count;
    }
    SimulatedBoard board(parseScenario("{}", "test"));
    EXPECT_EQ(board.getNbSamples(1, 1, device::kAudioRate48kHz) * board.getBlockSize(1, 2), 1602u * 4);
    EXPECT_EQ(board.getNbSamples(0, 0, device::kAudioRate44_1kHz), 1764u);
}

TEST(SimulatedBoardTest, HdAncillaryData_CarriesCaptionsTeletextAndRawPackets) {
    SteppedPort port(R"({"signal": [{"format": 3}], "captions": [{"at": 0, "text": "HI"}],
        "teletext": {"pages": [{"magazine": 8, "page": "0x88", "subtitle": true}], "firstAncLine": 14},
        "anc": [{"at": 0, "frames": 100000000, "line": 9, "did": "0x61", "sdid": "0x01", "words": [1, 2, 3]}]})",
                     0);
    port.start();
    const DeviceHandle slot = port.lock();
    std::int32_t count = 0;
    ASSERT_EQ(port.board.slotAncGetNbPackets(slot, 9, 0, count), 0u);
    ASSERT_EQ(count, 2);
    const device::AncPacket* cdp = nullptr;
    ASSERT_EQ(port.board.slotAncGetPacket(slot, 9, 0, 0, cdp), 0u);
    EXPECT_EQ(cdp->did, 0x61);
    ASSERT_EQ(cdp->wordCount, 9u + 24 * 3 + 4);  // 24 cc_data entries at 25 frames a second
    EXPECT_EQ(cdp->words[0], 0x96);
    EXPECT_EQ(cdp->words[8], 0xE0 | 24);
    EXPECT_EQ(std::accumulate(cdp->words, cdp->words + cdp->wordCount, 0u) % 256, 0u) << "checksum";
    const device::AncPacket* raw = nullptr;
    ASSERT_EQ(port.board.slotAncGetPacket(slot, 9, 0, 1, raw), 0u);
    EXPECT_EQ(std::vector<std::uint16_t>(raw->words, raw->words + raw->wordCount),
              (std::vector<std::uint16_t>{1, 2, 3}));
    const device::AncPacket* teletext = nullptr;
    ASSERT_EQ(port.board.slotAncGetPacket(slot, 14, 0, 0, teletext), 0u);
    EXPECT_EQ(teletext->sdid, 0x08);
    EXPECT_EQ(teletext->words[1], 0x03);  // data unit of a subtitle page
    EXPECT_EQ(teletext->words[4], 0xE4);
}

// 525 lines arrive field after field with the board's blank lines: 3 before the first field and 4
// before the second.
TEST(SimulatedBoardTest, NtscPackedBuffer_HasTheBoardsLineOffsets) {
    SteppedPort port(R"({"signal": [{"format": 2}]})", 7, R"("type": 0, "rx": 2, "tx": 2)");
    EXPECT_EQ(
        port.board.setStreamProperty(port.stream, device::kStreamBufferPacking, device::kPackingPlanar8Bit),
        device::kDeviceBadArgument);
    port.start();
    const auto [code, buffer, size] = port.buffer();
    ASSERT_EQ(code, 0u);
    constexpr std::size_t kPitch = 1440;
    ASSERT_EQ(size, 487 * kPitch);
    EXPECT_EQ(buffer[1], 16);                       // blank
    EXPECT_EQ(buffer[3 * kPitch + 1], 180);         // first row, 75% white bar
    EXPECT_EQ(buffer[(3 + 240) * kPitch + 1], 16);  // blank between the fields
    EXPECT_EQ(buffer[(3 + 240 + 4) * kPitch + 1], 180);
}

TEST(SimulatedBoardTest, PlanarBoard_GivesPlanesFieldAfterField) {
    SteppedPort port(R"({"signal": [{"format": 5}]})", 2, R"("type": 6, "rx": 4, "tx": 4)");
    EXPECT_EQ(
        port.board.setStreamProperty(port.stream, device::kStreamBufferPacking, device::kPackingPlanar10Bit),
        0u);
    port.start();
    EXPECT_EQ(port.buffer().size, 1920u * 1080 * 3 / 2 * 2);
}

// The chroma planes stand as Cr, then Cb, as consumers of a capture run expect them.
TEST(SimulatedBoardTest, PlanarBoard_GivesCrBeforeCb) {
    SteppedPort port(R"({"signal": [{"format": 3}]})", 0, R"("type": 6, "rx": 4, "tx": 4)");
    ASSERT_EQ(
        port.board.setStreamProperty(port.stream, device::kStreamBufferPacking, device::kPackingPlanar8Bit),
        0u);
    port.start();
    const auto [code, buffer, size] = port.buffer();
    ASSERT_EQ(code, 0u);
    constexpr std::size_t kLuma = 1920 * 1080;
    constexpr std::size_t kRedBar = 1920 * 5 / 8 + 100;  // first row, far from the moving white bar
    EXPECT_EQ(buffer[kRedBar], 65);                      // 75% red: Y 65, Cb 100, Cr 212
    EXPECT_EQ(buffer[kLuma + kRedBar / 2], 212);
    EXPECT_EQ(buffer[kLuma + kLuma / 4 + kRedBar / 2], 100);
}

// The stream of a port is the process's own until it ends: another process that opens it gets 18.
TEST(SimulatedBoardTest, StreamHeldByAnotherProcess_OpensWithCode18) {
    const std::string serial = "0x5E5" + std::to_string(ovtx::system::process::v1::currentProcessId());
    const std::string scenario =
        R"({"board": {"serial": ")" + serial + R"("}, "ports": {"1": {"signal": [{"format": 3}]}}})";
    const std::filesystem::path file = std::filesystem::temp_directory_path() / ("board_" + serial + ".json");
    std::ofstream(file) << scenario;
    SpawnOptions options;
    options.environment = {{kSimulatedBoardVariable, file.string()}};
    PipedChild holder =
        PipedChild::spawn(ovtx::test_support::v1::binaryPath("sdi_board_report"), {"--hold", "1"}, options);
    std::optional<std::string> line;
    while ((line = holder.readLine()) && *line != "Holding RX1") {
    }
    ASSERT_TRUE(line) << "the holder never held RX1";
    SimulatedBoard board(parseScenario(scenario, "test"));
    const DeviceHandle handle = device::openBoard(board, 0);
    try {
        device::openStream(board, handle, 1);
        FAIL();
    } catch (const device::DeltacastException& e) {
        EXPECT_STREQ(e.what(), "Cannot open RX1 stream. (Requested stream is already used)");
    }
    holder.kill(PipedChild::Signal::Kill);
    holder.wait();
    EXPECT_NO_THROW(device::openStream(board, handle, 1));
    std::filesystem::remove(file);
}

}  // namespace
