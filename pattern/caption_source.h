// The pattern source's closed captions: the word "BEEP" as a CEA-608 pop-on caption on field 1
// (CC1), shown for exactly the frames of each beep.
//
// Every frame gets the same number of CEA-708 cc_data entries, the caption budget: entry 0 carries
// the CEA-608 pair of field 1, entry 1 the (null) pair of field 2, and all others are DTVCC
// padding. The caption is loaded into the decoder's hidden memory in the frames before a beep,
// "end of caption" shows it on the beep's first frame and "erase displayed memory" takes it off
// on the first frame after the beep. A beep that comes too soon for that load (the one at time 0,
// or one right after a frame out of sequence) has its text painted on from the beep's first frame
// instead. The pairs of one caption wait in a queue; a frame number out of sequence drops the
// queue, and the next frame starts a fresh caption for the next beep.
//
//   CaptionSource captions("BEEP", kBeepPeriod, kBeepLength, captionBudget(period));
//   std::span<const CaptionEntry> entries = captions.entriesFor(f, period);
#pragma once

#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <vector>

#include "encoding/subtitling/cea608.h"
#include "pattern/frame_rational.h"
#include "simulcast/capture_records.h"

namespace ovtx::pattern::pattern_source::v1 {

using CaptionEntry = ovtx::simulcast::capture_records::v1::CaptionEntry;
using Cea608Pair = ovtx::encoding::subtitling::v1::Cea608Pair;

// Entries of 20 bytes that fit in a caption chunk of `chunkBytes` after its 20-byte head.
int captionEntriesThatFit(std::int32_t chunkBytes);

// Entries of every caption record of a pattern run: the caption budget of `framePeriod`, cut to
// what a pattern caption chunk holds (which only a format the table doesn't know reaches).
int patternCaptionEntries(const FrameRational& framePeriod);

// Writes a caption record into `chunk`: start, end, the count and the entries.
void writeCaptionRecord(std::uint8_t* chunk, std::int64_t start, std::int64_t end,
                        std::span<const CaptionEntry> entries);

class CaptionSource {
  public:
    // `budget` entries go out with every frame (at least the two CEA-608 entries).
    CaptionSource(std::string text, std::int64_t beepPeriod, std::int64_t beepLength, int budget);

    // The entries of frame `frameNumber`; valid until the next call.
    std::span<const CaptionEntry> entriesFor(std::int64_t frameNumber, const FrameRational& framePeriod);

    // The frame number whose pair is at the front of the queue; -1 after a frame out of sequence.
    std::int64_t expectedFrame() const { return m_expectedFrame; }

  private:
    void fillQueue(std::int64_t frameNumber, const FrameRational& framePeriod);
    void popOnCaption(std::int64_t frameNumber, std::int64_t beepFirst, const FrameRational& framePeriod);
    void paintCaption(std::int64_t frameNumber, std::int64_t paintFirst, const FrameRational& framePeriod);
    bool inBeepAt(std::int64_t frameNumber, const FrameRational& framePeriod) const;
    std::int64_t firstFrameAfterBeep(std::int64_t beepFrame, const FrameRational& framePeriod) const;
    // First frame at or after `frameNumber` + `leadFrames` whose start lies in a beep.
    std::int64_t firstBeepFrame(std::int64_t frameNumber, std::int64_t leadFrames,
                                const FrameRational& framePeriod) const;

    std::int64_t m_beepPeriod;
    std::int64_t m_beepLength;
    std::vector<Cea608Pair> m_loadPairs;    // hidden-memory load of the text, one pair per frame
    std::vector<Cea608Pair> m_textPairs;    // the text alone
    std::vector<CaptionEntry> m_patterned;  // the list of a frame without caption data
    std::vector<CaptionEntry> m_current;    // the list handed out by the last call
    std::deque<Cea608Pair> m_queue;         // field 1 pairs of the frames to come
    std::int64_t m_expectedFrame = -1;
};

}  // namespace ovtx::pattern::pattern_source::v1
