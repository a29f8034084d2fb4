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
// Only one thread of one process may write a channel. Failures are results, nothing throws.
#pragma once

#include <cstdint>
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

    // Creates or joins the channel's objects and clears its ring. False, with no effect, when
    // the writer is open already or `name` is null; false as well when a step fails, among them
    // an odd `numChunks`, which leaves the chunks off their 16-byte boundary.
    bool open(std::int32_t numChunks, std::int32_t maxChunkBytes, const char* name);

    // Takes the data mutex (no timeout) and yields the chunk to fill; null when not open.
    void* beginChunk();

    // Numbers the chunk taken by `beginChunk`, moves the write index, releases the data mutex and
    // pulses the chunk event. No effect when not open or when no chunk was taken.
    void commitChunk();

    // Releases the channel's objects; the chunk event goes first, whatever the rest does.
    void close();

    bool isOpen() const { return m_opened; }
    // Sequence number that the next committed chunk carries; 2 for a fresh writer, kept by open.
    std::uint64_t nextSequence() const { return m_nextSequence; }

  private:
    using NamedMapping = system::ipc::v2::NamedMapping;
    using MappedView = system::ipc::v2::MappedView;
    using NamedMutex = system::ipc::v2::NamedMutex;
    using NamedEvent = system::ipc::v2::NamedEvent;

    bool openParameterBlock(std::int32_t numChunks, std::int32_t maxChunkBytes, const char* name);
    bool openDataRegion(std::int32_t numChunks, std::int32_t chunkStride, const char* name);
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
};

}  // namespace ovtx::simulcast::simulcast_channel::v1
