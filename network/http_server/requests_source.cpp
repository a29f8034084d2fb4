#include "network/http_server/requests_source.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <atomic>
#include <stdexcept>
#include <unordered_map>

#include "cpp_utils/async_processor/working_thread.h"
#include "network/http_server/answer_sender.h"
#include "network/http_server/connection.h"
#include "network/http_server/http_url.h"
#include "network/http_server/wire_format.h"
#include "system/thread/thread.h"

namespace ovtx::network::http_server::v3 {

namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using detail::AnswerSender;
using detail::Connection;
using http_server_auth::i_auth_mgr::v1::AuthenticationFail;

constexpr std::chrono::milliseconds kAcceptRetryDelay{100};

HttpVerb verbOf(const Connection::Parser::value_type& head) {
    switch (head.method()) {
        case http::verb::options:
            return HttpVerb::Options;
        case http::verb::get:
            return HttpVerb::Get;
        case http::verb::head:
            return HttpVerb::Head;
        case http::verb::post:
            return HttpVerb::Post;
        case http::verb::put:
            return HttpVerb::Put;
        case http::verb::delete_:
            return HttpVerb::Delete;
        case http::verb::trace:
            return HttpVerb::Trace;
        case http::verb::connect:
            return HttpVerb::Connect;
        case http::verb::move:
            return HttpVerb::Move;
        case http::verb::copy:
            return HttpVerb::Copy;
        case http::verb::propfind:
            return HttpVerb::Propfind;
        case http::verb::proppatch:
            return HttpVerb::Proppatch;
        case http::verb::mkcol:
            return HttpVerb::Mkcol;
        case http::verb::lock:
            return HttpVerb::Lock;
        case http::verb::unlock:
            return HttpVerb::Unlock;
        case http::verb::search:
            return HttpVerb::Search;
        default:
            return head.method_string() == "TRACK" ? HttpVerb::Track : HttpVerb::Unknown;
    }
}

HttpHeaders headersOf(const Connection::Parser::value_type& head) {
    HttpHeaders headers;
    for (const auto& field : head) {
        headers.emplace_back(std::string(field.name_string()), std::string(field.value()));
    }
    return headers;
}

// The request body, read on the worker from the request's connection.
class Body : public cpp_utils::stream_io::v1::IStreamReceiver {
  public:
    explicit Body(std::shared_ptr<Connection> connection) : m_connection(std::move(connection)) {}

    std::size_t receive(std::uint8_t* buffer, std::size_t size) override {
        if (m_finished) {
            return 0;
        }
        const std::size_t got = m_connection->readBody(buffer, size);
        m_finished = got == 0 && size > 0;
        return got;
    }

  private:
    std::shared_ptr<Connection> m_connection;
    bool m_finished = false;
};

// The event loop of the listener; one thread runs it.
std::unique_ptr<asio::io_context> newIoContext() {
    try {
        return std::make_unique<asio::io_context>(1);
    } catch (const boost::system::system_error&) {
        throw Exception("Could not initialize Http server API");
    }
}

tcp::endpoint endpointOf(const BoundUrl& url, asio::io_context& io) {
    const auto port = static_cast<unsigned short>(url.port);
    if (url.host == "*" || url.host == "+") {
        return {tcp::v6(), port};
    }
    boost::system::error_code error;
    const auto address = asio::ip::make_address(url.host, error);
    if (!error) {
        return {address, port};
    }
    tcp::resolver resolver(io);
    const auto found = resolver.resolve(url.host, std::to_string(port), error);
    if (error || found.empty()) {
        throw Exception("Could not bind Http url to Http server");
    }
    return found.begin()->endpoint();
}

}  // namespace

