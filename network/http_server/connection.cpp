#include "network/http_server/connection.h"

#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/read.hpp>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "network/http_server/wire_format.h"
#include "system/socket/socket_io.h"

namespace ovtx::network::http_server::v3::detail {

using namespace system::socket::v1;

namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;

constexpr std::size_t kOutputFlushSize = 16 * 1024;
constexpr std::size_t kMaxDrainedBody = 1024 * 1024;
constexpr std::chrono::milliseconds kLingerTime{2000};

// Beast's blocking reads over a socket, one time limit for each read.
class TimedReader {
  public:
    TimedReader(int socket, std::chrono::milliseconds timeout) : m_socket(socket), m_timeout(timeout) {}

    template <typename Buffers>
    std::size_t read_some(const Buffers& buffers, error_code& error) {
        const asio::mutable_buffer target = *asio::buffer_sequence_begin(buffers);
        const IoResult result = receiveSome(m_socket, target.data(), target.size(), m_timeout);
        if (result.error != 0) {
            error = error_code(result.error, boost::system::system_category());
        } else if (result.bytes == 0 && target.size() > 0) {
            error = asio::error::eof;
        } else {
            error = {};
        }
        return result.bytes;
    }

    template <typename Buffers>
    std::size_t read_some(const Buffers& buffers) {
        error_code error;
        const std::size_t got = read_some(buffers, error);
        if (error) {
            throw boost::system::system_error(error);
        }
        return got;
    }

  private:
    int m_socket;
    std::chrono::milliseconds m_timeout;
};

bool isParseError(const error_code& error) {
    return error.category() == http::make_error_code(http::error::bad_target).category();
}

}  // namespace

Connection::Connection(asio::ip::tcp::socket socket, ConnectionOwner& owner)
    : m_socket(std::move(socket)), m_timer(m_socket.get_executor()), m_owner(owner) {}

void Connection::start() {
    readHeaders();
}

bool Connection::requestHasBody() const {
    return m_parser->chunked() || (m_parser->content_length() && *m_parser->content_length() > 0);
}

void Connection::readHeaders() {
    m_state = State::Reading;
    m_parser.emplace();
    m_parser->header_limit(static_cast<std::uint32_t>(m_owner.limits().maxHeaderBytes));
    // No limit; the handler decides how much it reads (Boost 1.74 mistakes boost::none for 0).
    m_parser->body_limit(std::numeric_limits<std::uint64_t>::max());
    m_answerStarted = false;
    armTimer(m_owner.limits().headerTimeout);
    http::async_read_header(
        m_socket, m_buffer, *m_parser,
        [self = shared_from_this()](const error_code& error, std::size_t) { self->onHeaders(error); });
}

void Connection::onHeaders(const error_code& error) {
    if (m_state != State::Reading) {
        return;
    }
    ++m_waitId;
    m_timer.cancel();
    if (error == http::error::header_limit) {
        m_owner.onOversizedHeaders();
        answerFromListener(plainAnswer(431, "Request Header Fields Too Large", true), false);
    } else if (isParseError(error) && error != http::error::end_of_stream &&
               error != http::error::partial_message) {
        answerFromListener(plainAnswer(400, "Bad Request", true), false);
    } else if (error) {
        closeNow();
    } else {
        m_keepAlive = m_parser->get().keep_alive();
        m_owner.onRequest(shared_from_this());
    }
}

void Connection::armTimer(std::chrono::milliseconds timeout) {
    const std::uint64_t waitId = ++m_waitId;
    m_timer.expires_after(timeout);
    m_timer.async_wait([self = shared_from_this(), waitId](const error_code& error) {
        if (!error && waitId == self->m_waitId && self->m_state != State::Working) {
            self->closeNow();
        }
    });
}

void Connection::answerFromListener(std::string bytes, bool keepOpen) {
    m_state = State::Writing;
    armTimer(m_owner.limits().ioTimeout);
    auto answer = std::make_shared<std::string>(std::move(bytes));
    asio::async_write(m_socket, asio::buffer(*answer),
                      [self = shared_from_this(), answer, keepOpen](const error_code& error, std::size_t) {
                          if (self->m_state != State::Writing) {
                              return;
                          }
                          if (error) {
                              self->closeNow();
                          } else if (keepOpen) {
                              self->readHeaders();
                          } else {
                              self->closeGracefully();
                          }
                      });
}

