// Counting of full output buffers, by pin.
//
// A producer registers each of its outputs ("pins") once, then reports every time a pin's buffer
// was full. The counts appear in the performance line, and the log message about them is
// rate-limited to one per pin and ten seconds.
//
//   notifier.RegisterBufferFull("video");
//   if (!writer.takeChunk()) notifier.NotifyBufferFull("video");
#pragma once

#include <string>

namespace ovtx::log::i_buffer_full_notifier::v0 {

struct IBufferFullNotifier {
    // Adds the pin with a count of 0. Safe from any thread.
    virtual void RegisterBufferFull(const std::string& name) = 0;
    // Counts one full buffer on the pin and logs about it within the rate limit.
    virtual void NotifyBufferFull(const std::string& name) = 0;
    virtual ~IBufferFullNotifier() = default;
};

}  // namespace ovtx::log::i_buffer_full_notifier::v0
