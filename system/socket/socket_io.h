// Blocking reads and writes with a time limit on a connected socket, for the HTTP server's workers.
//
// The listener's event loop owns the sockets between requests; while a request is with a worker,
// the worker reads the body and writes the answer through these calls. Writes never raise
// SIGPIPE: a client that went away is a failed write, not the end of the process.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace ovtx::system::socket::v1 {

// Outcome of one call: bytes moved, and the errno-style error (0 when none; ETIMEDOUT when the
// client stayed silent past the limit). A read of 0 bytes with no error is the client's end.
struct IoResult {
    std::size_t bytes = 0;
    int error = 0;
};

IoResult receiveSome(int socket, void* buffer, std::size_t size, std::chrono::milliseconds timeout);
IoResult sendAll(int socket, const char* data, std::size_t size, std::chrono::milliseconds timeout);

// Ends both directions at once, so that a read or write blocked on the socket returns now. The
// descriptor stays open for its owner to close.
void abortSocket(int socket);

// The system's text for an error number.
std::string errorText(int error);

}  // namespace ovtx::system::socket::v1