// The client may still be sending (a body, pipelined requests): closing at once could reset the
// connection before it has read the answer, so the rest is read and dropped for a while first.
void Connection::closeGracefully() {
    m_state = State::Lingering;
    error_code ignored;
    m_socket.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
    armTimer(std::min(kLingerTime, m_owner.limits().headerTimeout));
    m_scratch.resize(4096);
    lingerRead();
}

void Connection::lingerRead() {
    m_socket.async_read_some(asio::buffer(m_scratch),
                             [self = shared_from_this()](const error_code& error, std::size_t) {
                                 if (self->m_state != State::Lingering) {
                                     return;
                                 }
                                 if (error) {
                                     self->closeNow();
                                 } else {
                                     self->lingerRead();
                                 }
                             });
}

void Connection::closeNow() {
    if (m_state == State::Closed) {
        return;
    }
    m_state = State::Closed;
    ++m_waitId;
    m_timer.cancel();
    error_code ignored;
    m_socket.close(ignored);
    m_owner.onClosed(this);
}

void Connection::abort() {
    if (m_state == State::Working) {
        abortSocket(nativeSocket());
    } else {
        closeNow();
    }
}

void Connection::sendContinueIfExpected() {
    if (m_answerStarted) {
        return;
    }
    m_answerStarted = true;
    const auto expect = m_parser->get().find(http::field::expect);
    if (expect != m_parser->get().end() && boost::beast::iequals(expect->value(), "100-continue") &&
        m_buffer.size() == 0) {
        write("HTTP/1.1 100 Continue\r\n\r\n");
        flush();
    }
}

std::size_t Connection::readBody(std::uint8_t* buffer, std::size_t size) {
    if (size == 0 || m_parser->is_done()) {
        return 0;
    }
    if (m_broken) {
        throw Exception("incomplete http request");
    }
    try {
        sendContinueIfExpected();
    } catch (const std::exception&) {
        throw Exception("incomplete http request");
    }
    TimedReader reader(nativeSocket(), m_owner.limits().ioTimeout);
    auto& body = m_parser->get().body();
    while (true) {
        body.data = buffer;
        body.size = size;
        error_code error;
        http::read_some(reader, m_buffer, *m_parser, error);
        if (error == http::error::need_buffer) {
            error = {};
        }
        if (error) {
            m_broken = true;
            throw Exception("incomplete http request");
        }
        const std::size_t got = size - body.size;
        if (got > 0 || m_parser->is_done()) {
            return got;
        }
    }
}

void Connection::write(std::string_view bytes) {
    m_answerStarted = true;
    m_output.append(bytes);
    if (m_output.size() >= kOutputFlushSize) {
        flush();
    }
}

void Connection::flush() {
    if (m_output.empty()) {
        return;
    }
    const IoResult result =
        m_broken ? IoResult{0, EPIPE}
                 : sendAll(nativeSocket(), m_output.data(), m_output.size(), m_owner.limits().ioTimeout);
    m_output.clear();
    if (result.error != 0) {
        m_broken = true;
        throw Exception("Could not send Http request answer: " + errorText(result.error));
    }
}

bool Connection::drainBody() {
    std::uint8_t scratch[16 * 1024];
    std::size_t drained = 0;
    try {
        while (drained <= kMaxDrainedBody) {
            const std::size_t got = readBody(scratch, sizeof scratch);
            if (got == 0) {
                return true;
            }
            drained += got;
        }
    } catch (const std::exception&) {
    }
    return false;
}

void Connection::endExchange(bool answerComplete) {
    bool reuse = answerComplete && !m_broken && m_keepAlive && !m_owner.stopping();
    if (reuse && !m_parser->is_done()) {
        reuse = drainBody();
    }
    m_output.clear();
    asio::post(m_socket.get_executor(), [self = shared_from_this(), reuse] {
        if (self->m_state != State::Working) {
            return;
        }
        if (reuse) {
            self->readHeaders();
        } else {
            self->closeGracefully();
        }
    });
}

}  // namespace ovtx::network::http_server::v3::detail
