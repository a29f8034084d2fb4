#include "network/http_server/requests_source.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <latch>
#include <stdexcept>
#include <string>
#include <vector>

#include "network/http_server/testing/http_test_client.h"
#include "network/http_server/testing/test_server.h"
#include "testing/expect_failure.h"

namespace ovtx::network::http_server::v3 {
namespace {

using namespace std::chrono_literals;
using http_server_auth::i_auth_mgr::v1::AuthenticationFail;
using http_server_auth::i_auth_mgr::v1::AuthenticationResult;
using http_server_auth::i_auth_mgr::v1::AuthenticationSuccessFul;
using http_server_request_handler::v0::HttpHeader;
using http_server_request_handler::v0::IAnswerSender;
using testing::exchange;
using testing::HttpTestClient;
using testing::TestServer;
using testing::TestServerOptions;

void sendText(IAnswerSender& answer, const std::string& text) {
    answer.GetBodySender().send(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

// Answers 200 with "<verb> <path> <query>" as its body.
void echoRequest(IAnswerSender& answer) {
    const Request& request = answer.GetRequest();
    answer.SendHeader(HttpHeader(200, "OK"));
    sendText(answer,
             std::to_string(static_cast<int>(request.verb)) + " " + request.path + " " + request.query);
}

std::string chunked(const std::string& body) {
    char size[16];
    std::snprintf(size, sizeof size, "%zx", body.size());
    return size + std::string("\r\n") + body + "\r\n0\r\n\r\n";
}

std::string readBody(Request& request, std::size_t piece, std::vector<std::size_t>* pieces = nullptr) {
    std::string body;
    std::vector<std::uint8_t> buffer(piece);
    while (std::size_t got = request.body->receive(buffer.data(), buffer.size())) {
        body.append(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(got));
        if (pieces != nullptr) {
            pieces->push_back(got);
        }
    }
    return body;
}

const std::string kGet = "GET /svc/x HTTP/1.1\r\nHost: t\r\n\r\n";

struct AnswerCase {
    std::string name;
    testing::HandlerFunction handler;
    std::string answer;
    std::string request = kGet;
};

TEST(RequestsSourceTest, HandlerAnswers_ExactBytesOnTheWire) {
    const std::string tooLong(0x10000, 'a');
    const std::vector<AnswerCase> cases = {
        {"chunks",
         [](IAnswerSender& a) {
             a.SendHeader(HttpHeader(200, "OK"));
             sendText(a, "hello");
             sendText(a, "the world at large");
         },
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n12\r\nthe world at "
         "large\r\n0\r\n\r\n"},
        {"length given",
         [](IAnswerSender& a) {
             HttpHeader header(200, "OK");
             header.knownHeaders[http_server_request_handler::v0::HttpHeaderContentLength] = "5";
             a.SendHeader(header);
             sendText(a, "hello");
         },
         "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello"},
        {"custom reason and header order",
         [](IAnswerSender& a) {
             HttpHeader header(299, "Fine Indeed");
             header.otherHeaders["Access-Control-Allow-Origin"] = "*";
             header.knownHeaders[http_server_request_handler::v0::HttpHeaderContentType] = "application/json";
             header.knownHeaders[http_server_request_handler::v0::HttpHeaderCacheControl] = "no-cache";
             a.SendHeader(header);
         },
         "HTTP/1.1 299 Fine Indeed\r\nCache-Control: no-cache\r\nTransfer-Encoding: chunked\r\nContent-Type: "
         "application/json\r\nAccess-Control-Allow-Origin: *\r\n\r\n0\r\n\r\n"},
        {"injection cleaned",
         [](IAnswerSender& a) {
             HttpHeader header(200, "OK\r\nSet-Cookie: a=1");
             header.otherHeaders["X-\r\nName: b"] = "v\r\n\r\nHTTP/1.1 200 OK\x7f";
             header.otherHeaders["\r\n"] = "dropped";
             a.SendHeader(header);
         },
         "HTTP/1.1 200 OK  Set-Cookie: a=1\r\nTransfer-Encoding: chunked\r\nX-Nameb: v    HTTP/1.1 200 OK "
         "\r\n\r\n"
         "0\r\n\r\n"},
        {"nothing sent", [](IAnswerSender&) {},
         "HTTP/1.1 400 Could not process request\r\nTransfer-Encoding: chunked\r\n\r\n" +
             chunked("the server did not fill the response properly")},
        {"throws before sending",
         [](IAnswerSender&) { throw std::runtime_error("no such variable\r\nX: y"); },
         "HTTP/1.1 400 Could not process request\r\nTransfer-Encoding: chunked\r\n\r\n" +
             chunked("no such variable\r\nX: y")},
        {"throws after sending",
         [](IAnswerSender& a) {
             a.SendHeader(HttpHeader(404, "Invalid element index"));
             sendText(a, "Invalid element index");
             throw std::runtime_error("Could not process request: Invalid element index");
         },
         "HTTP/1.1 404 Invalid element index\r\nTransfer-Encoding: chunked\r\n\r\n" +
             chunked("Invalid element index")},
        {"header failures",
         [&](IAnswerSender& a) {
             test_support::v1::expectFailure([&] { sendText(a, "body first"); },
                                             "Could not send Http request answer: Invalid argument");
             HttpHeader header(200, "OK");
             header.knownHeaders[http_server_request_handler::v0::HttpHeaderResponseMaximum] = "x";
             test_support::v1::expectFailure([&] { a.SendHeader(header); }, "Invalid HTTP header ID");
             header.knownHeaders = {{http_server_request_handler::v0::HttpHeaderContentType, tooLong}};
             test_support::v1::expectFailure([&] { a.SendHeader(header); },
                                             "Could not send Http request answer : headers too long");
             header.knownHeaders.clear();
             header.otherHeaders[tooLong] = "x";
             test_support::v1::expectFailure([&] { a.SendHeader(header); },
                                             "Could not send Http request answer : headers too long");
             test_support::v1::expectFailure([&] { a.SendHeader(HttpHeader(1000, "OK")); },
                                             "Could not send Http request answer: Invalid argument");
             a.SendHeader(HttpHeader(200, "OK"));
             test_support::v1::expectFailure([&] { a.SendHeader(HttpHeader(200, "OK")); },
                                             "meta data already sent");
             sendText(a, "");
         },
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"},
        {"head has no body",
         [](IAnswerSender& a) {
             a.SendHeader(HttpHeader(200, "OK"));
             sendText(a, "hidden");
         },
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n", "HEAD /svc HTTP/1.1\r\nHost: t\r\n\r\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestServer server(c.handler, {.workers = 2});
        HttpTestClient client(server.port());
        client.send(c.request + kGet);
        EXPECT_EQ(client.readAnswer(c.request.starts_with("HEAD")), c.answer);
        // the connection goes on with the next request
        EXPECT_TRUE(client.readAnswer().starts_with("HTTP/1.1 "));
    }
}

TEST(RequestsSourceTest, FailureAfterHeaders_ReachesTheWorkerLog) {
    TestServer server(
        [](IAnswerSender& a) {
            a.SendHeader(HttpHeader(200, "OK"));
            throw std::runtime_error("late");
        },
        {.workers = 1});
    EXPECT_EQ(exchange(server.port(), kGet),
              "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n");
    EXPECT_EQ(exchange(server.port(), kGet),
              "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n");
    server.stop();
    EXPECT_EQ(server.logger().lines(),
              (std::vector<std::string>{"1 Worker 0: job failed: meta data already sent",
                                        "1 Worker 0: job failed: meta data already sent"}));
}

TEST(RequestsSourceTest, Targets_PathQueryAndVerb) {
    struct Case {
        std::string request;
        std::string answer;
    };
    const auto ok = [](const std::string& body) {
        return "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked(body);
    };
    const std::string notFound =
        "HTTP/1.1 404 Not Found\r\nContent-Length: 9\r\nContent-Type: text/plain\r\n\r\nNot Found";
    const std::vector<Case> cases = {
        {"GET /svc HTTP/1.1", ok("4 /svc ")},
        {"GET /svc/ HTTP/1.1", ok("4 /svc/ ")},
        {"POST /svc/a%20b/./c?x=%20&y HTTP/1.1", ok("6 /svc/a b/c ?x=%20&y")},
        {"PUT /svc/map/3 HTTP/1.1", ok("7 /svc/map/3 ")},
        {"DELETE /svc/a/../b HTTP/1.1", ok("8 /svc/b ")},
        {"OPTIONS http://host:1/svc/z?q HTTP/1.1", ok("3 /svc/z ?q")},
        {"PATCH /svc HTTP/1.1", ok("1 /svc ")},
        {"TRACK /svc HTTP/1.1", ok("11 /svc ")},
        {"GET /svcx HTTP/1.1", notFound},
        {"GET /other/svc HTTP/1.1", notFound},
        {"GET /svc/../other HTTP/1.1", notFound},
        {"GET /%73vc HTTP/1.1", ok("4 /svc ")},
    };
    TestServer server(echoRequest, {.workers = 2});
    HttpTestClient client(server.port());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.request);
        client.send(c.request + "\r\nHost: t\r\n\r\n");
        EXPECT_EQ(client.readAnswer(), c.answer);
    }
}

TEST(RequestsSourceTest, MalformedRequests_400AndClose) {
    TestServer server(echoRequest, {.workers = 1});
    for (const std::string request : {"GET /svc/%zz HTTP/1.1\r\n\r\n", "GET /svc/%00 HTTP/1.1\r\n\r\n",
                                      "GET /../svc HTTP/1.1\r\n\r\n", "GARBAGE\r\n\r\n"}) {
        SCOPED_TRACE(request);
        HttpTestClient client(server.port());
        client.send(request);
        EXPECT_EQ(client.readAnswer(),
                  "HTTP/1.1 400 Bad Request\r\nConnection: close\r\nContent-Length: 11\r\nContent-Type: "
                  "text/plain\r\n\r\nBad Request");
        EXPECT_TRUE(client.closedByServer());
    }
}

TEST(RequestsSourceTest, PipelinedRequests_AnsweredInOrderOnOneConnection) {
    TestServer server([](IAnswerSender& a) {
        if (a.GetRequest().path == "/svc/slow") {
            std::this_thread::sleep_for(50ms);
        }
        echoRequest(a);
    });
    HttpTestClient client(server.port());
    client.send(
        "GET /svc/slow HTTP/1.1\r\nHost: t\r\n\r\nPOST /svc/b HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc"
        "GET /svc/c HTTP/1.1\r\nHost: t\r\n\r\n");
    for (const std::string body : {"4 /svc/slow ", "6 /svc/b ", "4 /svc/c "}) {
        EXPECT_EQ(client.readAnswer(),
                  "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked(body));
    }
}

TEST(RequestsSourceTest, ConnectionClose_AnsweredThenClosed) {
    TestServer server(echoRequest);
    const struct {
        std::string request;
        std::string answer;
    } cases[] = {
        {"GET /svc HTTP/1.1\r\nConnection: close\r\n\r\n",
         "HTTP/1.1 200 OK\r\nConnection: close\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked("4 /svc ")},
        {"GET /svc HTTP/1.0\r\n\r\n", "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n4 /svc "},
    };
    for (const auto& c : cases) {
        HttpTestClient client(server.port());
        client.send(c.request);
        EXPECT_EQ(client.readAnswer(), c.answer);
        EXPECT_TRUE(client.closedByServer());
    }
}

TEST(RequestsSourceTest, OversizedHeaders_431ThenListenerGoesOn) {
    TestServer server(echoRequest, {.limits = {.maxHeaderBytes = 1024}});
    HttpTestClient client(server.port());
    client.send("GET /svc HTTP/1.1\r\nX-Big: " + std::string(2000, 'b') + "\r\n\r\n");
    EXPECT_EQ(client.readAnswer(),
              "HTTP/1.1 431 Request Header Fields Too Large\r\nConnection: close\r\nContent-Length: 31\r\n"
              "Content-Type: text/plain\r\n\r\nRequest Header Fields Too Large");
    EXPECT_TRUE(client.closedByServer());
    EXPECT_TRUE(exchange(server.port(), kGet).starts_with("HTTP/1.1 200 OK"));
    EXPECT_EQ(
        server.logger().lines(),
        std::vector<std::string>{"0 Http server could not answer request: Could not receive Http request"});
}

TEST(RequestsSourceTest, Body_ReadInPiecesOnTheWorker) {
    struct Case {
        std::string request;
        std::vector<std::size_t> pieces;
    };
    const std::vector<Case> cases = {
        {"POST /svc HTTP/1.1\r\nContent-Length: 10\r\n\r\n0123456789", {4, 4, 2}},
        {"POST /svc HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n3\r\n012\r\n7\r\n3456789\r\n0\r\n\r\n",
         {3, 4, 3}},
        {"POST /svc HTTP/1.1\r\nContent-Length: 10\r\nExpect: 100-continue\r\n\r\n", {4, 4, 2}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.request);
        std::promise<std::vector<std::size_t>> pieces;
        TestServer server([&](IAnswerSender& a) {
            std::vector<std::size_t> got;
            const std::string body = readBody(a.GetRequest(), 4, &got);
            pieces.set_value(got);
            a.SendHeader(HttpHeader(200, "OK"));
            sendText(a, body);
            EXPECT_EQ(a.GetRequest().body->receive(nullptr, 0), 0u);
        });
        HttpTestClient client(server.port());
        client.send(c.request);
        if (c.request.find("100-continue") != std::string::npos) {
            EXPECT_EQ(client.readAnswer(true), "HTTP/1.1 100 Continue\r\n\r\n");
            client.send("0123456789");
        }
        EXPECT_EQ(client.readAnswer(),
                  "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked("0123456789"));
        EXPECT_EQ(pieces.get_future().get(), c.pieces);
    }
}

TEST(RequestsSourceTest, UnreadBody_DrainedBeforeTheNextRequest) {
    TestServer server(echoRequest);
    HttpTestClient client(server.port());
    client.send("POST /svc HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello" + kGet);
    EXPECT_TRUE(client.readAnswer().ends_with(chunked("6 /svc ")));
    EXPECT_TRUE(client.readAnswer().ends_with(chunked("4 /svc/x ")));
}

TEST(RequestsSourceTest, ClientGoneOrSilentMidBody_IncompleteRequest) {
    const std::vector<std::function<void(HttpTestClient&)>> clientActions = {
        [](HttpTestClient& client) { client.close(); },
        [](HttpTestClient&) {},  // stays silent past the time limit
    };
    for (const auto& act : clientActions) {
        std::promise<std::string> failure;
        TestServer server(
            [&](IAnswerSender& a) {
                try {
                    readBody(a.GetRequest(), 64);
                    failure.set_value("");
                } catch (const std::exception& e) {
                    failure.set_value(e.what());
                    throw;
                }
            },
            {.limits = {.ioTimeout = 200ms}});
        HttpTestClient client(server.port());
        client.send("POST /svc HTTP/1.1\r\nContent-Length: 100\r\n\r\n0123456789");
        act(client);
        EXPECT_EQ(failure.get_future().get(), "incomplete http request");
    }
}

TEST(RequestsSourceTest, ClientGoneBeforeTheAnswer_ServerGoesOn) {
    std::promise<std::string> failure;
    std::latch clientGone(1);
    TestServer server([&](IAnswerSender& a) {
        if (a.GetRequest().path != "/svc/big") {
            return echoRequest(a);
        }
        clientGone.wait();
        a.SendHeader(HttpHeader(200, "OK"));
        try {
            for (int i = 0; i < 1000; ++i) {
                sendText(a, std::string(64 * 1024, 'x'));
            }
        } catch (const std::exception& e) {
            failure.set_value(e.what());
        }
    });
    {
        HttpTestClient client(server.port());
        client.send("GET /svc/big HTTP/1.1\r\n\r\n");
    }
    clientGone.count_down();
    const std::string text = failure.get_future().get();
    EXPECT_TRUE(text == "Could not send Http request answer: Broken pipe" ||
                text == "Could not send Http request answer: Connection reset by peer")
        << text;
    EXPECT_TRUE(exchange(server.port(), kGet).starts_with("HTTP/1.1 200 OK"));
}

TEST(RequestsSourceTest, SilentConnection_ClosedAfterTheHeaderTimeout) {
    TestServer server(echoRequest, {.limits = {.headerTimeout = 200ms}});
    HttpTestClient idle(server.port());
    HttpTestClient partial(server.port());
    partial.send("GET /svc HTTP/1.1\r\nHost:");
    EXPECT_TRUE(idle.closedByServer());
    EXPECT_TRUE(partial.closedByServer());
    EXPECT_TRUE(exchange(server.port(), kGet).starts_with("HTTP/1.1 200 OK"));
}

// Fails requests that carry "X-Deny", with the header's value as the challenge.
struct DenyMarked : http_server_auth::i_auth_mgr_client::v0::IAuthMgrClient {
    AuthenticationResult Authorize(const HttpHeaders& headers, HttpVerb) override {
        if (const std::string* challenge = findHeader(headers, "x-deny")) {
            return AuthenticationFail{*challenge};
        }
        return AuthenticationSuccessFul{};
    }
};

TEST(RequestsSourceTest, BusyWorkers_NextRequestStillAcceptedAndAccessChecked) {
    std::latch started(32);
    std::latch release(1);
    TestServer server(
        [&](IAnswerSender& a) {
            started.count_down();
            release.wait();
            echoRequest(a);
        },
        {.authorisation = std::make_unique<DenyMarked>()});
    std::vector<std::unique_ptr<HttpTestClient>> busy;
    for (int i = 0; i < 32; ++i) {
        busy.push_back(std::make_unique<HttpTestClient>(server.port()));
        busy.back()->send(kGet);
    }
    started.wait();
    HttpTestClient denied(server.port());
    denied.send("GET /svc HTTP/1.1\r\nX-Deny: Basic realm=\"sdi\"\r\n\r\n" + kGet);
    EXPECT_EQ(
        denied.readAnswer(),
        "HTTP/1.1 401 Unauthorized\r\nContent-Length: 0\r\nWWW-Authenticate: Basic realm=\"sdi\"\r\n\r\n");
    release.count_down();
    EXPECT_TRUE(denied.readAnswer().ends_with(chunked("4 /svc/x ")));
    for (auto& client : busy) {
        EXPECT_TRUE(client->readAnswer().ends_with(chunked("4 /svc/x ")));
    }
}

TEST(RequestsSourceTest, Stop_BlockedReceiveFailsAtOnceAndQueuedRequestsAreDropped) {
    std::promise<std::string> failure;
    std::latch receiving(1);
    int handled = 0;
    TestServer server(
        [&](IAnswerSender& a) {
            ++handled;
            receiving.count_down();
            try {
                readBody(a.GetRequest(), 64);
            } catch (const std::exception& e) {
                failure.set_value(e.what());
            }
        },
        {.workers = 1});
    HttpTestClient blocked(server.port());
    blocked.send("POST /svc HTTP/1.1\r\nContent-Length: 100\r\n\r\n");
    receiving.wait();
    HttpTestClient queued(server.port());
    queued.send(kGet);
    std::this_thread::sleep_for(50ms);  // lets the listener queue the second request
    const auto start = std::chrono::steady_clock::now();
    server.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);  // the default time limit is 30 s
    EXPECT_EQ(failure.get_future().get(), "incomplete http request");
    EXPECT_EQ(handled, 1);
    EXPECT_TRUE(queued.closedByServer());
}

TEST(RequestsSourceTest, EveryAddress_ReachableOverIPv4Loopback) {
    log::log_perf::v4::testing::CapturingLogger logger;
    RequestsSource source(&logger, "http://*:0/svc", std::make_unique<testing::FunctionHandler>(echoRequest),
                          1, http_server_auth::auth_mgr_client::v3::alwaysSuccessfulAuthMgr());
    EXPECT_TRUE(exchange(source.port(), kGet).ends_with(chunked("4 /svc/x ")));
}

TEST(RequestsSourceTest, StartFailures_Texts) {
    TestServer running(echoRequest, {.workers = 1});
    log::log_perf::v4::testing::CapturingLogger logger;
    const auto start = [&](log::i_logger::v0::ILogger* log, const std::string& url) {
        RequestsSource source(log, url, std::make_unique<testing::FunctionHandler>(echoRequest), 1,
                              http_server_auth::auth_mgr_client::v3::alwaysSuccessfulAuthMgr());
    };
    const std::string taken = "http://127.0.0.1:" + std::to_string(running.port()) + "/svc";
    for (const std::string& url : {taken, std::string("https://127.0.0.1:0/"), std::string("http://:80/"),
                                   std::string("http://127.0.0.1:99999/")}) {
        SCOPED_TRACE(url);
        test_support::v1::expectFailure([&] { start(&logger, url); },
                                        "Could not bind Http url to Http server");
    }
    test_support::v1::expectFailure([&] { start(nullptr, "http://127.0.0.1:0/svc"); },
                                    "logger not provided for the http_server");
    test_support::v1::expectFailure([&] { start(nullptr, taken); }, "Could not bind Http url to Http server");
}

}  // namespace
}  // namespace ovtx::network::http_server::v3
