#include "pattern/pattern_channels.h"

#include "simulcast/capture_records.h"

namespace ovtx::pattern::pattern_source::v1 {

namespace records = ovtx::simulcast::capture_records::v1;
using ovtx::simulcast::simulcast_channel::v1::SimulcastWriter;

namespace {

bool openOne(SimulcastWriter& writer, std::string_view prefix, const std::string& portName,
             records::ChannelSize size) {
    const std::string name = records::channelName(prefix, portName);
    return writer.open(size.numChunks, size.chunkBytes, name.c_str());
}

// Takes a chunk, fills it and commits it; a writer that isn't open yields no chunk and is passed.
template <typename Fill>
void publish(SimulcastWriter& writer, Fill&& fill) {
    if (auto* chunk = static_cast<std::uint8_t*>(writer.beginChunk())) {
        fill(chunk);
        writer.commitChunk();
    }
}

}  // namespace

bool PatternChannels::open(const std::string& portName, std::int64_t pictureBytes) {
    const auto videoChunkBytes = static_cast<std::int32_t>(pictureBytes + records::kPatternVideoExtraBytes);
    return openOne(m_video, records::kVideoPrefix, portName,
                   {records::kPatternVideoChunks, videoChunkBytes}) &&
           openOne(m_audio, records::kAudioPrefix, portName, records::kPatternAudioSize) &&
           openOne(m_teletext, records::kTeletextPrefix, portName, records::kPatternTeletextSize) &&
           openOne(m_caption, records::kCaptionPrefix, portName, records::kPatternCaptionSize);
}

void PatternChannels::close() {
    m_caption.close();
    m_teletext.close();
    m_audio.close();
    m_video.close();
}

void PatternChannels::publishFrame(PatternFrames& frames, std::int64_t frameNumber) {
    publish(m_video, [&](std::uint8_t* chunk) { frames.writeVideo(chunk, frameNumber); });
    publish(m_audio, [&](std::uint8_t* chunk) { frames.writeAudio(chunk, frameNumber); });
    publish(m_teletext, [&](std::uint8_t* chunk) { frames.writeTeletext(chunk, frameNumber); });
    publish(m_caption, [&](std::uint8_t* chunk) { frames.writeCaptions(chunk, frameNumber); });
}

}  // namespace ovtx::pattern::pattern_source::v1
