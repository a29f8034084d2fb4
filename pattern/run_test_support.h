// What the tests that run the pattern source in other processes share.
//
//   PipedChild run = PipedChild::spawn(binaryPath("pattern_loop_helper"), {...});
//   EXPECT_EQ(sharedObjectsOf(portName), std::vector<std::string>{});
#pragma once

#include <string>
#include <vector>

namespace ovtx::pattern::pattern_source::v1 {

// The names in /dev/shm that belong to the run on `portName`.
std::vector<std::string> sharedObjectsOf(const std::string& portName);

}  // namespace ovtx::pattern::pattern_source::v1
