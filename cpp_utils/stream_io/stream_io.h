// Byte sinks and byte sources.
//
// `IStreamSender` and `IStreamReceiver` carry raw bytes between the abstract variables and whoever
// reads or writes them (data objects, raw REST values). A sender may take fewer bytes than offered,
// so every caller loops until all are taken; a receiver returns 0 at the end of its stream:
//
//   std::size_t sent = 0;
//   while (sent < size) sent += sender.send(bytes + sent, size - sent);
#pragma once

#include <cstddef>
#include <cstdint>

namespace ovtx::cpp_utils::stream_io::v1 {

// A sink of bytes.
struct IStreamSender {
    // Takes up to `size` bytes and returns how many it took.
    virtual std::size_t send(const std::uint8_t* bytes, std::size_t size) = 0;
    // Ends the stream. A sink that stores what it took only at the end (a string variable) stores
    // it here and throws what the store throws; dropping a sink that was not closed stores it all
    // the same, but a failure then goes unseen. Closing twice does nothing more.
    virtual void close() {}
    virtual ~IStreamSender() = default;
};

// A source of bytes.
struct IStreamReceiver {
    // Fills up to `size` bytes of `buffer` and returns how many it delivered, 0 at the end.
    virtual std::size_t receive(std::uint8_t* buffer, std::size_t size) = 0;
    virtual ~IStreamReceiver() = default;
};

}  // namespace ovtx::cpp_utils::stream_io::v1
