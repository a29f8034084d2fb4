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

#include <string>

#include "app/capture_lines.h"
#include "encoding/sdi/sdi_common.h"
#include "system/sdi/simulated_board/testing/stepped_port.h"

namespace ovtx::app::sdi_tap::v1::testing {

class SimulatedSlots : public system::sdi::simulated_board::v1::testing::SteppedPort {
  public:
    // `port` is the JSON of port 0, `format` the format code the stream is set to.
    SimulatedSlots(const std::string& port, std::int32_t format)
        : SteppedPort(port, encoding::sdi::sdi_common::v2::SdiFormatInfo(format).boardStandard),
          m_info(format),
          m_lines(captureLineTable(m_info)) {
        EXPECT_EQ(board.vbiSetCaptureLines(stream, m_lines), 0u);
        start();
    }

    system::sdi::deltacast_io::v1::DeviceApi& api() { return board; }
    const system::sdi::deltacast_io::v1::VbiLineTable& lines() const { return m_lines; }
    std::uint32_t boardStandard() const { return m_info.boardStandard; }

  private:
    encoding::sdi::sdi_common::v2::SdiFormatInfo m_info;
    system::sdi::deltacast_io::v1::VbiLineTable m_lines;
};

}  // namespace ovtx::app::sdi_tap::v1::testing
