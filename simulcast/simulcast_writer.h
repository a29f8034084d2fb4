// The writing end of a simulcast channel: a one-writer, many-readers ring of fixed-size chunks.
//
// The writer never waits for a reader to catch up: it wraps around and overwrites the oldest
// chunk. A chunk is filled in place between `beginChunk` and `commitChunk` with the channel's data
// mutex held, and the commit numbers it, moves the write index and pulses the chunk event:
//
//   SimulcastWriter writer;
//   if (!writer.open(32, 1024, name.c_str())) { ...report "cannot open simulcast"... }
//   if (auto* chunk = static_cast<std::uint8_t*>(writer.beginChunk())) {
//       fill(chunk);            // at most maxChunkBytes, no return in between
//       writer.commitChunk();
//   }
//
// The writer never waits on a reader without bound either: a reader that keeps the data mutex
// longer than the lock timeout (a process stopped or hung while it copies a chunk) costs that
// channel the chunk, not the writer its pace. `beginChunk` then yields null, the sequence number
// of the skipped chunk is left out so that readers see a discontinuity at the next one, and while
// the reader keeps the mutex each further chunk is tried without waiting:
//
//   writer.setLockTimeout(std::chrono::milliseconds(40));   // about one frame period
//   if (!writer.beginChunk()) { ...skipped; writer.skippedChunks() counts them... }
//
// Each open makes the channel's objects afresh, so that a run never inherits a previous run's
// sizes or records: readers still attached to the old objects keep them, see no more chunks, and
// the reader reattaches to the new ones by itself. Only one thread of one process may write a
// channel. Failures are results, nothing throws; `failedObject` and `error` tell why an open
// failed.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "simulcast/simulcast_params.h"
#include "system/ipc/named_objects.h"

namespace ovtx::simulcast::simulcast_channel::v1 {

class SimulcastWriter {
  public:
    SimulcastWriter() = default;
    SimulcastWriter(const SimulcastWriter&) = delete;
    SimulcastWriter& operator=(const SimulcastWriter&) = delete;
    // Closes if open, then closes the chunk event.
    ~SimulcastWriter();

    // Creates the channel's objects afresh (see above) with a clear ring. False, with no
    // effect, when the writer is open already or `name` is null; false as well when a step
    // fails, among them an odd `numChunks`, which leaves the chunks off their 16-byte boundary,
    // and sizes whose ring the layout can't describe (error() 0 then).
    bool open(std::int32_t numChunks, std::int32_t maxChunkBytes, const char* name);

    // How long beginChunk waits for a reader to release the data mutex; 40 ms unless set.
    void setLockTimeout(std::chrono::milliseconds timeout) { m_lockTimeout = timeout; }

    // Takes the data mutex and yields the chunk to fill; null when not open, and when a reader
    // kept the mutex beyond the lock timeout (the chunk is skipped, see above).
    void* beginChunk();

    // Numbers the chunk taken by `beginChunk`, moves the write index, releases the data mutex and
    // pulses the chunk event. No effect when not open or when no chunk was taken.
    void commitChunk();

    // Releases the channel's objects; the chunk event goes first, whatever the rest does.
    void close();

    bool isOpen() const { return m_opened; }
    // Sequence number that the next committed chunk carries; 2 for a fresh writer, kept by open.
    std::uint64_t nextSequence() const { return m_nextSequence; }
    // Chunks skipped because a reader kept the data mutex, since the writer was made.
    std::uint64_t skippedChunks() const { return m_skippedChunks; }

    // After a failed open: the named object that could not be had and the system's errno; empty
    // and 0 when the open failed before touching any object (sizes, or already open).
    const std::string& failedObject() const { return m_failedObject; }
    int error() const { return m_error; }

  private:
    using NamedMapping = system::ipc::v2::NamedMapping;
    using MappedView = system::ipc::v2::MappedView;
    using NamedMutex = system::ipc::v2::NamedMutex;
    using NamedEvent = system::ipc::v2::NamedEvent;

    bool openParameterBlock(std::int32_t numChunks, std::int32_t maxChunkBytes, const char* name);
    bool openDataRegion(std::int32_t numChunks, std::int32_t chunkStride, const char* name);
    // Records the first failure of an open: the object's name and the errno it carries.
    bool fail(const std::string& object, int error);
    template <typename Object>
    bool check(const Object& object, const std::string& name);
    SimulcastParams* params() const { return static_cast<SimulcastParams*>(m_paramView.data()); }

    bool m_opened = false;
    NamedMapping m_paramMapping;
    MappedView m_paramView;
    NamedMutex m_paramMutex;
    NamedMapping m_dataMapping;
    MappedView m_dataView;
    NamedMutex m_dataMutex;
    NamedEvent m_chunkEvent;
    std::uint64_t* m_sequenceTable = nullptr;
    std::uint64_t m_nextSequence = 2;
    std::vector<std::uint8_t*> m_chunks;
    std::int32_t m_numChunks = 0;
    std::int32_t m_writeIndex = 0;  // mirrored to the block's writeIndex under the data mutex
    bool m_chunkTaken = false;      // beginChunk holds the data mutex
    std::chrono::milliseconds m_lockTimeout{40};
    bool m_readerHolds = false;  // the last beginChunk timed out: try without waiting
    std::uint64_t m_skippedChunks = 0;
    std::string m_failedObject;
    int m_error = 0;
};

}  // namespace ovtx::simulcast::simulcast_channel::v1
