// The pattern source: the daemon's publisher when no board serves it.
//
// `PatternLoop` fills the same public objects as the capture path (format block, clock block and
// the video, audio, teletext and caption channels of the run) with a test card, a beep and the
// word "BEEP" in captions and teletext, at the pace of the chosen video format. It runs on the
// calling thread and returns when stopped: by the run's named stop event (any local process may
// set it, see sdi_tap_stop) or by the process-wide run flag that the console handler clears.
//
//   std::atomic<bool> keepRunning{true};
//   PatternLoop("0", 3, 8, parameters.audioSampling, logger, keepRunning);  // 1080p25, 8 bits
//
// Set-up writes "Switched to beep stub mode", "Resolution: ..." and "Framerate: ..." to the
// standard error stream, then the frame counter (frame_counter.h): "\rGenerated frame #<n>" for
// every frame on a terminal, a line a minute elsewhere. When a channel can't be
// opened it writes "Could not open simulcast" and closes what it opened. If the system refused
// one of the channel's objects (a directory in its place, no permission, no room), it then throws
// std::runtime_error naming the channel, the object and the reason, so that the program ends
// with exit code 1; only a channel declined before any object was touched returns normally, for
// exit code 0. The stop event and shared blocks that can't be created throw std::runtime_error.
//
// The caller holds the port's claim: the run has its port to itself, and clears a stop event
// left set by an earlier run. No reader can hold the loop up for longer than a frame period:
// see PatternChannels.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <string>

#include "log/i_logger.h"

namespace ovtx::pattern::pattern_source::v1 {

// `bitDepth` is 8 or 10; `audioSampling` holds the sampling code of pairs 0 to 7 (a missing
// entry counts as 0, which the beep plays at 48 kHz). The loop reads `keepRunning` before every
// pass; the flag must outlive the call.
void PatternLoop(const std::string& portName, int videoFormat, int bitDepth,
                 std::span<const std::uint32_t> audioSampling, ovtx::log::i_logger::v0::ILogger& logger,
                 const std::atomic<bool>& keepRunning);

}  // namespace ovtx::pattern::pattern_source::v1
