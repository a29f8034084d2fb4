// The reading end of a simulcast channel, the class a consumer process links to follow a channel.
//
// A reader copies chunks out of the ring one at a time, in ring order, under the channel's data
// mutex, and tells its caller when chunks were lost: `discontinuity` is set when a chunk's
// sequence number doesn't follow the previous one (always on the first read, after an overrun
// and after a writer's restart). It never changes anything in shared memory.
//
//   SimulcastReader reader;
//   while (!reader.open(name.c_str())) sleep(1s);         // until the writer has set it up
//   std::vector<std::uint8_t> buffer(reader.maxChunkBytes());
//   bool discontinuity = false, timedOut = false;
//   while (running) {
//       if (reader.read(buffer.data(), int(buffer.size()), 1000, discontinuity, timedOut)) use(buffer);
//       else if (timedOut) { ...the writer is idle or gone... }
//   }
//
// A reader follows its channel across restarts of the run: when a new run has made the channel's
// objects afresh, `read` lets the old ones go and attaches to the new ones by itself (within
// about 100 ms of waiting), starting with the first chunk written after that, and the first
// chunk it delivers then carries `discontinuity`. A chunk that the ring held before is never
// delivered. While the new run is not there yet, reads time out and `isOpen` is false.
//
// A reader is meant for one thread. Failures are results, nothing throws; `openFailure` tells
// why an open failed when the reason is not simply that no run is there yet.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulcast/simulcast_params.h"
#include "system/ipc/named_objects.h"

namespace ovtx::simulcast::simulcast_channel::v1 {

// A timeout that never expires.
inline constexpr std::uint32_t kWaitForever = 0xFFFFFFFFu;

class SimulcastReader {
  public:
    SimulcastReader() = default;
    SimulcastReader(const SimulcastReader&) = delete;
    SimulcastReader& operator=(const SimulcastReader&) = delete;
    // Closes, then closes the chunk event.
    ~SimulcastReader();

    // Attaches to the channel `name`. False at once when open or when `name` is null; false when
    // no writer has set the channel up yet (or is midway through doing so): retry later.
    bool open(const char* name);

    // Copies the first `numBytes` bytes of the next chunk to `buffer`, waiting up to `timeoutMs`
    // in all (kWaitForever: no limit). True when a chunk was delivered; `timedOut` tells a
    // timeout from other failures, such as `numBytes` negative or above maxChunkBytes (which a
    // reattachment to a run with smaller chunks may bring about: ask maxChunkBytes again). The
    // first read starts with the first chunk written after it.
    bool read(void* buffer, std::int32_t numBytes, std::uint32_t timeoutMs, bool& discontinuity,
              bool& timedOut);

    // Releases the channel's objects (also after a failed open) and stops following it. The
    // chunk event stays until the destructor.
    void close();

    // After a failed open: "<object>: <reason>" when the system refused one of the channel's
    // objects (as "..._MAP_PARAM: Permission denied" for a run shared with no group this user
    // has); empty when the channel is simply not there yet.
    const std::string& openFailure() const { return m_openFailure; }

    bool isOpen() const { return m_opened; }
    // Sizes from the parameter block; 0 when not open.
    std::int32_t numChunks() const;
    std::int32_t maxChunkBytes() const;
    // Sequence number of the last chunk delivered; -1 before the first.
    std::int64_t lastSequence() const { return m_lastSequence; }

  private:
    using NamedMapping = system::ipc::v2::NamedMapping;
    using MappedView = system::ipc::v2::MappedView;
    using NamedMutex = system::ipc::v2::NamedMutex;
    using NamedEvent = system::ipc::v2::NamedEvent;
    using WaitResult = system::ipc::v2::WaitResult;

    enum class Step { Delivered, TimedOut, Failed };

    bool openUnderParameterMutex(const char* name);
    bool openDataRegion(const char* name);
    bool openObjects(const char* name);
    void closeObjects();
    template <typename Object>
    bool check(const Object& object);
    // One attempt at a chunk, each wait bounded by `timeoutMs`.
    Step readOnce(void* buffer, std::int32_t numBytes, std::uint32_t timeoutMs, bool& discontinuity);
    // Whether a new run has made the channel's objects afresh since this reader opened.
    bool replaced() const;
    // Lets the old objects go and opens the current ones; false while the new run isn't there.
    bool reattach();
    const SimulcastParams* params() const { return static_cast<const SimulcastParams*>(m_paramView.data()); }
    // Each wait is one slice of a read, never without a limit.
    WaitResult lockData(std::uint32_t timeoutMs);
    WaitResult waitForChunk(std::uint32_t timeoutMs);
    std::int32_t blockWriteIndex() const;

    bool m_opened = false;
    bool m_started = false;
    NamedMapping m_paramMapping;
    MappedView m_paramView;
    NamedMutex m_paramMutex;
    NamedMapping m_dataMapping;
    MappedView m_dataView;
    NamedMutex m_dataMutex;
    std::int32_t m_readIndex = 0;
    const std::uint64_t* m_sequenceTable = nullptr;
    std::int64_t m_lastSequence = -1;
    NamedEvent m_chunkEvent;
    std::vector<std::uint8_t*> m_chunks;
    std::int32_t m_numChunks = 0;    // as laid out at open
    std::int32_t m_chunkStride = 0;  // as laid out at open; bounds every copy
    std::string m_name;              // the channel followed, from the first successful open
    bool m_following = false;        // opened once and not closed by the caller
    bool m_reattached = false;       // the next chunk delivered follows a new run's start
    std::string m_openFailure;
};

}  // namespace ovtx::simulcast::simulcast_channel::v1
