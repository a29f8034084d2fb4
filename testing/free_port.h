// A free TCP port on the loopback address, for a test that must tell a server which port to take
// before it starts (the daemon and nginx cannot report a port they chose themselves).
//
//   const std::uint16_t port = freeLoopbackPort();
//   options.environment["SDI_TAP_HTTP_BASE_URL"] = "http://127.0.0.1:" + std::to_string(port);
//
// The port is bound to port 0, read back and released, so another process may take it in between;
// the kernel hands out ports in turn, which makes that rare.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>

namespace ovtx::test_support::v1 {

inline std::uint16_t freeLoopbackPort() {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    if (socket < 0) {
        throw std::runtime_error("no socket for a free port");
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    const bool bound = ::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                       ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    ::close(socket);
    if (!bound) {
        throw std::runtime_error("no free loopback port");
    }
    return ntohs(address.sin_port);
}

}  // namespace ovtx::test_support::v1
