// Runs PatternLoop in a process of its own, for the tests that follow it from another process.
//
//   pattern_loop_helper <portName> <videoFormat> <bitDepth> <stderrFile> [sampling code of pair 0 ...]
//
// SIGINT and SIGTERM clear the run flag, as the daemon's console handler does. What the loop
// writes to the standard error stream goes to <stderrFile>, a file and no terminal, so the frame
// counter writes a line a minute; a failure of the loop is written there
// as "Exception:<text>" and ends the helper with exit code 1, as the daemon's guard does.
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <string>

#include "log/i_logger.h"
#include "pattern/pattern_loop.h"
#include "system/process/process.h"

namespace {

std::atomic<bool> keepRunning{true};

void clearKeepRunning() {
    keepRunning.store(false);
}

struct StandardErrorLogger final : ovtx::log::i_logger::v0::ILogger {
    void Log(int level, const char* format, ...) override {
        std::va_list arguments;
        va_start(arguments, format);
        std::fprintf(stderr, "[%d] ", level);
        std::vfprintf(stderr, format, arguments);
        std::fputc('\n', stderr);
        va_end(arguments);
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        std::cerr
            << "usage: pattern_loop_helper <portName> <videoFormat> <bitDepth> <stderrFile> [sampling...]"
            << std::endl;
        return 2;
    }
    std::array<std::uint32_t, 8> sampling{};
    for (int i = 5; i < argc && i - 5 < 8; ++i) {
        sampling[static_cast<std::size_t>(i - 5)] = static_cast<std::uint32_t>(std::stoul(argv[i]));
    }
    if (std::freopen(argv[4], "w", stderr) == nullptr) {
        std::cerr << "cannot write " << argv[4] << std::endl;
        return 2;
    }
    ovtx::system::process::v1::setConsoleControlHandler(clearKeepRunning);
    StandardErrorLogger logger;
    int exitCode = 0;
    try {
        ovtx::pattern::pattern_source::v1::PatternLoop(argv[1], std::stoi(argv[2]), std::stoi(argv[3]),
                                                       sampling, logger, keepRunning);
    } catch (const std::exception& e) {  // as the daemon's guard reports it
        std::cerr << "Exception:" << e.what() << std::endl;
        exitCode = 1;
    }
    return exitCode;
}
