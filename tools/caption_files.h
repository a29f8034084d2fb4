// Subtitle files made of a run's caption and teletext records: Scenarist SCC (the CEA-608 byte
// pairs as broadcast, for caption tools and ffmpeg's scc demuxer) and SubRip SRT (the text as a
// decoder shows it, for any player). Times are 100 ns units from the start of the dump.
//
//   SccFile scc;
//   scc.open("cc.scc");
//   scc.addPair(time, {0x94, 0x2F});          // on the 29.97 fps grid of SCC time codes
//   SubRipFile srt;
//   srt.open("cc.srt");
//   srt.show(time, "BEEP");                   // the text shown from `time` on
//   srt.show(later, "");                      // ... until `later`
//   srt.close(endOfDump);
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "encoding/subtitling/cea608.h"
#include "tools/media_files.h"

namespace ovtx::tools::simulcast_follow::v1 {

using Cea608Pair = encoding::subtitling::v1::Cea608Pair;

// "HH:MM:SS;FF": the SMPTE drop-frame time code of frame `frame` at 30000/1001 frames a second
// (frames 0 and 1 of every minute but each tenth are skipped, so the code keeps to the clock).
std::string dropFrameTimecode(std::int64_t frame);

// The frame of the 29.97 fps grid nearest to `time`.
std::int64_t sccFrameAt(std::int64_t time);

// "HH:MM:SS,mmm" of a time in 100 ns units, rounded down to the millisecond.
std::string subRipTime(std::int64_t time);

class SccFile {
  public:
    static constexpr std::size_t kMaxWordsPerLine = 32;

    // Creates the file with its "Scenarist_SCC V1.0" header.
    bool open(const std::string& path);
    // One CEA-608 pair of field 1, sent at `time`. Null pairs are left out; each pair takes the
    // next frame of the grid, and a line of the file starts wherever the pairs leave a gap.
    bool addPair(std::int64_t time, Cea608Pair pair);
    // Writes the pending line.
    bool close();

  private:
    bool flushLine();

    OutputFile m_file;
    std::int64_t m_lastFrame = -1;
    std::int64_t m_lineFrame = -1;
    std::vector<Cea608Pair> m_line;
};

class SubRipFile {
  public:
    bool open(const std::string& path) { return m_file.open(path); }
    // From `time` on, `text` is shown (nothing for an empty text). A cue is written when its text
    // goes.
    bool show(std::int64_t time, const std::string& text);
    // Ends the cue on screen at `time` and closes the file.
    bool close(std::int64_t time);

  private:
    OutputFile m_file;
    std::string m_text;
    std::int64_t m_since = 0;
    int m_cues = 0;
};

}  // namespace ovtx::tools::simulcast_follow::v1
