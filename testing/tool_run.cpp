#include "testing/tool_run.h"

#include "testing/files.h"

namespace ovtx::test_support::v1 {

using system::process::v1::PipedChild;

ToolResult finishTool(PipedChild& tool, std::chrono::milliseconds timeout) {
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
    PipedChild tool = PipedChild::spawn(binaryPath(name), args);
    tool.closeInput();
    return finishTool(tool, timeout);
}

}  // namespace ovtx::test_support::v1
