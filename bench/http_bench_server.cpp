// The HTTP server with a trivial handler, for bench/http_bench.sh: every GET under /bench gets
// 200 with a 14-byte body. Prints "port <n>" once it listens; SIGINT or SIGTERM end it.
//
//   http_bench_server [port]        # port 0 (the default) takes a free one
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <thread>

#include "network/http_server/requests_source.h"
#include "network/http_server_auth/auth_mgr_client.h"
#include "system/process/process.h"

namespace {

using namespace ovtx::network;
using http_server_request_handler::v0::HttpHeader;

std::atomic<bool> g_running{true};

struct StderrLogger : ovtx::log::i_logger::v0::ILogger {
    void Log(int level, const char* format, ...) override __attribute__((format(printf, 3, 4))) {
        std::va_list args;
        va_start(args, format);
        std::fprintf(stderr, "%d ", level);
        std::vfprintf(stderr, format, args);
        std::fputc('\n', stderr);
        va_end(args);
    }
};

struct Hello : http_server_request_handler::v0::IRequestHandler {
    void Handle(http_server_request_handler::v0::IAnswerSender* answer) override {
        static const std::string kBody = "{\"value\": 42}\n";
        HttpHeader header(200, "OK");
        header.knownHeaders[http_server_request_handler::v0::HttpHeaderContentType] = "application/json";
        header.knownHeaders[http_server_request_handler::v0::HttpHeaderContentLength] =
            std::to_string(kBody.size());
        answer->SendHeader(header);
        answer->GetBodySender().send(reinterpret_cast<const std::uint8_t*>(kBody.data()), kBody.size());
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && (std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h")) {
        std::printf("usage: http_bench_server [port]\n");
        return 0;
    }
    const std::string port = argc > 1 ? argv[1] : "0";
    ovtx::system::process::v1::setConsoleControlHandler([] { g_running = false; });
    StderrLogger logger;
    http_server::v3::RequestsSource server(&logger, "http://127.0.0.1:" + port + "/bench",
                                           std::make_unique<Hello>(), 32,
                                           http_server_auth::auth_mgr_client::v3::alwaysSuccessfulAuthMgr());
    std::printf("port %u\n", static_cast<unsigned>(server.port()));
    std::fflush(stdout);
    while (g_running) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return 0;
}
