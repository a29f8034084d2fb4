// Free TCP ports on the loopback address, for a test that must tell a server which port to take
// before it starts (the daemon and nginx cannot report a port they chose themselves).
//
//   const std::uint16_t port = freeLoopbackPort();
//   options.environment["SDI_TAP_HTTP_BASE_URL"] = "http://127.0.0.1:" + std::to_string(port);
//   const std::vector<std::uint16_t> three = freeLoopbackPorts(3);   // three different ports
//
// Each port is bound to port 0, read back and released, so another process may take it in
// between; the kernel hands out ports in turn, which makes that rare.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace ovtx::test_support::v1 {

// `count` different ports: all are held at once before any is released.
inline std::vector<std::uint16_t> freeLoopbackPorts(std::size_t count) {
    std::vector<int> sockets;
    std::vector<std::uint16_t> ports;
    bool failed = false;
    for (std::size_t index = 0; index < count && !failed; ++index) {
        const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        failed = socket < 0 || ::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
                 ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0;
        if (socket >= 0) {
            sockets.push_back(socket);
        }
        ports.push_back(ntohs(address.sin_port));
    }
    for (int socket : sockets) {
        ::close(socket);
    }
    if (failed) {
        throw std::runtime_error("no free loopback port");
    }
    return ports;
}

inline std::uint16_t freeLoopbackPort() {
    return freeLoopbackPorts(1).front();
}

}  // namespace ovtx::test_support::v1
