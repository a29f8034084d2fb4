// A server for tests: bound to a free loopback port, with a handler made of a function.
//
//   TestServer server([](IAnswerSender& answer) { answer.SendHeader(HttpHeader(204, "No Content")); });
//   HttpTestClient client(server.port());
//   client.send("GET /svc HTTP/1.1\r\nHost: x\r\n\r\n");
//   EXPECT_EQ(client.readAnswer(), "HTTP/1.1 204 No Content\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n");
//
// The server's log lines gather in `logger()`.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "log/testing/capturing_logger.h"
#include "network/http_server/requests_source.h"
#include "network/http_server_auth/auth_mgr_client.h"

namespace ovtx::network::http_server::v3::testing {

using HandlerFunction = std::function<void(http_server_request_handler::v0::IAnswerSender&)>;

class FunctionHandler : public http_server_request_handler::v0::IRequestHandler {
  public:
    explicit FunctionHandler(HandlerFunction function) : m_function(std::move(function)) {}
    void Handle(http_server_request_handler::v0::IAnswerSender* answer) override { m_function(*answer); }

  private:
    HandlerFunction m_function;
};

struct TestServerOptions {
    std::string path = "/svc";
    std::unique_ptr<http_server_auth::i_auth_mgr_client::v0::IAuthMgrClient> authorisation =
        http_server_auth::auth_mgr_client::v3::alwaysSuccessfulAuthMgr();
    ServerLimits limits = {};
    std::size_t workers = 32;
};

class TestServer {
  public:
    explicit TestServer(std::unique_ptr<http_server_request_handler::v0::IRequestHandler> handler,
                        TestServerOptions options = {})
        : m_server(std::make_unique<RequestsSource>(&m_logger, "http://127.0.0.1:0" + options.path,
                                                    std::move(handler), options.workers,
                                                    std::move(options.authorisation), options.limits)) {}
    explicit TestServer(HandlerFunction function, TestServerOptions options = {})
        : TestServer(std::make_unique<FunctionHandler>(std::move(function)), std::move(options)) {}

    std::uint16_t port() const { return m_server->port(); }
    log::log_perf::v4::testing::CapturingLogger& logger() { return m_logger; }
    // Stops the server now, as its owner's destructor would.
    void stop() { m_server.reset(); }

  private:
    log::log_perf::v4::testing::CapturingLogger m_logger;
    std::unique_ptr<RequestsSource> m_server;
};

}  // namespace ovtx::network::http_server::v3::testing
