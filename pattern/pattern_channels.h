// The four simulcast channels of a pattern run, and the publication of one frame into them.
//
// A frame goes out as video, audio, teletext and captions, in that order, each as take chunk,
// fill, commit; a channel that isn't open is passed over:
//
//   PatternChannels channels;
//   if (!channels.open("0", pictureBytes(format, 8))) { ...Could not open simulcast... }
//   channels.publishFrame(frames, f);
#pragma once

#include <cstdint>
#include <string>

#include "pattern/pattern_frames.h"
#include "simulcast/simulcast_writer.h"

namespace ovtx::pattern::pattern_source::v1 {

class PatternChannels {
  public:
    // Opens video (32 chunks of the picture + 48 bytes), audio (64 x 73856), teletext (32 x 1635)
    // and closed captions (32 x 1024) of `portName`, in that order; false at the first that fails.
    bool open(const std::string& portName, std::int64_t pictureBytes);

    // Closes closed captions, teletext, audio and video, in that order.
    void close();

    // Publishes the four records of frame `frameNumber`.
    void publishFrame(PatternFrames& frames, std::int64_t frameNumber);

  private:
    using SimulcastWriter = ovtx::simulcast::simulcast_channel::v1::SimulcastWriter;

    SimulcastWriter m_video;
    SimulcastWriter m_audio;
    SimulcastWriter m_teletext;
    SimulcastWriter m_caption;
};

}  // namespace ovtx::pattern::pattern_source::v1
