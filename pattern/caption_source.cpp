#include "pattern/caption_source.h"

#include <algorithm>
#include <cstring>

#include "pattern/pattern_format.h"

namespace ovtx::pattern::pattern_source::v1 {

namespace records = ovtx::simulcast::capture_records::v1;
namespace cc = ovtx::encoding::subtitling::v1;

namespace {

constexpr std::uint32_t kMarkerBits = 31;
constexpr std::uint32_t kTypeField1 = 0;
constexpr std::uint32_t kTypeField2 = 1;
constexpr std::uint32_t kTypeDtvccData = 2;
// The caption sits on the bottom row.
constexpr int kCaptionRow = 15;
// Frames searched for a beep before giving the caption up; far beyond any real frame rate.
constexpr std::int64_t kMaxBeepSearch = 1000000;

CaptionEntry cea608Entry(std::uint32_t type, Cea608Pair pair) {
    return {kMarkerBits, 1, type, pair.first, pair.second};
}

// Each control code goes out twice: decoders take the second of two equal codes in a row as a
// repeat, so a pair lost in transit costs nothing.
std::vector<Cea608Pair> loadPairs(const std::string& text) {
    using cc::Cea608Command;
    std::vector<Cea608Pair> pairs;
    for (Cea608Pair control : {cc::cea608Control(Cea608Command::ResumeCaptionLoading),
                               cc::cea608Control(Cea608Command::EraseNonDisplayedMemory),
                               cc::cea608PreambleAddress(kCaptionRow, 0)}) {
        pairs.push_back(control);
        pairs.push_back(control);
    }
    for (Cea608Pair characters : cc::cea608Text(text)) {
        pairs.push_back(characters);
    }
    return pairs;
}

// The text to paint straight on: no preamble, so that it lands in as few frames as possible, and a
// closing blank, after which decoders that draw word by word show the word too.
std::vector<Cea608Pair> paintPairs(const std::string& text) {
    return cc::cea608Text(text + " ");
}

}  // namespace

int captionEntriesThatFit(std::int32_t chunkBytes) {
    const auto head = static_cast<std::int32_t>(offsetof(records::CaptionRecord, entries));
    return std::max(0, (chunkBytes - head) / static_cast<std::int32_t>(sizeof(CaptionEntry)));
}

int patternCaptionEntries(const FrameRational& framePeriod) {
    return std::min(captionBudget(framePeriod),
                    captionEntriesThatFit(records::kPatternCaptionSize.chunkBytes));
}

void writeCaptionRecord(std::uint8_t* chunk, std::int64_t start, std::int64_t end,
                        std::span<const CaptionEntry> entries) {
    auto* record = reinterpret_cast<records::CaptionRecord*>(chunk);
    record->start = start;
    record->end = end;
    record->count = static_cast<std::uint8_t>(entries.size());
    // A pattern frame carries more entries than the capture path's 31; the record's array spans
    // the whole chunk (captionEntriesThatFit).
    std::memcpy(chunk + offsetof(records::CaptionRecord, entries), entries.data(), entries.size_bytes());
}

CaptionSource::CaptionSource(std::string text, std::int64_t beepPeriod, std::int64_t beepLength, int budget)
    : m_beepPeriod(beepPeriod),
      m_beepLength(beepLength),
      m_loadPairs(loadPairs(text)),
      m_textPairs(paintPairs(text)) {
    const auto count = static_cast<std::size_t>(std::max(budget, 2));
    m_patterned.assign(count, CaptionEntry{kMarkerBits, 0, kTypeDtvccData, 0, 0});
    m_patterned[0] = cea608Entry(kTypeField1, cc::cea608Null());
    m_patterned[1] = cea608Entry(kTypeField2, cc::cea608Null());
    m_current = m_patterned;
}

std::span<const CaptionEntry> CaptionSource::entriesFor(std::int64_t frameNumber,
                                                        const FrameRational& framePeriod) {
    if (m_queue.empty()) {
        fillQueue(frameNumber, framePeriod);
    }
    if (frameNumber != m_expectedFrame || m_queue.empty()) {
        m_queue.clear();
        m_expectedFrame = -1;
        m_current[0] = m_patterned[0];
        return m_current;
    }
    m_current[0] = cea608Entry(kTypeField1, m_queue.front());
    m_queue.pop_front();
    ++m_expectedFrame;
    return m_current;
}

void CaptionSource::fillQueue(std::int64_t frameNumber, const FrameRational& framePeriod) {
    const auto loadFrames = static_cast<std::int64_t>(m_loadPairs.size());
    const bool inBeep = inBeepAt(frameNumber, framePeriod);
    const std::int64_t nextBeep = firstBeepFrame(frameNumber, 0, framePeriod);
    if (inBeep || (nextBeep >= 0 && nextBeep < frameNumber + loadFrames)) {
        paintCaption(frameNumber, inBeep ? frameNumber : nextBeep, framePeriod);
    } else {
        popOnCaption(frameNumber, firstBeepFrame(frameNumber, loadFrames, framePeriod), framePeriod);
    }
    m_expectedFrame = m_queue.empty() ? -1 : frameNumber;
}

// The text is loaded into hidden memory in the frames before the beep and shown whole on its first
// frame.
void CaptionSource::popOnCaption(std::int64_t frameNumber, std::int64_t beepFirst,
                                 const FrameRational& framePeriod) {
    using cc::Cea608Command;
    if (beepFirst < 0) {
        return;
    }
    const std::int64_t afterBeep = firstFrameAfterBeep(beepFirst, framePeriod);
    const Cea608Pair show = cc::cea608Control(Cea608Command::EndOfCaption);
    const Cea608Pair erase = cc::cea608Control(Cea608Command::EraseDisplayedMemory);
    const auto loadFrames = static_cast<std::int64_t>(m_loadPairs.size());
    for (std::int64_t f = frameNumber; f <= afterBeep + 1; ++f) {
        const std::int64_t loadIndex = f - frameNumber;
        if (loadIndex < loadFrames) {
            m_queue.push_back(m_loadPairs[static_cast<std::size_t>(loadIndex)]);
        } else if (f == beepFirst || (f == beepFirst + 1 && f < afterBeep)) {
            m_queue.push_back(show);
        } else if (f >= afterBeep) {
            m_queue.push_back(erase);
        } else {
            m_queue.push_back(cc::cea608Null());
        }
    }
}

// A beep too close to the start of the queue for a hidden load (the one at time 0, or any after a
// frame out of sequence) has its text painted straight onto the screen from `paintFirst` on, one
// pair a frame, so that the word still appears while the beep lasts.
void CaptionSource::paintCaption(std::int64_t frameNumber, std::int64_t paintFirst,
                                 const FrameRational& framePeriod) {
    using cc::Cea608Command;
    const auto textFrames = static_cast<std::int64_t>(m_textPairs.size());
    const std::int64_t eraseFrom =
        std::max(firstFrameAfterBeep(paintFirst, framePeriod), paintFirst + 1 + textFrames);
    const Cea608Pair erase = cc::cea608Control(Cea608Command::EraseDisplayedMemory);
    for (std::int64_t f = frameNumber; f <= eraseFrom + 1; ++f) {
        const std::int64_t textIndex = f - paintFirst - 1;
        if (f == paintFirst) {
            m_queue.push_back(cc::cea608Control(Cea608Command::ResumeDirectCaptioning));
        } else if (f >= eraseFrom) {
            m_queue.push_back(erase);
        } else if (textIndex >= 0 && textIndex < textFrames) {
            m_queue.push_back(m_textPairs[static_cast<std::size_t>(textIndex)]);
        } else {
            m_queue.push_back(cc::cea608Null());
        }
    }
}

bool CaptionSource::inBeepAt(std::int64_t frameNumber, const FrameRational& framePeriod) const {
    return frameTime(frameNumber, framePeriod) % m_beepPeriod < m_beepLength;
}

std::int64_t CaptionSource::firstFrameAfterBeep(std::int64_t beepFrame,
                                                const FrameRational& framePeriod) const {
    std::int64_t f = beepFrame + 1;
    while (inBeepAt(f, framePeriod)) {
        ++f;
    }
    return f;
}

std::int64_t CaptionSource::firstBeepFrame(std::int64_t frameNumber, std::int64_t leadFrames,
                                           const FrameRational& framePeriod) const {
    for (std::int64_t f = frameNumber + leadFrames; f < frameNumber + leadFrames + kMaxBeepSearch; ++f) {
        // The first frame of a beep: the one before it lies outside.
        if (inBeepAt(f, framePeriod) && (f == 0 || !inBeepAt(f - 1, framePeriod))) {
            return f;
        }
    }
    return -1;
}

}  // namespace ovtx::pattern::pattern_source::v1
