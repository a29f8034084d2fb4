#include "system/socket/socket_io.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>

namespace ovtx::system::socket::v1 {

namespace {

// Waits for `events` on the socket; 0 when it is ready, else the error.
int waitFor(int socket, short events, std::chrono::milliseconds timeout) {
    pollfd entry{socket, events, 0};
    while (true) {
        const int ready = ::poll(&entry, 1, static_cast<int>(timeout.count()));
        if (ready > 0) {
            return 0;
        }
        if (ready == 0) {
            return ETIMEDOUT;
        }
        if (errno != EINTR) {
            return errno;
        }
    }
}

}  // namespace

IoResult receiveSome(int socket, void* buffer, std::size_t size, std::chrono::milliseconds timeout) {
    while (true) {
        const ssize_t got = ::recv(socket, buffer, size, MSG_DONTWAIT);
        if (got >= 0) {
            return {static_cast<std::size_t>(got), 0};
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            return {0, errno};
        }
        if (const int error = waitFor(socket, POLLIN, timeout); error != 0) {
            return {0, error};
        }
    }
}

IoResult sendAll(int socket, const char* data, std::size_t size, std::chrono::milliseconds timeout) {
    std::size_t sent = 0;
    while (sent < size) {
        const ssize_t done = ::send(socket, data + sent, size - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (done >= 0) {
            sent += static_cast<std::size_t>(done);
            continue;
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            return {sent, errno};
        }
        if (const int error = waitFor(socket, POLLOUT, timeout); error != 0) {
            return {sent, error};
        }
    }
    return {sent, 0};
}

void abortSocket(int socket) {
    ::shutdown(socket, SHUT_RDWR);
}

std::string errorText(int error) {
    return std::system_category().message(error);
}

}  // namespace ovtx::system::socket::v1
