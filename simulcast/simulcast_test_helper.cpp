// A process that drives a simulcast writer or reader on command, for the channel tests.
//
// One command per line on standard input, one answer line on standard output:
//   wopen NAME CHUNKS BYTES   open the writer                       -> ok | fail
//   write COUNT               commit COUNT chunks, each starting with its sequence number
//                                                                    -> ok | fail
//   begin                     take a chunk and half fill it, commit nothing -> begun | fail
//   wclose                    close the writer                       -> ok
//   partial NAME CHUNKS BYTES set up the parameter block as a writer's first steps do, and stop
//                             before the data objects                -> ok | fail
//   ropen NAME                open the reader                       -> ok | fail
//   read BYTES TIMEOUT_MS     read one chunk -> ok SEQUENCE DISCONTINUITY PAYLOAD | timeout | fail
//   rclose                    close the reader                       -> ok
//   hold MUTEX                join the named mutex MUTEX and lock it, as a reader copying a
//                             chunk does                             -> ok | fail
//   release                   unlock and close it                    -> ok | fail
//   exit                      leave with exit code 0
#include <cstdint>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "simulcast/simulcast_params.h"
#include "simulcast/simulcast_reader.h"
#include "simulcast/simulcast_writer.h"
#include "system/ipc/named_objects.h"

namespace {

using namespace ovtx::simulcast::simulcast_channel::v1;
namespace ipc = ovtx::system::ipc::v2;

// The objects of a writer stopped after its parameter block: nothing of the data side exists.
struct PartialWriter {
    ipc::NamedMapping mapping;
    ipc::MappedView view;
    ipc::NamedMutex mutex;

    bool open(const std::string& name, std::int32_t numChunks, std::int32_t maxChunkBytes) {
        mapping = ipc::NamedMapping::createOrJoin(channelObjectName(name, kMapParamSuffix), kParamBlockBytes);
        view = ipc::MappedView::map(mapping, kParamBlockBytes, ipc::MappedView::Access::ReadWrite);
        mutex = ipc::NamedMutex::createOrJoin(channelObjectName(name, kMutexParamSuffix));
        if (!view.valid() || !mutex.valid() || !mutex.lock()) {
            return false;
        }
        auto* block = static_cast<SimulcastParams*>(view.data());
        std::memcpy(block->name, name.data(), std::min(name.size(), kMaxChannelNameBytes));
        block->numChunks = numChunks;
        block->maxChunkBytes = maxChunkBytes;
        block->chunkStride = chunkStrideFor(maxChunkBytes);
        return mutex.unlock();
    }
};

class Helper {
  public:
    std::string run(const std::string& line) {
        std::istringstream in(line);
        std::string command;
        in >> command;
        if (command == "wopen" || command == "partial") {
            std::string name;
            std::int32_t chunks = 0;
            std::int32_t bytes = 0;
            in >> name >> chunks >> bytes;
            m_chunkBytes = bytes;
            const bool ok = command == "wopen" ? m_writer.open(chunks, bytes, name.c_str())
                                               : m_partial.open(name, chunks, bytes);
            return ok ? "ok" : "fail";
        }
        if (command == "write") {
            int count = 0;
            in >> count;
            return write(count) ? "ok" : "fail";
        }
        if (command == "begin") {
            auto* chunk = static_cast<std::uint8_t*>(m_writer.beginChunk());
            if (chunk == nullptr) {
                return "fail";
            }
            std::memset(chunk, 0xAB, static_cast<std::size_t>(m_chunkBytes / 2));
            return "begun";
        }
        if (command == "wclose") {
            m_writer.close();
            return "ok";
        }
        if (command == "ropen") {
            std::string name;
            in >> name;
            return m_reader.open(name.c_str()) ? "ok" : "fail";
        }
        if (command == "read") {
            std::int32_t bytes = 0;
            std::uint32_t timeoutMs = 0;
            in >> bytes >> timeoutMs;
            return read(bytes, timeoutMs);
        }
        if (command == "rclose") {
            m_reader.close();
            return "ok";
        }
        if (command == "hold") {
            std::string name;
            in >> name;
            m_held = ipc::NamedMutex::createOrJoin(name);
            return m_held.valid() && m_held.lock() ? "ok" : "fail";
        }
        if (command == "release") {
            return m_held.unlock() && m_held.close() ? "ok" : "fail";
        }
        return "unknown";
    }

  private:
    bool write(int count) {
        for (int i = 0; i < count; ++i) {
            const std::uint64_t sequence = m_writer.nextSequence();
            auto* chunk = static_cast<std::uint8_t*>(m_writer.beginChunk());
            if (chunk == nullptr) {
                return false;
            }
            std::memcpy(chunk, &sequence, sizeof sequence);
            m_writer.commitChunk();
        }
        return true;
    }

    std::string read(std::int32_t bytes, std::uint32_t timeoutMs) {
        m_buffer.assign(static_cast<std::size_t>(bytes > 0 ? bytes : 0) + sizeof(std::uint64_t), 0);
        bool discontinuity = false;
        bool timedOut = false;
        if (!m_reader.read(m_buffer.data(), bytes, timeoutMs, discontinuity, timedOut)) {
            return timedOut ? "timeout" : "fail";
        }
        std::uint64_t payload = 0;
        std::memcpy(&payload, m_buffer.data(), sizeof payload);
        return "ok " + std::to_string(m_reader.lastSequence()) + " " + (discontinuity ? "1" : "0") + " " +
               std::to_string(payload);
    }

    SimulcastWriter m_writer;
    PartialWriter m_partial;
    SimulcastReader m_reader;
    ipc::NamedMutex m_held;
    std::int32_t m_chunkBytes = 0;
    std::vector<std::uint8_t> m_buffer;
};

}  // namespace

int main() {
    Helper helper;
    std::string line;
    while (std::getline(std::cin, line) && line != "exit") {
        std::cout << helper.run(line) << std::endl;
    }
    return 0;
}
