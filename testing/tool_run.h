// Runs one of the project's command-line tools to its end and collects its output lines.
//
//   ToolResult follow = runTool("simulcast_follow", {"0", "--records", "16"});
//   EXPECT_EQ(follow.exitCode, 0);
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "system/process/piped_child.h"

namespace ovtx::test_support::v1 {

struct ToolResult {
    std::vector<std::string> lines;  // standard output, line by line
    int exitCode = -1;               // -1 when the tool did not exit normally in time
};

// Reads the tool's lines until it closes its output, then waits for its exit.
ToolResult finishTool(system::process::v1::PipedChild& tool,
                      std::chrono::milliseconds timeout = std::chrono::seconds(60));

// Starts the binary `name` built beside the tests, with no input, and finishes it.
ToolResult runTool(const std::string& name, const std::vector<std::string>& args,
                   std::chrono::milliseconds timeout = std::chrono::seconds(60));

}  // namespace ovtx::test_support::v1
