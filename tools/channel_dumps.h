// What one channel of a follow writes to files: the video as Y4M, audio pairs as WAV, captions as
// SCC and SRT, teletext as a transport stream and the SRT of one page. A dump is used by its
// channel's thread alone; every file is created by open(), before the first record comes.
//
//   auto dump = makeCaptionDump({.scc = "cc.scc", .captionSrt = "cc.srt"}, report);
//   if (!dump->open(error)) ...
//   dump->write(chunk, {.origin = start, .format = block}, gap, error);   // each aligned record
//   dump->finish(error);
//
// A Y4M or WAV file can't change its picture or sample rate mid-file: it goes on across a restart
// of the run only while they stay the same, and ends (WriteResult::Ended) when they change.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "simulcast/capture_records.h"
#include "tools/record_summary.h"

namespace ovtx::tools::simulcast_follow::v1 {

struct WavPairOutput {
    int pair = 1;  // 1 to 8
    std::string path;
};

// The files a follow writes; an empty path writes nothing.
struct DumpPaths {
    std::string y4m;
    std::string wavPrefix;  // pair p to <wavPrefix><p>.wav, p from 1 to 8
    std::vector<WavPairOutput> wavPairs;
    std::string scc;
    std::string captionSrt;
    std::string teletextTs;
    std::string teletextSrt;
    int teletextPage = 0x888;  // of teletextSrt
};

// Where the dump stands: times in the files count from `origin`, the start of the dump's first
// frame; `format` is the run's format block as it stood at the record (read again after a restart).
struct DumpContext {
    std::int64_t origin = 0;
    simulcast::capture_records::v1::FormatBlock format{-1, 0};
};

enum class WriteResult {
    Written,  // or left out on purpose (a frame without picture, ...)
    Failed,   // a file could not be written
    Ended,    // the run changed the geometry under a file that can't follow it; the files stay complete
};

class ChannelDump {
  public:
    virtual ~ChannelDump() = default;
    // Creates the files; false with `error` set when one can't be.
    virtual bool open(std::string& error) = 0;
    // One record at or after the dump's origin; `gap`: records were lost before it. `error` tells
    // why, unless Written.
    virtual WriteResult write(const std::vector<std::uint8_t>& chunk, const DumpContext& context, bool gap,
                              std::string& error) = 0;
    // Completes and closes the files.
    virtual bool finish(std::string& error) = 0;
    // True when a failed write was one to standard output (a reader that went away).
    virtual bool writesStandardOutput() const = 0;
};

// Messages that aren't failures (an aspect ratio that changed, ...).
using DumpReport = std::function<void(const std::string&)>;

// The dump of a channel of `kind` for the files of `paths`; null when it writes none.
std::unique_ptr<ChannelDump> makeChannelDump(RecordKind kind, const DumpPaths& paths, DumpReport report);

// The start and end times of a record of `kind`.
std::int64_t recordStart(RecordKind kind, const std::vector<std::uint8_t>& chunk);
std::int64_t recordEnd(RecordKind kind, const std::vector<std::uint8_t>& chunk);

}  // namespace ovtx::tools::simulcast_follow::v1
