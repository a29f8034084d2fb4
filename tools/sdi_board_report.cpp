// sdi_board_report: prints the report of the board that sdi_tap finds on this machine, and can
// hold one port's input stream so that a daemon started on it stops with exit code 100.
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "system/process/process.h"
#include "system/sdi/deltacast_io/device_api.h"
#include "system/sdi/simulated_board/device_choice.h"

namespace {

namespace device = ovtx::system::sdi::deltacast_io::v1;
namespace simulated = ovtx::system::sdi::simulated_board::v1;

constexpr const char* kUsage =
    R"(Usage: sdi_board_report [--hold <port>]

Prints the report that sdi_tap logs for the board it finds (with -print): the simulated board when
SDI_TAP_SIMULATED_BOARD names a scenario file (see docs/simulated-board.md), otherwise the board's
SDK, which this build doesn't have, so no board.

  --hold <port>  then opens the input stream of <port> (0 to 7) and keeps it until the tool is
                 stopped (Ctrl-C, SIGTERM); "Holding RX<port>" on standard output says it holds
                 it. A daemon started on that port meanwhile exits with code 100.

Exit codes: 0 done (or stopped while holding), 1 bad command line, unreadable scenario or board
failure, 100 the port's stream is already used by another process.
)";

class StandardOutputLogger final : public ovtx::log::i_logger::v0::ILogger {
  public:
    void Log(int /*level*/, const char* format, ...) override {
        va_list arguments;
        va_start(arguments, format);
        std::vprintf(format, arguments);
        va_end(arguments);
        std::printf("\n");
    }
};

volatile std::sig_atomic_t stopRequested = 0;

void requestStop() {
    stopRequested = 1;
}

int holdPort(device::DeviceApi& api, std::uint32_t port) {
    const device::DeviceHandle board = device::openBoard(api, 0);
    const device::DeviceHandle stream = device::openStream(api, board, device::kPortNumbers[port].streamType);
    ovtx::system::process::v1::setConsoleControlHandler(&requestStop);
    std::cout << "Holding RX" << port << std::endl;
    while (stopRequested == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    api.closeStreamHandle(stream);
    api.closeBoardHandle(board);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string_view> arguments(argv + 1, argv + argc);
    if (arguments.size() == 1 && (arguments[0] == "-h" || arguments[0] == "--help")) {
        std::cout << kUsage;
        return 0;
    }
    int holdPortNumber = -1;
    if (arguments.size() == 2 && arguments[0] == "--hold" && arguments[1].size() == 1 &&
        arguments[1][0] >= '0' && arguments[1][0] < '0' + static_cast<int>(device::kMaxPorts)) {
        holdPortNumber = arguments[1][0] - '0';
    } else if (!arguments.empty()) {
        std::cerr << "sdi_board_report: bad command line\n\n" << kUsage;
        return 1;
    }
    try {
        device::DeviceApi& api = simulated::deviceApiFromEnvironment();
        const device::BoardInfo info = device::getBoardReport(api);
        StandardOutputLogger logger;
        if (info.PropertiesValid) {
            device::printBoardReport(logger, info);
        } else {
            logger.Log(2, "API v%s  Board(s) %d", info.ApiVersion.c_str(), info.NbSdiBoard);
            logger.Log(2, "No SDI board found.");
        }
        std::fflush(stdout);
        if (holdPortNumber >= 0) {
            return holdPort(api, static_cast<std::uint32_t>(holdPortNumber));
        }
    } catch (const device::DeltacastException& e) {
        std::cerr << "sdi_board_report: " << e.what() << std::endl;
        return e.code == device::kDeviceStreamAlreadyUsed ? 100 : 1;
    } catch (const std::exception& e) {
        std::cerr << "sdi_board_report: " << e.what() << std::endl;
        return 1;
    }
    return 0;
}
