// The four records of one pattern frame: test card, beep audio, teletext and captions.
//
// The caller takes a chunk of each channel, has it filled here and commits it; this class holds
// the state the records need from frame to frame (the test card's font and scratch picture, the
// caption queue, the prepared teletext):
//
//   PatternFrames frames(patternFormat(3), 10, samplingCodes, captionBudget(period));
//   frames.writeVideo(static_cast<std::uint8_t*>(video.beginChunk()), f);
//   video.commitChunk();
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "pattern/caption_source.h"
#include "pattern/pattern_format.h"
#include "pattern/teletext_source.h"
#include "pattern/test_card.h"

namespace ovtx::pattern::pattern_source::v1 {

class PatternFrames {
  public:
    // `captionEntries`: the entries of every caption record, the caption budget cut to the chunk.
    PatternFrames(const PatternFormat& format, int bitDepth, std::span<const std::uint32_t> samplingCodes,
                  int captionEntries);

    const PatternFormat& format() const { return m_format; }
    int bitDepth() const { return m_bitDepth; }
    const TestCard& testCard() const { return m_testCard; }

    std::int64_t startTime(std::int64_t frameNumber) const { return frameTime(frameNumber, m_format.period); }
    std::int64_t endTime(std::int64_t frameNumber) const {
        return frameTime(frameNumber + 1, m_format.period);
    }

    void writeVideo(std::uint8_t* chunk, std::int64_t frameNumber);
    void writeAudio(std::uint8_t* chunk, std::int64_t frameNumber) const;
    void writeTeletext(std::uint8_t* chunk, std::int64_t frameNumber) const;
    void writeCaptions(std::uint8_t* chunk, std::int64_t frameNumber);

  private:
    PatternFormat m_format;
    int m_bitDepth;
    std::vector<std::uint32_t> m_samplingCodes;
    TestCard m_testCard;
    CaptionSource m_captions;
    TeletextSource m_teletext;
};

}  // namespace ovtx::pattern::pattern_source::v1
