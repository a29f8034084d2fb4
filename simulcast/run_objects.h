// The public objects of one run, in one place: the named stop event, the clock block, the video
// format block and the four channels (video, audio, teletext, closed captions), with the sizes a
// capture run and a pattern run open them with, and the order in which each kind opens and closes
// them. The capture engine and the pattern source both publish through it.
//
//   RunObjects objects(RunKind::Capture, "2", logger);
//   objects.openStopEvent();                                  // "..._Sdi_Stop_Event_2"
//   objects.openBlocks(formatCode, 10, 40ms);                 // capture: clock, then format
//   if (auto failed = objects.openChannels(pictureBytes, 40ms)) { ...*failed could not open... }
//   if (auto* chunk = objects.writer(RunChannel::Video).beginChunk()) { ...; commitChunk(); }
//   objects.publishClock(start);
//   if (objects.stopRequested()) { ... }
//
// A channel whose data mutex a reader keeps for longer than the lock timeout loses that record
// (see SimulcastWriter): `followsSkips` tells the publisher that the next record comes after lost
// ones, and `logSkips` names the channel at level 1, at most every ten seconds per channel.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "log/i_logger.h"
#include "simulcast/capture_records.h"
#include "simulcast/simulcast_writer.h"
#include "system/ipc/generic_shared_memory.h"
#include "system/ipc/named_objects.h"

namespace ovtx::simulcast::capture_records::v1 {

// Which producer a run is: the two differ in the channels' chunk counts and sizes, in the size
// the format block is declared with and in the order of the blocks.
enum class RunKind { Capture, Pattern };

// The channels in the order they open; they close in the reverse order.
enum class RunChannel { Video = 0, Audio = 1, Teletext = 2, Caption = 3 };
inline constexpr std::array<RunChannel, 4> kRunChannelOrder{RunChannel::Video, RunChannel::Audio,
                                                            RunChannel::Teletext, RunChannel::Caption};

// The chunk count and chunk bytes of `channel` for a run of `kind` whose pictures take
// `pictureBytes` (capturePictureSize or patternPictureSize).
ChannelSize runChannelSize(RunKind kind, RunChannel channel, std::int64_t pictureBytes);
// The name prefix of `channel`.
std::string_view runChannelPrefix(RunChannel channel);

class RunObjects {
  public:
    using SimulcastWriter = simulcast_channel::v1::SimulcastWriter;

    RunObjects(RunKind kind, std::string portName, log::i_logger::v0::ILogger& logger);
    RunObjects(const RunObjects&) = delete;
    RunObjects& operator=(const RunObjects&) = delete;
    // Closes everything still open, in the order of close().
    ~RunObjects();

    const std::string& portName() const { return m_portName; }

    // Creates or joins the stop event (manual reset, not signalled). Throws std::runtime_error
    // when it can't be had.
    void openStopEvent();
    // Clears a stop request that outlived an earlier run (another process held the event when it
    // was set), and says so at level 1. Only a run that holds its port's claim may call it.
    void clearStaleStop();
    // Polls the stop event with a timeout of 0; false while it isn't open.
    bool stopRequested();
    // Sets the stop event. Async-signal-safe; nothing happens while it isn't open.
    void requestStop() noexcept;

    // Opens the clock and format blocks and writes the format block (the code, then the bit
    // depth). A capture run opens the clock first and declares the format block with 8 bytes; a
    // pattern run opens the format block first, with 4 bytes, and then sets the clock to 0.
    // Waits at most `lockTimeout` for a block's mutex. Throws std::runtime_error when a block
    // can't be had.
    void openBlocks(std::int32_t formatCode, std::int32_t bitDepth, std::chrono::milliseconds lockTimeout);
    // Rewrites the format block under its mutex; a block whose mutex another process keeps is
    // written without it, and a level-1 line says so.
    void writeFormat(std::int32_t formatCode, std::int32_t bitDepth);
    // Stores `start` in the clock block; a consumer that keeps the block's mutex beyond the lock
    // timeout costs the clock this update.
    void publishClock(std::int64_t start);

    // Opens the four channels in the order video, audio, teletext, closed captions, with the
    // sizes of the run's kind; `opened` hears of each success. Returns the first channel that
    // fails, and then leaves the ones before it open.
    std::optional<RunChannel> openChannels(std::int64_t pictureBytes, std::chrono::milliseconds lockTimeout,
                                           const std::function<void(RunChannel)>& opened = {});
    // After a failed open of `channel`: "<name>: <object>: <reason>" when the system refused one
    // of its objects; empty when the channel was declined before any object was touched.
    std::string failure(RunChannel channel) const;

    SimulcastWriter& writer(RunChannel channel) { return m_channels[index(channel)].writer; }
    const std::string& channelName(RunChannel channel) const { return m_channels[index(channel)].name; }

    // True once after each run of lost records of `channel`: the record now published is the
    // first after them, and carries a discontinuity.
    bool followsSkips(RunChannel channel);
    // Level-1 line for each channel that lost records since its last line, at most every ten
    // seconds per channel.
    void logSkips();

    // Closes closed captions, teletext, audio and video, in that order.
    void closeChannels();
    void closeStopEvent();
    // Closes the channels, then the clock block, the format block and the stop event.
    void close();

  private:
    struct Channel {
        SimulcastWriter writer;
        std::string name;
        std::uint64_t publishedSkips = 0;
        std::uint64_t loggedSkips = 0;
        std::chrono::steady_clock::time_point lastLog{};
    };
    using SharedBlock = system::ipc::v2::GenericSharedMemory;

    static std::size_t index(RunChannel channel) { return static_cast<std::size_t>(channel); }
    void openClockBlock();
    void openFormatBlock(std::uint32_t declaredBytes);

    RunKind m_kind;
    std::string m_portName;
    log::i_logger::v0::ILogger& m_logger;
    std::chrono::milliseconds m_lockTimeout{40};
    system::ipc::v2::NamedEvent m_stopEvent;
    std::unique_ptr<SharedBlock> m_clockBlock;
    std::unique_ptr<SharedBlock> m_formatBlock;
    std::array<Channel, 4> m_channels;
};

}  // namespace ovtx::simulcast::capture_records::v1
