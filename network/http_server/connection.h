// One client connection of the server.
//
// Between requests the connection belongs to the listener's event loop, which reads the next
// request's headers within the header time limit. Once a request is accepted it belongs to one
// worker, which reads the body and writes the answer with blocking calls, then hands the
// connection back (`endExchange`) for the next request, or to be closed.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/parser.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "network/http_server/requests_source.h"

namespace ovtx::network::http_server::v3::detail {

class Connection;

// What a connection needs from its server. Called on the listener's thread.
struct ConnectionOwner {
    virtual void onRequest(const std::shared_ptr<Connection>& connection) = 0;
    virtual void onOversizedHeaders() = 0;
    virtual void onClosed(Connection* connection) = 0;
    virtual const ServerLimits& limits() const = 0;
    virtual bool stopping() const = 0;
    virtual ~ConnectionOwner() = default;
};

class Connection : public std::enable_shared_from_this<Connection> {
  public:
    using Parser = boost::beast::http::request_parser<boost::beast::http::buffer_body>;

    Connection(boost::asio::ip::tcp::socket socket, ConnectionOwner& owner);

    // Listener's thread.
    void start();
    const Parser::value_type& requestHead() const { return m_parser->get(); }
    // True when the request has a body to read.
    bool requestHasBody() const;
    bool keepAlive() const { return m_keepAlive; }
    bool clientTakesChunks() const { return m_parser->get().version() >= 11; }
    // Sends an answer of the server's own, then reads the next request or closes.
    void answerFromListener(std::string bytes, bool keepOpen);
    // The request goes to a worker: the listener leaves the socket alone until `endExchange`.
    void handOver() { m_state = State::Working; }
    // At stop: a connection with a worker has its socket shut down, any other is closed.
    void abort();
    void closeNow();

    // Worker's thread, between `handOver` and `endExchange`.
    // Reads body bytes; 0 at the end of the body. Throws Exception "incomplete http request".
    std::size_t readBody(std::uint8_t* buffer, std::size_t size);
    // Queues answer bytes; they leave at `flush` or when enough have gathered.
    void write(std::string_view bytes);
    // Throws Exception "Could not send Http request answer: <system text>".
    void flush();
    // The answer says the connection ends after it.
    void closeAfterAnswer() { m_keepAlive = false; }
    bool ownerStopping() const { return m_owner.stopping(); }
    // Hands the connection back: read the next request when the answer went out whole and the
    // connection may stay, else close it.
    void endExchange(bool answerComplete);

  private:
    enum class State { Reading, Writing, Working, Lingering, Closed };

    void readHeaders();
    void onHeaders(const boost::system::error_code& error);
    void armTimer(std::chrono::milliseconds timeout);
    void closeGracefully();
    void lingerRead();
    void sendContinueIfExpected();
    bool drainBody();
    int nativeSocket() { return m_socket.native_handle(); }

    boost::asio::ip::tcp::socket m_socket;
    boost::asio::steady_timer m_timer;
    ConnectionOwner& m_owner;
    boost::beast::flat_buffer m_buffer;
    std::optional<Parser> m_parser;
    State m_state = State::Reading;
    std::uint64_t m_waitId = 0;  // the timer closes the connection only for the wait it was set for
    bool m_keepAlive = true;
    bool m_broken = false;
    bool m_answerStarted = false;
    std::string m_output;
    std::string m_scratch;
};

}  // namespace ovtx::network::http_server::v3::detail