class RequestsSource::Impl final : public detail::ConnectionOwner {
  public:
    Impl(log::i_logger::v0::ILogger* logger, const std::string& url,
         std::unique_ptr<http_server_request_handler::v0::IRequestHandler> handler, std::size_t workers,
         std::unique_ptr<http_server_auth::i_auth_mgr_client::v0::IAuthMgrClient> authorisation,
         const ServerLimits& limits)
        : m_logger(logger),
          m_url(url),
          m_limits(limits),
          m_handler(std::move(handler)),
          m_authorisation(std::move(authorisation)) {
        bind();
        m_workers = std::make_unique<Workers>(
            [this](std::size_t) { return [this](Job job) { process(std::move(job)); }; }, workers, m_logger);
        if (m_logger == nullptr) {
            throw std::runtime_error("logger not provided for the http_server");
        }
        accept();
        m_listener = std::make_unique<system::thread::v1::Thread>("sdi_http_listen", [this] { listen(); });
    }

    // No new connections, every connection closed or its worker's reads and writes failed, the
    // listener joined, then the workers: requests still queued are dropped unanswered.
    ~Impl() {
        m_stopping = true;
        asio::post(*m_io, [this] {
            boost::system::error_code ignored;
            m_acceptor.close(ignored);
            m_acceptRetry.cancel();
            for (const auto& [connection, weak] : std::unordered_map(m_connections)) {
                if (const auto alive = weak.lock()) {
                    alive->abort();
                }
            }
            m_io->stop();
        });
        m_listener.reset();
        m_authorisation.reset();
        m_workers.reset();
        m_handler.reset();
    }

    std::uint16_t port() const { return m_port; }

    void onRequest(const std::shared_ptr<Connection>& connection) override {
        try {
            dispatch(connection);
        } catch (const std::exception& e) {
            m_logger->Log(0, "Http server could not answer request: %s", e.what());
            connection->closeNow();
        } catch (...) {
            m_logger->Log(0, "Http server could not answer request: Unknown Error");
            connection->closeNow();
        }
    }

    void onOversizedHeaders() override {
        m_logger->Log(0, "Http server could not answer request: %s", "Could not receive Http request");
    }

    void onClosed(Connection* connection) override { m_connections.erase(connection); }
    const ServerLimits& limits() const override { return m_limits; }
    bool stopping() const override { return m_stopping; }

  private:
    using Job = std::unique_ptr<AnswerSender>;
    using Workers = cpp_utils::async_processor::v2::WorkingThread<Job>;

    void bind() {
        const auto url = parseBoundUrl(m_url);
        if (!url) {
            throw Exception("Could not bind Http url to Http server");
        }
        m_path = url->path;
        try {
            const tcp::endpoint endpoint = openAcceptor(endpointOf(*url, *m_io));
            m_acceptor.set_option(tcp::acceptor::reuse_address(true));
            m_acceptor.bind(endpoint);
            m_acceptor.listen(asio::socket_base::max_listen_connections);
            m_port = m_acceptor.local_endpoint().port();
        } catch (const boost::system::system_error&) {
            throw Exception("Could not bind Http url to Http server");
        }
    }

    // Every address means IPv6 and IPv4 together where the system has IPv6, else IPv4 alone.
    tcp::endpoint openAcceptor(tcp::endpoint endpoint) {
        boost::system::error_code error;
        m_acceptor.open(endpoint.protocol(), error);
        if (error && endpoint.address() == asio::ip::address_v6::any()) {
            endpoint = tcp::endpoint(tcp::v4(), endpoint.port());
            m_acceptor.open(endpoint.protocol(), error);
        }
        if (error) {
            throw Exception("Could not create Http server handle");
        }
        if (endpoint.address() == asio::ip::address_v6::any()) {
            m_acceptor.set_option(asio::ip::v6_only(false), error);
        }
        return endpoint;
    }

    void listen() {
        while (true) {
            try {
                m_io->run();
                return;
            } catch (const std::exception& e) {
                m_logger->Log(0, "Http server could not answer request: %s", e.what());
            } catch (...) {
                m_logger->Log(0, "Http server could not answer request: Unknown Error");
            }
        }
    }

