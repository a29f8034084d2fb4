// The four simulcast channels of a pattern run, and the publication of one frame into them.
//
// A frame goes out as video, audio, teletext and captions, in that order, each as take chunk,
// fill, commit; a channel that isn't open is passed over. A channel whose data mutex a reader
// keeps for longer than a frame period loses that frame's record (see SimulcastWriter); the next
// video and audio records then carry their discontinuity flag, and `logSkips` says so at most
// every ten seconds per channel:
//
//   PatternChannels channels;
//   if (!channels.open("0", pictureBytes(format, 8), 40ms)) { ...Could not open simulcast... }
//   channels.publishFrame(frames, f);
//   channels.logSkips(logger);
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <string>

#include "log/i_logger.h"
#include "pattern/pattern_frames.h"
#include "simulcast/simulcast_writer.h"

namespace ovtx::pattern::pattern_source::v1 {

class PatternChannels {
  public:
    // Opens video (32 chunks of the picture + 48 bytes), audio (64 x 73856), teletext (32 x 1635)
    // and closed captions (32 x 1024) of `portName`, in that order; false at the first that fails.
    // `lockTimeout` bounds every wait for a reader, about one frame period.
    bool open(const std::string& portName, std::int64_t pictureBytes, std::chrono::milliseconds lockTimeout);

    // After a failed open: "<channel>: <object>: <reason>" when the system refused one of the
    // channel's objects; empty when the channel was declined before any object was touched.
    std::string failure() const;

    // Closes closed captions, teletext, audio and video, in that order.
    void close();

    // Publishes the four records of frame `frameNumber`.
    void publishFrame(PatternFrames& frames, std::int64_t frameNumber);

    // Logs, at level 1, the channels that lost records since their last line, at most one line
    // every ten seconds per channel.
    void logSkips(ovtx::log::i_logger::v0::ILogger& logger);

  private:
    using SimulcastWriter = ovtx::simulcast::simulcast_channel::v1::SimulcastWriter;

    struct Channel {
        SimulcastWriter writer;
        std::string name;
        std::uint64_t publishedSkips = 0;  // skips that a record's flag has told of
        std::uint64_t loggedSkips = 0;
        std::chrono::steady_clock::time_point lastLog{};
    };

    bool openOne(Channel& channel, std::string_view prefix, const std::string& portName,
                 std::int32_t numChunks, std::int32_t chunkBytes, std::chrono::milliseconds lockTimeout);
    // True once per run of skips: the record now published is the first after lost ones.
    static bool followsSkips(Channel& channel);

    Channel m_video;
    Channel m_audio;
    Channel m_teletext;
    Channel m_caption;
    const Channel* m_failed = nullptr;
};

}  // namespace ovtx::pattern::pattern_source::v1
