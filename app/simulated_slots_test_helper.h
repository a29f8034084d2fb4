// The slots of port 0 of a simulated board, input frame after input frame, for tests of the
// capture steps. The stream is set to the format's standard and to the VBI lines the engine sets;
// the board's clock moves only by its own waits, so the first slot is input frame 1 (frame 0 was
// under way when the stream started), the next one frame 2, and so on.
//
//   SimulatedSlots port(R"({"signal": [{"format": 0}], "wss": [{"at": 0, "aspect": "16:9"}]})", 0);
//   DeviceHandle slot = port.next();   // gives back the slot before; the board closes all it made
//   readWssAspect(port.api(), report, slot, port.lines(), 0, stored);
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "encoding/sdi/sdi_common.h"
#include "system/process/piped_child.h"
#include "system/sdi/simulated_board/simulated_board.h"

namespace ovtx::app::sdi_tap::v1::testing {

namespace device = system::sdi::deltacast_io::v1;
namespace simulated = system::sdi::simulated_board::v1;

class SteppedClock final : public simulated::BoardClock {
  public:
    std::int64_t nowNs() override { return m_now; }
    void sleepFor(std::int64_t nanoseconds) override { m_now += nanoseconds; }

  private:
    std::int64_t m_now = 0;
};

class SimulatedSlots {
  public:
    // `port` is the JSON of port 0, `format` the format code the stream is set to.
    SimulatedSlots(const std::string& port, std::int32_t format)
        : m_info(format),
          m_board(simulated::parseScenario(R"({"board": {"rx": 2, "tx": 2, "serial": "0x5E2)" +
                                               std::to_string(system::process::v1::currentProcessId()) +
                                               R"("}, "ports": {"0": )" + port + "}}",
                                           "test"),
                  std::make_unique<SteppedClock>()) {
        if (m_info.boardStandard == 6 || m_info.boardStandard == 7) {
            m_lines[0] = {23, 0, 1};
            for (std::uint32_t i = 0; i < 16; ++i) {
                m_lines[1 + i] = {7 + i, 0, 1};
                m_lines[17 + i] = {320 + i, 0, 1};
            }
        } else {
            m_lines[0] = {11, 1, 0};
        }
        m_handle = device::openBoard(m_board, 0);
        m_stream = device::openStream(m_board, m_handle, device::kPortNumbers[0].streamType);
        EXPECT_EQ(m_board.setStreamProperty(m_stream, device::kStreamVideoStandard, m_info.boardStandard),
                  0u);
        EXPECT_EQ(m_board.setStreamProperty(m_stream, device::kStreamBufferDepth, 32), 0u);
        EXPECT_EQ(m_board.vbiSetCaptureLines(m_stream, m_lines), 0u);
        EXPECT_EQ(m_board.startStream(m_stream), 0u);
    }

    device::DeviceHandle next() {
        m_board.unlockSlotHandle(m_slot);
        EXPECT_EQ(m_board.lockSlotHandle(m_stream, m_slot), 0u);
        return m_slot;
    }

    device::DeviceApi& api() { return m_board; }
    const device::VbiLineTable& lines() const { return m_lines; }
    std::uint32_t boardStandard() const { return m_info.boardStandard; }

  private:
    encoding::sdi::sdi_common::v2::SdiFormatInfo m_info;
    simulated::SimulatedBoard m_board;
    device::VbiLineTable m_lines{};
    device::DeviceHandle m_handle = device::kNoHandle;
    device::DeviceHandle m_stream = device::kNoHandle;
    device::DeviceHandle m_slot = device::kNoHandle;
};

}  // namespace ovtx::app::sdi_tap::v1::testing
