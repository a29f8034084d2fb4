#include "system/sdi/simulated_board/device_choice.h"

#include <cstdlib>
#include <memory>
#include <mutex>

#include "system/sdi/simulated_board/simulated_board.h"

namespace ovtx::system::sdi::simulated_board::v1 {

deltacast_io::v1::DeviceApi& deviceApiFromEnvironment() {
    static std::mutex mutex;
    static std::unique_ptr<SimulatedBoard> board;
    std::lock_guard lock(mutex);
    if (board) {
        return *board;
    }
    const char* path = std::getenv(kSimulatedBoardVariable);
    if (path == nullptr || *path == '\0') {
        return deltacast_io::v1::noDeviceApi();
    }
    board = std::make_unique<SimulatedBoard>(loadScenario(path));
    return *board;
}

}  // namespace ovtx::system::sdi::simulated_board::v1
