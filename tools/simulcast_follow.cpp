// simulcast_follow: prints the records of a running sdi_tap's channels, and writes its video and
// audio to files that ordinary players open.
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

#include "system/process/process.h"
#include "tools/run_follower.h"

namespace {

using namespace ovtx::tools::simulcast_follow::v1;

std::atomic<bool> g_stop{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");

void onStopSignal() {
    g_stop.store(true);
}

constexpr const char* kUsage =
    R"(Usage: simulcast_follow [options] <portName>
       simulcast_follow [options] --channel <name>

Follows the simulcast channels (video, audio, captions, teletext) of the sdi_tap run on
<portName> (the SDI port number, or 4K), or the one channel <name>, and prints one line per
record: kind, transport sequence number, transport discontinuity (disc), the record's start
and end times in 100 ns units, and a summary:
  video     magic, standard mismatch, record discontinuity (rdisc), aspect ratio
  audio     magic, rdisc, and per pair present/sample count/sampling code
  captions  entry count
  teletext  magic, descriptor and data lengths
The channels are opened with retries until the run has set them up. Stops on Ctrl-C.

Options:
  --channel NAME   follow this one channel instead of a run's four
  --kind KIND      records of --channel: video, audio, captions, teletext or raw
                   (default: from the channel's name)
  --records N      stop after N records of all channels together
  --seconds S      stop after S seconds
  --y4m FILE       write the video to FILE as YUV4MPEG2 (4:2:0, 8-bit or 10-bit)
  --wav PREFIX     write audio pair p (1 to 8) to PREFIX<p>.wav (16-bit stereo)
  --timeout MS     wait at most MS milliseconds per read before looking for a stop (200)
  -h, --help       show this text
)";

bool parseNumber(const std::string& text, double& value) {
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return !text.empty() && end != nullptr && *end == '\0' && value >= 0;
}

// Fills `options` from the command line; false with `error` set on a bad one.
bool parseArguments(int argc, char** argv, FollowOptions& options, bool& help, std::string& error) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "-h" || arg == "--help") {
            help = true;
            return true;
        }
        if (!arg.starts_with("--")) {
            if (!options.portName.empty()) {
                error = "more than one portName given";
                return false;
            }
            options.portName = arg;
            continue;
        }
        if (i + 1 >= argc) {
            error = "option " + std::string(arg) + " needs a value";
            return false;
        }
        const std::string value = argv[++i];
        double number = 0;
        if (arg == "--channel") {
            options.channel = value;
        } else if (arg == "--kind") {
            RecordKind kind{};
            if (!parseKind(value, kind)) {
                error = "unknown record kind '" + value + "'";
                return false;
            }
            options.kind = kind;
        } else if (arg == "--y4m") {
            options.y4mPath = value;
        } else if (arg == "--wav") {
            options.wavPrefix = value;
        } else if (arg == "--records" && parseNumber(value, number)) {
            options.maxRecords = static_cast<std::int64_t>(number);
        } else if (arg == "--seconds" && parseNumber(value, number)) {
            options.seconds = number;
        } else if (arg == "--timeout" && parseNumber(value, number) && number < 4.0e9) {
            options.timeoutMs = static_cast<std::uint32_t>(number);
        } else if (arg == "--records" || arg == "--seconds" || arg == "--timeout") {
            error = "option " + std::string(arg) + " needs a non-negative number, not '" + value + "'";
            return false;
        } else {
            error = "unknown option " + std::string(arg);
            return false;
        }
    }
    if (options.portName.empty() == options.channel.empty()) {
        error = "give either a portName or --channel <name>";
        return false;
    }
    if (options.kind && options.channel.empty()) {
        error = "--kind applies to --channel only";
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    FollowOptions options;
    bool help = false;
    std::string error;
    if (!parseArguments(argc, argv, options, help, error)) {
        std::cerr << "simulcast_follow: " << error << "\n\n" << kUsage;
        return 1;
    }
    if (help) {
        std::cout << kUsage;
        return 0;
    }
    ovtx::system::process::v1::setConsoleControlHandler(&onStopSignal);  // SIGINT, SIGTERM ...
    return followRun(options, std::cout, std::cerr, g_stop);
}
