// simulcast_follow: prints the records of a running sdi_tap's channels, and writes its video,
// audio, captions and teletext to files that ordinary players and tools open.
#include <atomic>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "encoding/subtitle_text/subtitle_decoder.h"
#include "system/process/process.h"
#include "tools/media_files.h"
#include "tools/run_follower.h"

namespace {

using namespace ovtx::tools::simulcast_follow::v1;
using ovtx::encoding::subtitle_text::v1::parseTeletextPage;

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
The channels are opened with retries until the run has set them up; a channel that is there
but refused (no permission, ...) is told with the object and the reason. A restart of the run
is followed, with the new run's sizes and format. Stops on Ctrl-C.

Files: all of them are created at once, and their content begins with the same frame, the
first one that every channel with a file has; it is printed as "first frame=<n> start=<t>"
(t in 100 ns units). Subtitle times count from that frame, so files play in step. A FILE of
"-" (or /dev/stdout) is standard output, for a pipe into a player; the text then goes to
standard error, without the record lines. A Y4M or WAV file can't change its picture or sample
rate mid-file: when the run restarts with others, the follow ends, with every file complete.

Options:
  --channel NAME       follow this one channel instead of a run's four
  --kind KIND          records of --channel: video, audio, captions, teletext or raw
                       (default: from the channel's name)
  --records N          stop after N records of all channels together
  --seconds S          stop after S seconds
  --y4m FILE           the video as YUV4MPEG2 (4:2:0, 8 or 10 bit, with the records' aspect
                       ratio and the format's field order)
  --wav PREFIX         audio pair p (1 to 8) to PREFIX<p>.wav (16-bit stereo)
  --wav-pair N FILE    audio pair N (1 to 8) to FILE as WAV; may be given more than once
  --scc FILE           captions: CEA-608 field 1 as Scenarist SCC (29.97 fps drop-frame codes)
  --cc-srt FILE        captions: caption channel 1 decoded, as SubRip SRT
  --teletext-ts FILE   teletext as an MPEG transport stream (teletext PES, PID 0x100, with the
                       records' teletext descriptor), e.g. ffmpeg -txt_page 888 -i FILE ...
  --teletext-srt PAGE FILE
                       teletext page PAGE (e.g. 888) decoded, as SubRip SRT
  --stats              print per channel once a second, instead of the record lines: records,
                       rate, discontinuities, last start time, audio peak per pair in dBFS,
                       caption entries and pairs, teletext lines and pages
  --quiet              no record lines
  --timeout MS         wait at most MS milliseconds per read before looking for a stop (200)
  -h, --help           show this text

Exit codes: 0 on a stop (Ctrl-C, a limit, standard output closed), 1 for a bad command line or
a file that could not be created or written, 2 when the run restarted with a picture or sample
rate that the Y4M or WAV file can't take.

Examples:
  simulcast_follow 0 --y4m - | ffplay -
  simulcast_follow 0 --wav-pair 1 - | ffplay -
  simulcast_follow 0 --seconds 10 --y4m v.y4m --wav-pair 1 a.wav --scc cc.scc --teletext-ts t.ts
)";

bool parseNumber(const std::string& text, double& value) {
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return !text.empty() && end != nullptr && *end == '\0' && value >= 0;
}

// One option: how many values it takes and what it does with them (false with `error` set on a
// bad value).
struct OptionRule {
    int values;
    std::function<bool(FollowOptions&, const std::vector<std::string>&, std::string&)> apply;
};

bool setNumber(const std::string& option, const std::string& text, double limit, double& value,
               std::string& error) {
    if (!parseNumber(text, value) || value >= limit) {
        error = "option " + option + " needs a non-negative number, not '" + text + "'";
        return false;
    }
    return true;
}

const std::map<std::string_view, OptionRule>& optionRules() {
    using Values = std::vector<std::string>;
    auto path = [](std::string DumpPaths::*member) {
        return OptionRule{1, [member](FollowOptions& o, const Values& v, std::string&) {
                              o.dumps.*member = v[0];
                              return true;
                          }};
    };
    static const std::map<std::string_view, OptionRule> rules{
        {"--channel",
         {1,
          [](FollowOptions& o, const Values& v, std::string&) {
              o.channel = v[0];
              return true;
          }}},
        {"--kind",
         {1,
          [](FollowOptions& o, const Values& v, std::string& error) {
              RecordKind kind{};
              if (!parseKind(v[0], kind)) {
                  error = "unknown record kind '" + v[0] + "'";
                  return false;
              }
              o.kind = kind;
              return true;
          }}},
        {"--records",
         {1,
          [](FollowOptions& o, const Values& v, std::string& error) {
              double n = 0;
              return setNumber("--records", v[0], 9.0e18, n, error) &&
                     (o.maxRecords = static_cast<std::int64_t>(n), true);
          }}},
        {"--seconds",
         {1, [](FollowOptions& o, const Values& v,
                std::string& error) { return setNumber("--seconds", v[0], 1.0e12, o.seconds, error); }}},
        {"--timeout",
         {1,
          [](FollowOptions& o, const Values& v, std::string& error) {
              double n = 0;
              return setNumber("--timeout", v[0], 4.0e9, n, error) &&
                     (o.timeoutMs = static_cast<std::uint32_t>(n), true);
          }}},
        {"--y4m", path(&DumpPaths::y4m)},
        {"--wav", path(&DumpPaths::wavPrefix)},
        {"--scc", path(&DumpPaths::scc)},
        {"--cc-srt", path(&DumpPaths::captionSrt)},
        {"--teletext-ts", path(&DumpPaths::teletextTs)},
        {"--wav-pair",
         {2,
          [](FollowOptions& o, const Values& v, std::string& error) {
              const int pair = v[0].size() == 1 ? v[0][0] - '0' : 0;
              if (pair < 1 || pair > 8) {
                  error = "option --wav-pair needs a pair from 1 to 8, not '" + v[0] + "'";
                  return false;
              }
              o.dumps.wavPairs.push_back({pair, v[1]});
              return true;
          }}},
        {"--teletext-srt",
         {2,
          [](FollowOptions& o, const Values& v, std::string& error) {
              const auto page = parseTeletextPage(v[0]);
              if (!page) {
                  error = "option --teletext-srt needs a page such as 888, not '" + v[0] + "'";
                  return false;
              }
              o.dumps.teletextPage = *page;
              o.dumps.teletextSrt = v[1];
              return true;
          }}},
        {"--stats", {0, [](FollowOptions& o, const Values&, std::string&) { return o.stats = true; }}},
        {"--quiet", {0, [](FollowOptions& o, const Values&, std::string&) { return o.quiet = true; }}},
    };
    return rules;
}

int standardOutputFiles(const DumpPaths& paths) {
    int count = 0;
    for (const std::string* path :
         {&paths.y4m, &paths.scc, &paths.captionSrt, &paths.teletextTs, &paths.teletextSrt}) {
        count += isStandardOutput(*path) ? 1 : 0;
    }
    for (const WavPairOutput& pair : paths.wavPairs) {
        count += isStandardOutput(pair.path) ? 1 : 0;
    }
    return count + (isStandardOutput(paths.wavPrefix) ? 2 : 0);  // eight files can't share it
}

// Fills `options` from the command line; false with `error` set on a bad one.
bool parseArguments(int argc, char** argv, FollowOptions& options, bool& help, std::string& error) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "-h" || arg == "--help") {
            help = true;
            return true;
        }
        if (!arg.starts_with("-")) {
            if (!options.portName.empty()) {
                error = "more than one portName given ('" + options.portName + "', '" + arg + "')";
                return false;
            }
            options.portName = arg;
            continue;
        }
        const auto rule = optionRules().find(arg);
        if (rule == optionRules().end()) {
            error = "unknown option " + arg;
            return false;
        }
        if (i + rule->second.values >= argc) {
            error = "option " + arg + " needs " + (rule->second.values == 1 ? "a value" : "two values");
            return false;
        }
        const std::vector<std::string> values(argv + i + 1, argv + i + 1 + rule->second.values);
        i += rule->second.values;
        if (!rule->second.apply(options, values, error)) {
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
    if (standardOutputFiles(options.dumps) > 1) {
        error = "only one file can go to standard output";
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
        std::cerr << "simulcast_follow: " << error << "\n(simulcast_follow --help tells all options)\n";
        return 1;
    }
    if (help) {
        std::cout << kUsage;
        return 0;
    }
    ovtx::system::process::v1::setConsoleControlHandler(
        &onStopSignal);  // SIGINT, SIGTERM ...; SIGPIPE ignored
    return followRun(options, std::cout, std::cerr, g_stop);
}
