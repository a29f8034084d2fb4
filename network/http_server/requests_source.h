// The HTTP server: one bound URL, one listener thread, a pool of workers.
//
// The listener accepts connections, reads request headers, answers requests outside the bound
// path with 404, asks the access check about the others (a failure is answered 401 at once) and
// queues the accepted ones; each worker takes a request from the queue and runs the handler on
// it. Bodies are read and answers written on the worker. Connections stay open between requests
// (HTTP/1.1 keep-alive); requests sent back to back on one connection are answered in order.
//
//   RequestsSource server(&logger, serviceUrl(httpBaseUrl(), "/sdi_tap/0"),
//                         std::make_unique<DataExchanger>(...), 32, alwaysSuccessfulAuthMgr());
//   ...                  // serving
//   // leaving the scope stops it: no new requests, reads under way fail at once, requests still
//   // queued are dropped, every thread is joined.
//
// Start failures are exceptions and leave nothing running: "Could not bind Http url to Http
// server" (a malformed URL, or the address is taken), "Could not initialize Http server API" and
// "Could not create Http server handle" (the system refused an event loop or a socket) and, with a
// null logger, the runtime error "logger not provided for the http_server".
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "cpp_utils/exception_utils/exception_utils.h"
#include "log/i_logger.h"
#include "network/http_server_auth/i_auth_mgr_client.h"
#include "network/http_server_request_handler/i_request_handler.h"

namespace ovtx::network::http_server::v3 {

// The failures the server raises itself.
class Exception : public cpp_utils::exception_utils::v1::OrvantaException {
  public:
    using OrvantaException::OrvantaException;
};

struct IRequestSource {
    virtual ~IRequestSource() = default;
};

// How long the server waits for a client, and how much header it takes.
struct ServerLimits {
    // From the end of an answer (or the connection's start) to the end of the next request's
    // headers; a connection that stays silent or slow longer is closed.
    std::chrono::milliseconds headerTimeout{30000};
    // Longest wait for the next piece of a request body, and for the client to take the next
    // piece of an answer.
    std::chrono::milliseconds ioTimeout{30000};
    // Request line and headers together; a larger request gets 431 and its connection closes.
    std::size_t maxHeaderBytes = 4096;
};

class RequestsSource : public IRequestSource {
  public:
    // `url` is "http://<host>:<port><path>": host "*" or "+" for every address, an address, or a
    // name; port 0 takes a free port (see `port`). Requests whose path lies outside <path> get 404.
    RequestsSource(log::i_logger::v0::ILogger* logger, const std::string& url,
                   std::unique_ptr<http_server_request_handler::v0::IRequestHandler> handler,
                   std::size_t workers,
                   std::unique_ptr<http_server_auth::i_auth_mgr_client::v0::IAuthMgrClient> authorisation,
                   const ServerLimits& limits = {});
    ~RequestsSource() override;

    RequestsSource(const RequestsSource&) = delete;
    RequestsSource& operator=(const RequestsSource&) = delete;

    // The port the listener is bound to.
    std::uint16_t port() const;

    class Impl;

  private:
    std::unique_ptr<Impl> m_impl;
};

}  // namespace ovtx::network::http_server::v3
