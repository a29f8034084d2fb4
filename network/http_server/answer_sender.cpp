#include "network/http_server/answer_sender.h"

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <string_view>

#include "network/http_server/wire_format.h"
#include "system/socket/socket_io.h"

namespace ovtx::network::http_server::v3::detail {

using namespace system::socket::v1;

namespace {

using http_server_request_handler::v0::HttpHeader;
namespace ids = http_server_request_handler::v0;

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kLastChunk = "0\r\n\r\n";

std::optional<std::uint64_t> declaredLength(const HttpHeader& header) {
    const auto found = header.knownHeaders.find(ids::HttpHeaderContentLength);
    if (found == header.knownHeaders.end()) {
        return std::nullopt;
    }
    try {
        return std::stoull(found->second);
    } catch (const std::exception&) {
        return std::uint64_t{0};
    }
}

bool asksToClose(const HttpHeader& header) {
    const auto found = header.knownHeaders.find(ids::HttpHeaderConnection);
    return found != header.knownHeaders.end() && found->second.find("close") != std::string::npos;
}

}  // namespace

void HttpSender::begin(std::optional<std::uint64_t> length, bool chunked) {
    m_started = true;
    m_declaredLength = length;
    m_noChunking = !chunked;
}

std::size_t HttpSender::send(const std::uint8_t* bytes, std::size_t size) {
    if (!m_started) {
        throw Exception("Could not send Http request answer: " + errorText(EINVAL));
    }
    if (m_bodyless || size == 0) {
        return size;
    }
    const std::string_view data(reinterpret_cast<const char*>(bytes), size);
    if (m_noChunking) {
        m_connection.write(data);
    } else {
        char length[24];
        const int digits = std::snprintf(length, sizeof length, "%zx\r\n", size);
        m_connection.write(std::string_view(length, static_cast<std::size_t>(digits)));
        m_connection.write(data);
        m_connection.write(kLineEnd);
    }
    m_sent += size;
    return size;
}

bool HttpSender::finish() {
    if (!m_noChunking && !m_bodyless) {
        m_connection.write(kLastChunk);
    }
    m_connection.flush();
    return m_bodyless || !m_declaredLength || *m_declaredLength == m_sent;
}

AnswerSender::AnswerSender(std::shared_ptr<Connection> connection, std::shared_ptr<Request> request)
    : m_connection(std::move(connection)),
      m_request(std::move(request)),
      m_sender(*m_connection, m_request->verb == HttpVerb::Head) {}

AnswerSender::~AnswerSender() {
    if (!m_finished) {
        try {
            endAnswer(true);
        } catch (...) {
            // The client is gone or the server stops; nobody is left to tell.
        }
    }
}

void AnswerSender::SendHeader(const HttpHeader& header) {
    if (m_headersSent) {
        throw std::runtime_error("meta data already sent");
    }
    HttpHeader sent = header;
    const auto length = declaredLength(header);
    // An HTTP/1.0 client knows no chunks: its body runs to the end of the connection.
    const bool chunked = !length && m_connection->clientTakesChunks();
    if (chunked) {
        sent.knownHeaders[ids::HttpHeaderTransferEncoding] = "chunked";
    } else if (!length) {
        m_connection->closeAfterAnswer();
    }
    if (asksToClose(header)) {
        m_connection->closeAfterAnswer();
    } else if (!m_connection->keepAlive() && !header.knownHeaders.contains(ids::HttpHeaderConnection)) {
        sent.knownHeaders[ids::HttpHeaderConnection] = "close";
    }
    m_connection->write(formatHead(sent));
    m_sender.begin(length, chunked);
    m_headersSent = true;
}

void AnswerSender::finish() {
    endAnswer(false);
}

// Answers for a handler that did not, then ends the body and hands the connection back. When the
// server stops, a request that never reached the handler gets nothing.
void AnswerSender::endAnswer(bool quiet) {
    m_finished = true;
    bool complete = false;
    try {
        if (quiet && !m_headersSent && m_connection->ownerStopping()) {
            m_connection->endExchange(false);
            return;
        }
        if (!m_headersSent || !m_errorText.empty()) {
            if (m_errorText.empty()) {
                m_errorText = "the server did not fill the response properly";
            }
            SendHeader(HttpHeader(400, "Could not process request"));
            m_sender.send(reinterpret_cast<const std::uint8_t*>(m_errorText.data()), m_errorText.size());
        }
    } catch (...) {
        try {
            complete = m_headersSent && m_sender.finish();
        } catch (...) {
        }
        m_connection->endExchange(complete);
        throw;
    }
    try {
        complete = m_sender.finish();
    } catch (...) {
        m_connection->endExchange(false);
        throw;
    }
    m_connection->endExchange(complete);
}

}  // namespace ovtx::network::http_server::v3::detail
