#include "log/console_sink.h"

#include <string>

#include "system/console/console.h"
#include "system/console/standard_error.h"

namespace ovtx::log::log_perf::v4 {

namespace {

constexpr const char* kDefaultColour = "\033[0m";

// The console attributes 12, 14, 7 and 10 of the levels 0 to 3, as ANSI escapes.
const char* colourOfLevel(int level) {
    switch (level) {
        case 0:
            return "\033[91m";
        case 1:
            return "\033[93m";
        case 3:
            return "\033[92m";
        default:
            return kDefaultColour;
    }
}

}  // namespace

ConsoleSink::ConsoleSink()
    : ConsoleSink(system::console::v1::standardErrorWriter(),
                  system::console::v1::standardErrorIsTerminal()) {}

ConsoleSink::ConsoleSink(system::console::v1::NonBlockingWriter& output, bool colours)
    : m_output(output), m_colours(colours) {}

ConsoleSink::~ConsoleSink() {
    if (m_colours) {
        m_output.write(kDefaultColour);
    }
}

void ConsoleSink::SetThreshold(int threshold) {
    std::lock_guard lock(m_mutex);
    m_threshold = threshold;
}

void ConsoleSink::Log(int level, const Timestamp* when, const char* text) {
    {
        std::lock_guard lock(m_mutex);
        if (level > m_threshold) {
            return;
        }
    }
    std::string line;
    if (m_colours) {
        line += colourOfLevel(level);
    }
    line += formatLogTime(*when);
    line += ' ';
    line += text;
    line += '\n';
    // One write per line, so that lines of other writers to the stream never cut into it.
    m_output.write(line);
}

}  // namespace ovtx::log::log_perf::v4
