// An in-process request and its recorded answer, to run a request handler without a server.
//
//   RecordedAnswer answer(HttpVerb::Get, "/svc/Point/X", "?get");
//   handler.Handle(&answer);
//   EXPECT_EQ(answer.header().status, 200);
//   EXPECT_EQ(answer.body(), "1\n");
//
// `SendHeader` behaves as the server's does: a second call throws "meta data already sent".
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "network/http_server_request_handler/i_request_handler.h"
#include "network/restful_web_service_request_handler/resource.h"

namespace ovtx::network::restful_web_service_request_handler::testing::v0 {

class RecordedAnswer : public http_server_request_handler::v0::IAnswerSender {
  public:
    RecordedAnswer(http_server::v3::HttpVerb verb, std::string path, std::string query, std::string body = "")
        : m_requestBody(body.begin(), body.end()), m_sink(m_body) {
        m_request.verb = verb;
        m_request.path = std::move(path);
        m_request.query = std::move(query);
        m_request.body =
            std::make_unique<restful_web_service_request_handler::v0::DataReceiver>(m_requestBody);
    }

    http_server::v3::Request& GetRequest() override { return m_request; }
    void SendHeader(const http_server_request_handler::v0::HttpHeader& header) override {
        if (m_headerSent) {
            throw std::runtime_error("meta data already sent");
        }
        m_header = header;
        m_headerSent = true;
    }
    cpp_utils::stream_io::v1::IStreamSender& GetBodySender() override { return m_sink; }

    bool headerSent() const { return m_headerSent; }
    const http_server_request_handler::v0::HttpHeader& header() const { return m_header; }
    std::string body() const { return std::string(m_body.begin(), m_body.end()); }

  private:
    restful_web_service_request_handler::v0::Bytes m_requestBody;
    restful_web_service_request_handler::v0::Bytes m_body;
    restful_web_service_request_handler::v0::DataSender m_sink;
    http_server::v3::Request m_request;
    http_server_request_handler::v0::HttpHeader m_header;
    bool m_headerSent = false;
};

}  // namespace ovtx::network::restful_web_service_request_handler::testing::v0