    void accept() {
        m_acceptor.async_accept([this](const boost::system::error_code& error, tcp::socket socket) {
            if (error == asio::error::operation_aborted || m_stopping) {
                return;
            }
            if (error) {
                // Out of descriptors, most likely: try again a little later rather than spin.
                m_logger->Log(0, "Http server could not answer request: %s", error.message().c_str());
                m_acceptRetry.expires_after(kAcceptRetryDelay);
                m_acceptRetry.async_wait([this](const boost::system::error_code& waited) {
                    if (!waited) {
                        accept();
                    }
                });
                return;
            }
            boost::system::error_code ignored;
            socket.set_option(tcp::no_delay(true), ignored);
            auto connection = std::make_shared<Connection>(std::move(socket), *this);
            m_connections.emplace(connection.get(), connection);
            connection->start();
            accept();
        });
    }

    void dispatch(const std::shared_ptr<Connection>& connection) {
        const auto& head = connection->requestHead();
        const bool keepOpen = connection->keepAlive() && !connection->requestHasBody();
        const auto target = splitTarget(std::string_view(head.target().data(), head.target().size()));
        if (!target) {
            connection->answerFromListener(detail::plainAnswer(400, "Bad Request", true), false);
            return;
        }
        if (!isUnderPath(target->path, m_path)) {
            connection->answerFromListener(detail::plainAnswer(404, "Not Found", !keepOpen), keepOpen);
            return;
        }
        auto request = std::make_shared<Request>();
        request->path = target->path;
        request->query = target->query;
        request->verb = verbOf(head);
        request->headers = headersOf(head);
        const auto result = m_authorisation->Authorize(request->headers, request->verb);
        if (const auto* fail = std::get_if<AuthenticationFail>(&result)) {
            connection->answerFromListener(detail::unauthorizedAnswer(fail->ResponseHeader, !keepOpen),
                                           keepOpen);
            return;
        }
        if (result.index() != 1) {
            throw std::runtime_error("internal assertion failure");
        }
        request->body = std::make_unique<Body>(connection);
        connection->handOver();
        m_workers->post(std::make_unique<AnswerSender>(connection, std::move(request)));
    }

    // A worker's part: run the handler, then complete the answer whatever the handler did. What
    // `finish` throws reaches the pool, which logs it and goes on with the next request. Once the
    // server stops, requests still queued are dropped.
    void process(Job answer) {
        if (m_stopping) {
            return;
        }
        try {
            m_handler->Handle(answer.get());
        } catch (const std::exception& e) {
            answer->setErrorText(e.what());
        }
        answer->finish();
    }

    log::i_logger::v0::ILogger* m_logger;
    std::string m_url;
    std::string m_path;
    std::uint16_t m_port = 0;
    ServerLimits m_limits;
    std::unique_ptr<asio::io_context> m_io = newIoContext();
    tcp::acceptor m_acceptor{*m_io};
    asio::steady_timer m_acceptRetry{*m_io};
    std::unordered_map<Connection*, std::weak_ptr<Connection>> m_connections;  // listener's thread only
    std::atomic<bool> m_stopping{false};
    std::unique_ptr<http_server_request_handler::v0::IRequestHandler> m_handler;
    std::unique_ptr<http_server_auth::i_auth_mgr_client::v0::IAuthMgrClient> m_authorisation;
    std::unique_ptr<Workers> m_workers;
    std::unique_ptr<system::thread::v1::Thread> m_listener;
};

RequestsSource::RequestsSource(
    log::i_logger::v0::ILogger* logger, const std::string& url,
    std::unique_ptr<http_server_request_handler::v0::IRequestHandler> handler, std::size_t workers,
    std::unique_ptr<http_server_auth::i_auth_mgr_client::v0::IAuthMgrClient> authorisation,
    const ServerLimits& limits)
    : m_impl(std::make_unique<Impl>(logger, url, std::move(handler), workers, std::move(authorisation),
                                    limits)) {}

RequestsSource::~RequestsSource() = default;

std::uint16_t RequestsSource::port() const {
    return m_impl->port();
}

}  // namespace ovtx::network::http_server::v3
