// What the tests that run the pattern source in other processes share.
//
//   ChildProcess run = ChildProcess::spawn(helperBinary("pattern_loop_helper"), {...});
//   EXPECT_EQ(sharedObjectsOf(portName), std::vector<std::string>{});
#pragma once

#include <string>
#include <vector>

namespace ovtx::pattern::pattern_source::v1 {

// A program built beside the tests (SDI_TAP_BIN_DIR, set by ctest; the working directory
// otherwise).
std::string helperBinary(const std::string& name);

// The names in /dev/shm that belong to the run on `portName`.
std::vector<std::string> sharedObjectsOf(const std::string& portName);

}  // namespace ovtx::pattern::pattern_source::v1
