#include "system/process/testing/tool_run.h"

#include "system/process/testing/test_files.h"

namespace ovtx::system::process::testing {

ToolResult finishTool(v1::PipedChild& tool, std::chrono::milliseconds timeout) {
    ToolResult result;
    while (auto line = tool.readLine(timeout)) {
        result.lines.push_back(*line);
    }
    const auto status = tool.wait(timeout);
    result.exitCode = status && status->exited ? status->code : -1;
    return result;
}

ToolResult runTool(const std::string& name, const std::vector<std::string>& args,
                   std::chrono::milliseconds timeout) {
    v1::PipedChild tool = v1::PipedChild::spawn(binaryPath(name), args);
    tool.closeInput();
    return finishTool(tool, timeout);
}

}  // namespace ovtx::system::process::testing
