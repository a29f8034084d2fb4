// The simulated board for tests that drive it slot by slot. Its clock moves only by the board's
// own waits (and what the test adds), so slots come as fast as they are asked for and frame
// numbers are exact. Its serial belongs to this test process alone: boards of one serial share
// their ports' claims machine-wide, and other test processes run at the same time.
//
//   SteppedPort port(R"({"signal": [{"format": 0}]})", 6);   // port 0 of a 2-in 2-out board, PAL
//   port.start();
//   DeviceHandle slot = port.next();                         // gives back the slot before
//
//   SimulatedBoard board(scenarioOfPort0(R"({"signal": [{"format": 3}]})"),
//   std::make_unique<SteppedClock>());
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "system/process/piped_child.h"
#include "system/sdi/simulated_board/simulated_board.h"

namespace ovtx::system::sdi::simulated_board::v1::testing {

class SteppedClock final : public BoardClock {
  public:
    std::int64_t nowNs() override { return m_now; }
    void sleepFor(std::int64_t nanoseconds) override { m_now += nanoseconds; }

  private:
    std::int64_t m_now = 0;
};

inline constexpr const char* kTwoInTwoOut = R"("rx": 2, "tx": 2)";

// The board's serial as a JSON member.
inline std::string uniqueSerial() {
    return R"("serial": "0x5E2)" + std::to_string(process::v1::currentProcessId()) + R"(")";
}

// A board of `boardKeys` (JSON members) whose port 0 carries `port` (a JSON object).
inline Scenario scenarioOfPort0(const std::string& port, const std::string& boardKeys = kTwoInTwoOut) {
    return parseScenario(R"({"board": {)" + uniqueSerial() + (boardKeys.empty() ? "" : ", " + boardKeys) +
                             R"(}, "ports": {"0": )" + port + "}}",
                         "test");
}

// Port 0 of such a board on the stepped clock, its input stream open and set to `standard`.
struct SteppedPort {
    using DeviceHandle = deltacast_io::v1::DeviceHandle;

    SteppedPort(const std::string& port, std::uint32_t standard, const std::string& boardKeys = kTwoInTwoOut)
        : board(scenarioOfPort0(port, boardKeys), std::make_unique<SteppedClock>()) {
        namespace device = deltacast_io::v1;
        handle = device::openBoard(board, 0);
        stream = device::openStream(board, handle, device::kPortNumbers[0].streamType);
        EXPECT_EQ(board.setStreamProperty(stream, device::kStreamVideoStandard, standard), 0u);
        EXPECT_EQ(board.setStreamProperty(stream, device::kStreamBufferDepth, 32), 0u);
        EXPECT_EQ(board.setStreamProperty(stream, device::kStreamTimeout, 200), 0u);
    }
    void start() { ASSERT_EQ(board.startStream(stream), 0u); }
    // The next slot; it stays locked until the board goes.
    DeviceHandle lock() {
        DeviceHandle slot = deltacast_io::v1::kNoHandle;
        EXPECT_EQ(board.lockSlotHandle(stream, slot), 0u);
        return slot;
    }
    // The next slot, after giving back the one `next` gave before.
    DeviceHandle next() {
        board.unlockSlotHandle(lastSlot);
        lastSlot = lock();
        return lastSlot;
    }
    // The video buffer of the next slot, with the board's code for it.
    struct Buffer {
        std::uint32_t code = 0;
        std::uint8_t* data = nullptr;
        std::uint32_t size = 0;
    };
    Buffer buffer() {
        Buffer buffer;
        buffer.code = board.getSlotBuffer(lock(), deltacast_io::v1::kVideoBuffer, buffer.data, buffer.size);
        return buffer;
    }
    std::uint64_t time(DeviceHandle slot) {
        std::uint64_t microseconds = 0;
        EXPECT_EQ(board.getSlotSystemTime(slot, microseconds), 0u);
        return microseconds;
    }
    std::uint32_t property(std::uint32_t number) {
        std::uint32_t value = 0;
        EXPECT_EQ(board.getStreamProperty(stream, number, value), 0u);
        return value;
    }

    SimulatedBoard board;
    DeviceHandle handle = deltacast_io::v1::kNoHandle;
    DeviceHandle stream = deltacast_io::v1::kNoHandle;
    DeviceHandle lastSlot = deltacast_io::v1::kNoHandle;
};

}  // namespace ovtx::system::sdi::simulated_board::v1::testing
