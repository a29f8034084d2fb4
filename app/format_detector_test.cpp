#include "app/format_detector.h"

#include <gtest/gtest.h>

#include <map>

#include "log/testing/capturing_logger.h"

namespace {

using namespace ovtx::app::sdi_tap::v1;
namespace device = ovtx::system::sdi::deltacast_io::v1;
using ovtx::log::log_perf::v4::testing::CapturingLogger;

// A board whose ports report what the test sets: a standard and clock divisor each, or a code.
class PortsBoard final : public device::NoDeviceApi {
  public:
    void carry(std::size_t port, std::uint32_t standard, std::uint32_t clockDivisor) {
        m_values[device::kPortNumbers[port].standardProperty] = standard;
        m_values[device::kPortNumbers[port].clockDivisorProperty] = clockDivisor;
        m_codes.erase(device::kPortNumbers[port].standardProperty);
    }
    void fail(std::size_t port, std::uint32_t code) {
        m_codes[device::kPortNumbers[port].standardProperty] = code;
    }

    std::uint32_t getBoardProperty(device::DeviceHandle, std::uint32_t property,
                                   std::uint32_t& value) override {
        if (const auto code = m_codes.find(property); code != m_codes.end()) {
            return code->second;
        }
        const auto found = m_values.find(property);
        if (found == m_values.end()) {
            return device::kDeviceBadInputSignal;
        }
        value = found->second;
        return device::kDeviceOk;
    }

  private:
    std::map<std::uint32_t, std::uint32_t> m_values;
    std::map<std::uint32_t, std::uint32_t> m_codes;
};

TEST(FormatDetectorTest, OnePort_FormatFromItsStandardAndClockAndNoneWithoutSignal) {
    PortsBoard board;
    CapturingLogger logger;
    FormatDetector detector(false, 2);
    board.carry(2, 1, 1);
    EXPECT_EQ(detectWithLog(detector, board, 7, logger), 0u);
    EXPECT_EQ(detector.detectedFormat(), 4);                   // 1080p29.97
    EXPECT_EQ(detectWithLog(detector, board, 7, logger), 0u);  // unchanged: no second line
    board.fail(2, device::kDeviceBadInputSignal);
    EXPECT_EQ(detectWithLog(detector, board, 7, logger), 0u);
    EXPECT_EQ(detector.detectedFormat(), -1);
    board.fail(2, device::kDeviceInvalidHandle);
    EXPECT_EQ(detectWithLog(detector, board, 7, logger), device::kDeviceInvalidHandle);
    EXPECT_EQ(logger.lines(), (std::vector<std::string>{"2 Auto detected video format: 1920x1080p 29.97 fps",
                                                        "2 Auto detected incoherent format"}));
    EXPECT_THROW(detector.quadrantFormat(1), std::out_of_range);
}

TEST(FormatDetectorTest, FourQuadrants_JoinOnlyWhenAllFourAgree) {
    struct Case {
        std::uint32_t before;  // standard of all four ports at the first look
        std::uint32_t standards[4];
        std::uint32_t clockDivisor;
        std::int32_t joined;
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {37, {0, 0, 0, 0}, 0, 102, {"2 Auto detected video format: 3840x2160p 25 fps"}},
        {37, {9, 9, 9, 9}, 1, 105, {"2 Auto detected video format: 3840x2160p 59.94 fps"}},
        {37, {8, 8, 8, 8}, 0, 106, {"2 Auto detected video format: 3840x2160p 24 fps"}},
        {0,
         {0, 0, 4, 37},
         0,
         -1,
         {"2 Auto detected not 4k format on RX0 : 1920x1080p 25 fps",
          "2 Auto detected not 4k format on RX1 : 1920x1080p 25 fps",
          "2 Auto detected not 4k format on RX2 : 1280x720p 50 fps",
          "2 Auto detected incoherent format on RX3"}},
    };
    for (const Case& c : cases) {
        PortsBoard board;
        CapturingLogger logger;
        FormatDetector detector(true, 0);
        for (std::size_t port = 0; port < 4; ++port) {
            board.carry(port, c.before, 0);
        }
        detector.update(board, 7);
        for (std::size_t port = 0; port < 4; ++port) {
            board.carry(port, c.standards[port], c.clockDivisor);
        }
        EXPECT_EQ(detectWithLog(detector, board, 7, logger), 0u);
        EXPECT_EQ(detector.detectedFormat(), c.joined);
        EXPECT_EQ(logger.lines(), c.lines) << c.joined;
    }
}

TEST(FormatDetectorTest, FourQuadrantsWithAFailingPort_KeepTheFormatsTheyHad) {
    PortsBoard board;
    FormatDetector detector(true, 0);
    for (std::size_t port = 0; port < 4; ++port) {
        board.carry(port, 1, 0);
    }
    ASSERT_EQ(detector.update(board, 7), 0u);
    board.carry(3, 5, 0);
    board.fail(2, device::kDeviceInvalidHandle);
    EXPECT_EQ(detector.update(board, 7), device::kDeviceInvalidHandle);
    EXPECT_EQ(detector.detectedFormat(), 107);  // 4 x 1080p30, as before
    EXPECT_EQ(detector.quadrantFormat(3), 11);
}

}  // namespace
