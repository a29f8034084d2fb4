#include "pattern/pattern_frames.h"

#include "pattern/beep_audio.h"
#include "pattern/beep_timing.h"

namespace ovtx::pattern::pattern_source::v1 {

PatternFrames::PatternFrames(const PatternFormat& format, int bitDepth,
                             std::span<const std::uint32_t> samplingCodes, int captionEntries)
    : m_format(format),
      m_bitDepth(bitDepth),
      m_samplingCodes(samplingCodes.begin(), samplingCodes.end()),
      m_testCard(format.width, format.height),
      m_captions("BEEP", kBeepPeriod, kBeepLength, captionEntries) {}

void PatternFrames::writeVideo(std::uint8_t* chunk, std::int64_t frameNumber) {
    m_testCard.writeTestCard(chunk, frameNumber, m_format.period, m_bitDepth);
}

void PatternFrames::writeAudio(std::uint8_t* chunk, std::int64_t frameNumber) const {
    writeBeepAudio(chunk, startTime(frameNumber), endTime(frameNumber), m_samplingCodes);
}

void PatternFrames::writeTeletext(std::uint8_t* chunk, std::int64_t frameNumber) const {
    m_teletext.writeRecord(chunk, startTime(frameNumber), endTime(frameNumber));
}

void PatternFrames::writeCaptions(std::uint8_t* chunk, std::int64_t frameNumber) {
    writeCaptionRecord(chunk, startTime(frameNumber), endTime(frameNumber),
                       m_captions.entriesFor(frameNumber, m_format.period));
}

}  // namespace ovtx::pattern::pattern_source::v1
