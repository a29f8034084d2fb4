// Follows the simulcast channels of a run, or one channel, from another process: the engine of
// simulcast_follow.
//
//   FollowOptions options;
//   options.portName = "0";
//   options.maxRecords = 100;
//   options.dumps.y4m = "video.y4m";
//   std::atomic<bool> stop{false};                        // set it to stop, e.g. from a signal
//   return followRun(options, std::cout, std::cerr, stop); // until 100 records or a stop
//
// Each channel is followed on a thread of its own, opening with retries until a writer has set
// it up. The files are created before anything is read. Their content starts at the same frame,
// the first one that every channel with a file has (announced as "first frame=<n> start=<t>"),
// so that picture, sound and subtitles line up; times in subtitle files count from that frame.
// A stop comes from the caller's flag, from the record limit or from the time limit; the limits
// set the flag themselves.
//
// A channel that can't be opened is retried; the reason is told once each time it changes ("no run
// yet", or the object and the system's reason). Across a restart of the run, the follow goes on with
// the new run's chunk sizes and format block; a Y4M or WAV file goes on only while its picture or
// sample rate stays the same, and otherwise the follow ends with every file complete.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include "tools/channel_dumps.h"
#include "tools/record_summary.h"

namespace ovtx::tools::simulcast_follow::v1 {

struct FollowOptions {
    std::string portName;            // the run's four channels, or
    std::string channel;             // this one channel (then portName is unused)
    std::optional<RecordKind> kind;  // of `channel`; from its name when not given
    std::int64_t maxRecords = 0;     // records of all channels together; 0: no limit
    double seconds = 0;              // 0: no limit
    DumpPaths dumps;                 // the files to write
    bool stats = false;              // a block of per-channel figures each second, no record lines
    bool quiet = false;              // no record lines
    std::uint32_t timeoutMs = 200;   // one read's wait before the stop flag is looked at again
};

// True when one of the files goes to standard output; the text then goes to `err`.
bool writesToStandardOutput(const DumpPaths& paths);

inline constexpr int kExitFileFailed = 1;     // a file could not be created or written
inline constexpr int kExitFormatChanged = 2;  // the run restarted with a picture or sample rate that a
                                              // Y4M or WAV file can't change to; the files are complete

// Prints one line per record (or the stats) to `out` and problems to `err`. Returns the
// process's exit code: 0, kExitFileFailed or kExitFormatChanged.
int followRun(const FollowOptions& options, std::ostream& out, std::ostream& err, std::atomic<bool>& stop);

}  // namespace ovtx::tools::simulcast_follow::v1
