// The answer channel of one accepted request, and its body writer.
//
// `AnswerSender` sends status and headers once and makes sure every request gets an answer:
// `finish` (run by the worker after the handler) sends 400 "Could not process request" with the
// handler's failure, or "the server did not fill the response properly", as the body when the
// handler did not answer or failed. A handler that had sent its headers and failed afterwards
// gets its answer ended as it stands, and `finish` then throws "meta data already sent" for the
// worker to report. The destructor finishes an answer that nobody finished, throwing nothing.
//
// `HttpSender` writes the body in HTTP chunks (size in lower-case hexadecimal), unless the headers
// carried a Content-Length (or the client speaks HTTP/1.0), and ends it with the zero chunk.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "cpp_utils/stream_io/stream_io.h"
#include "network/http_server/connection.h"
#include "network/http_server/request.h"
#include "network/http_server_request_handler/i_request_handler.h"

namespace ovtx::network::http_server::v3::detail {

class HttpSender : public cpp_utils::stream_io::v1::IStreamSender {
  public:
    HttpSender(Connection& connection, bool bodyless) : m_connection(connection), m_bodyless(bodyless) {}

    // Called once the headers are out; `declaredLength` is the Content-Length, if one was given.
    void begin(std::optional<std::uint64_t> declaredLength, bool chunked);
    std::size_t send(const std::uint8_t* bytes, std::size_t size) override;
    // Ends the body and sends what is left; true when the client got a complete answer.
    bool finish();

  private:
    Connection& m_connection;
    bool m_bodyless;  // answers to HEAD carry no body
    bool m_started = false;
    bool m_noChunking = true;
    std::optional<std::uint64_t> m_declaredLength;
    std::uint64_t m_sent = 0;
};

class AnswerSender : public http_server_request_handler::v0::IAnswerSender {
  public:
    AnswerSender(std::shared_ptr<Connection> connection, std::shared_ptr<Request> request);
    ~AnswerSender() override;

    AnswerSender(const AnswerSender&) = delete;
    AnswerSender& operator=(const AnswerSender&) = delete;

    Request& GetRequest() override { return *m_request; }
    void SendHeader(const http_server_request_handler::v0::HttpHeader& header) override;
    cpp_utils::stream_io::v1::IStreamSender& GetBodySender() override { return m_sender; }

    void setErrorText(std::string text) { m_errorText = std::move(text); }
    void finish();

  private:
    void endAnswer(bool quiet);

    std::shared_ptr<Connection> m_connection;
    std::shared_ptr<Request> m_request;
    bool m_headersSent = false;
    bool m_finished = false;
    HttpSender m_sender;
    std::string m_errorText;
};

}  // namespace ovtx::network::http_server::v3::detail
