// A raw HTTP client for tests: sends bytes as given and reads answers back byte for byte.
//
//   HttpTestClient client(port);
//   client.send("GET /svc/a HTTP/1.1\r\nHost: x\r\n\r\n");
//   const std::string answer = client.readAnswer();   // status line to the last body byte
//
// Every read gives up after a few seconds and throws, so a server that never answers fails the
// test instead of hanging it.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace ovtx::network::http_server::v3::testing {

class HttpTestClient {
  public:
    explicit HttpTestClient(std::uint16_t port, std::chrono::milliseconds timeout = std::chrono::seconds(10));
    ~HttpTestClient();

    HttpTestClient(const HttpTestClient&) = delete;
    HttpTestClient& operator=(const HttpTestClient&) = delete;

    void send(const std::string& bytes);
    // The next whole answer as it arrived; for the answer to a HEAD request pass `bodyless`.
    // Throws when the connection ends or stays silent first.
    std::string readAnswer(bool bodyless = false);
    // True when the server closes the connection (reading and dropping anything that comes
    // first) before the timeout.
    bool closedByServer();
    // Ends the client's sending side; the connection stays open for reading.
    void shutdownSend();
    void close();

  private:
    // Reads more into m_pending; false at the end of the connection.
    bool receiveMore();

    int m_socket = -1;
    std::string m_pending;
};

// One request on a new connection: the whole answer.
std::string exchange(std::uint16_t port, const std::string& request);

}  // namespace ovtx::network::http_server::v3::testing
