// The publication of one pattern frame into the run's four channels.
//
// A frame goes out as video, audio, teletext and captions, in that order, each as take chunk,
// fill, commit; a channel that isn't open is passed over. A channel whose data mutex a reader
// keeps for longer than a frame period loses that frame's record (see SimulcastWriter); the next
// video and audio records then carry their discontinuity flag:
//
//   RunObjects objects(RunKind::Pattern, "0", logger);
//   if (objects.openChannels(pictureBytes(format, 8), 40ms)) { ...Could not open simulcast... }
//   PatternChannels channels(objects);
//   channels.publishFrame(frames, f);
//   objects.logSkips();
#pragma once

#include <cstdint>

#include "pattern/pattern_frames.h"
#include "simulcast/run_objects.h"

namespace ovtx::pattern::pattern_source::v1 {

class PatternChannels {
  public:
    explicit PatternChannels(ovtx::simulcast::capture_records::v1::RunObjects& objects)
        : m_objects(objects) {}

    // Publishes the four records of frame `frameNumber`.
    void publishFrame(PatternFrames& frames, std::int64_t frameNumber);

  private:
    ovtx::simulcast::capture_records::v1::RunObjects& m_objects;
};

}  // namespace ovtx::pattern::pattern_source::v1
