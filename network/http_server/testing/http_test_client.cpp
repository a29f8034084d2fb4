#include "network/http_server/testing/http_test_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include <cerrno>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace ovtx::network::http_server::v3::testing {

namespace http = boost::beast::http;

HttpTestClient::HttpTestClient(std::uint16_t port, std::chrono::milliseconds timeout) {
    m_socket = ::socket(AF_INET, SOCK_STREAM, 0);
    if (m_socket < 0) {
        throw std::runtime_error("socket: " + std::string(std::strerror(errno)));
    }
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(timeout.count() / 1000);
    limit.tv_usec = static_cast<suseconds_t>((timeout.count() % 1000) * 1000);
    ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        close();
        throw std::runtime_error("connect: " + std::string(std::strerror(error)));
    }
}

HttpTestClient::~HttpTestClient() {
    close();
}

void HttpTestClient::send(const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t done = ::send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (done < 0) {
            throw std::runtime_error("send: " + std::string(std::strerror(errno)));
        }
        sent += static_cast<std::size_t>(done);
    }
}

bool HttpTestClient::receiveMore() {
    char buffer[16384];
    const ssize_t got = ::recv(m_socket, buffer, sizeof buffer, 0);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        throw std::runtime_error("no answer in time");
    }
    if (got <= 0) {
        return false;
    }
    m_pending.append(buffer, static_cast<std::size_t>(got));
    return true;
}

std::string HttpTestClient::readAnswer(bool bodyless) {
    http::response_parser<http::string_body> parser;
    parser.eager(true);
    parser.skip(bodyless);
    parser.body_limit(std::numeric_limits<std::uint64_t>::max());
    std::size_t used = 0;
    while (!parser.is_done()) {
        boost::system::error_code error;
        if (used < m_pending.size()) {
            used += parser.put(boost::asio::buffer(m_pending.data() + used, m_pending.size() - used), error);
            if (error && error != http::error::need_more) {
                throw std::runtime_error("malformed answer: " + error.message() + ": " + m_pending);
            }
            if (parser.is_done() || (!error && used < m_pending.size())) {
                continue;
            }
        }
        if (!receiveMore()) {
            if (used == 0) {
                throw std::runtime_error("connection ended before an answer");
            }
            parser.put_eof(error);
            if (error || !parser.is_done()) {
                throw std::runtime_error("connection ended before the answer: " + m_pending);
            }
        }
    }
    std::string answer = m_pending.substr(0, used);
    m_pending.erase(0, used);
    return answer;
}

bool HttpTestClient::closedByServer() {
    try {
        while (receiveMore()) {
        }
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

void HttpTestClient::shutdownSend() {
    ::shutdown(m_socket, SHUT_WR);
}

void HttpTestClient::close() {
    if (m_socket >= 0) {
        ::close(m_socket);
        m_socket = -1;
    }
}

std::string exchange(std::uint16_t port, const std::string& request) {
    HttpTestClient client(port);
    client.send(request);
    return client.readAnswer();
}

}  // namespace ovtx::network::http_server::v3::testing
