#include "pattern/pattern_channels.h"

#include <cstring>

#include "simulcast/capture_records.h"

namespace ovtx::pattern::pattern_source::v1 {

namespace records = ovtx::simulcast::capture_records::v1;
using ovtx::simulcast::simulcast_channel::v1::SimulcastWriter;

namespace {

constexpr std::chrono::seconds kSkipLogInterval{10};

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

bool PatternChannels::openOne(Channel& channel, std::string_view prefix, const std::string& portName,
                              std::int32_t numChunks, std::int32_t chunkBytes,
                              std::chrono::milliseconds lockTimeout) {
    channel.name = records::channelName(prefix, portName);
    channel.writer.setLockTimeout(lockTimeout);
    if (!channel.writer.open(numChunks, chunkBytes, channel.name.c_str())) {
        m_failed = &channel;
        return false;
    }
    return true;
}

bool PatternChannels::open(const std::string& portName, std::int64_t pictureBytes,
                           std::chrono::milliseconds lockTimeout) {
    m_failed = nullptr;
    const auto videoChunkBytes = static_cast<std::int32_t>(pictureBytes + records::kPatternVideoExtraBytes);
    const auto& audio = records::kPatternAudioSize;
    const auto& teletext = records::kPatternTeletextSize;
    const auto& caption = records::kPatternCaptionSize;
    return openOne(m_video, records::kVideoPrefix, portName, records::kPatternVideoChunks, videoChunkBytes,
                   lockTimeout) &&
           openOne(m_audio, records::kAudioPrefix, portName, audio.numChunks, audio.chunkBytes,
                   lockTimeout) &&
           openOne(m_teletext, records::kTeletextPrefix, portName, teletext.numChunks, teletext.chunkBytes,
                   lockTimeout) &&
           openOne(m_caption, records::kCaptionPrefix, portName, caption.numChunks, caption.chunkBytes,
                   lockTimeout);
}

std::string PatternChannels::failure() const {
    if (m_failed == nullptr || m_failed->writer.error() == 0) {
        return {};
    }
    return m_failed->name + ": " + m_failed->writer.failedObject() + ": " +
           std::strerror(m_failed->writer.error());
}

void PatternChannels::close() {
    m_caption.writer.close();
    m_teletext.writer.close();
    m_audio.writer.close();
    m_video.writer.close();
}

bool PatternChannels::followsSkips(Channel& channel) {
    const std::uint64_t skipped = channel.writer.skippedChunks();
    const bool follows = skipped != channel.publishedSkips;
    channel.publishedSkips = skipped;
    return follows;
}

void PatternChannels::publishFrame(PatternFrames& frames, std::int64_t frameNumber) {
    publish(m_video.writer, [&](std::uint8_t* chunk) {
        frames.writeVideo(chunk, frameNumber);
        if (followsSkips(m_video)) {
            reinterpret_cast<records::VideoRecordHeader*>(chunk)->discontinuity = 1;
        }
    });
    publish(m_audio.writer, [&](std::uint8_t* chunk) {
        frames.writeAudio(chunk, frameNumber);
        if (followsSkips(m_audio)) {
            reinterpret_cast<records::AudioRecord*>(chunk)->discontinuity = 1;
        }
    });
    publish(m_teletext.writer, [&](std::uint8_t* chunk) { frames.writeTeletext(chunk, frameNumber); });
    publish(m_caption.writer, [&](std::uint8_t* chunk) { frames.writeCaptions(chunk, frameNumber); });
}

void PatternChannels::logSkips(ovtx::log::i_logger::v0::ILogger& logger) {
    const auto now = std::chrono::steady_clock::now();
    for (Channel* channel : {&m_video, &m_audio, &m_teletext, &m_caption}) {
        const std::uint64_t skipped = channel->writer.skippedChunks();
        if (skipped == channel->loggedSkips || now - channel->lastLog < kSkipLogInterval) {
            continue;
        }
        logger.Log(1, "Simulcast %s: a reader held the channel for over a frame, %llu record(s) skipped",
                   channel->name.c_str(), static_cast<unsigned long long>(skipped - channel->loggedSkips));
        channel->loggedSkips = skipped;
        channel->lastLog = now;
    }
}

}  // namespace ovtx::pattern::pattern_source::v1
