// Which board the process talks to: the simulated board when the environment variable
// SDI_TAP_SIMULATED_BOARD names a scenario file, otherwise the board's SDK, which this build
// doesn't have, so no board at all.
//
//   DeviceApi& api = deviceApiFromEnvironment();   // throws ScenarioError for a bad scenario
//   BoardInfo info = getBoardReport(api);
#pragma once

#include "system/sdi/deltacast_io/device_api.h"

namespace ovtx::system::sdi::simulated_board::v1 {

inline constexpr const char* kSimulatedBoardVariable = "SDI_TAP_SIMULATED_BOARD";

// The board of this process, made on the first call and kept until the process ends. Throws
// ScenarioError, naming the file and the key, when the scenario can't be read; a later call tries
// again.
deltacast_io::v1::DeviceApi& deviceApiFromEnvironment();

}  // namespace ovtx::system::sdi::simulated_board::v1
