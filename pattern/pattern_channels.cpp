#include "pattern/pattern_channels.h"

namespace ovtx::pattern::pattern_source::v1 {

namespace records = ovtx::simulcast::capture_records::v1;
using ovtx::simulcast::simulcast_channel::v1::SimulcastWriter;
using records::RunChannel;

namespace {

// Takes a chunk, fills it and commits it; a writer that isn't open, or whose reader keeps the
// chunk's mutex, yields no chunk and is passed.
template <typename Fill>
void publish(SimulcastWriter& writer, Fill&& fill) {
    if (auto* chunk = static_cast<std::uint8_t*>(writer.beginChunk())) {
        fill(chunk);
        writer.commitChunk();
    }
}

}  // namespace

void PatternChannels::publishFrame(PatternFrames& frames, std::int64_t frameNumber) {
    publish(m_objects.writer(RunChannel::Video), [&](std::uint8_t* chunk) {
        frames.writeVideo(chunk, frameNumber);
        if (m_objects.followsSkips(RunChannel::Video)) {
            reinterpret_cast<records::VideoRecordHeader*>(chunk)->discontinuity = 1;
        }
    });
    publish(m_objects.writer(RunChannel::Audio), [&](std::uint8_t* chunk) {
        frames.writeAudio(chunk, frameNumber);
        if (m_objects.followsSkips(RunChannel::Audio)) {
            reinterpret_cast<records::AudioRecord*>(chunk)->discontinuity = 1;
        }
    });
    publish(m_objects.writer(RunChannel::Teletext),
            [&](std::uint8_t* chunk) { frames.writeTeletext(chunk, frameNumber); });
    publish(m_objects.writer(RunChannel::Caption),
            [&](std::uint8_t* chunk) { frames.writeCaptions(chunk, frameNumber); });
}

}  // namespace ovtx::pattern::pattern_source::v1
