// The seam between the HTTP server and whatever answers its requests.
//
// The server runs an `IRequestHandler` on its worker threads, once for each accepted request,
// with the request's `IAnswerSender`. The handler reads the request, sends the status line and
// headers once, then writes the body; the server finishes the answer when the handler returns.
// Without a Content-Length header the body goes out in chunks.
//
//   struct Hello : IRequestHandler {
//       void Handle(IAnswerSender* answer) override {
//           HttpHeader header(200, "OK");
//           header.knownHeaders[HttpHeaderContentType] = "text/plain";
//           answer->SendHeader(header);
//           answer->GetBodySender().send(reinterpret_cast<const std::uint8_t*>("hi"), 2);
//       }
//   };
//
// A handler that sends nothing, or throws, leaves the answer to the server: status 400, reason
// "Could not process request", and the failure's text (or "the server did not fill the response
// properly") as the body. Handlers run on several threads at once.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "cpp_utils/stream_io/stream_io.h"
#include "network/http_server/request.h"

namespace ovtx::network::http_server_request_handler::v0 {

// Response headers with a number of their own; the server writes them under their usual names.
enum HttpHeaderId : std::int32_t {
    HttpHeaderCacheControl = 0,
    HttpHeaderConnection = 1,
    HttpHeaderDate = 2,
    HttpHeaderKeepAlive = 3,
    HttpHeaderPragma = 4,
    HttpHeaderTrailer = 5,
    HttpHeaderTransferEncoding = 6,
    HttpHeaderUpgrade = 7,
    HttpHeaderVia = 8,
    HttpHeaderWarning = 9,
    HttpHeaderAllow = 10,
    HttpHeaderContentLength = 11,
    HttpHeaderContentType = 12,
    HttpHeaderContentEncoding = 13,
    HttpHeaderContentLanguage = 14,
    HttpHeaderContentLocation = 15,
    HttpHeaderContentMd5 = 16,
    HttpHeaderContentRange = 17,
    HttpHeaderExpires = 18,
    HttpHeaderLastModified = 19,
    HttpHeaderAcceptRanges = 20,
    HttpHeaderAge = 21,
    HttpHeaderEtag = 22,
    HttpHeaderLocation = 23,
    HttpHeaderProxyAuthenticate = 24,
    HttpHeaderRetryAfter = 25,
    HttpHeaderServer = 26,
    HttpHeaderSetCookie = 27,
    HttpHeaderVary = 28,
    HttpHeaderWwwAuthenticate = 29,
    HttpHeaderResponseMaximum = 30,
};

// Status line and headers of an answer. Control characters in the reason or in a value are
// written as blanks, so nothing a handler passes on can start a header line of its own.
struct HttpHeader {
    HttpHeader() = default;
    HttpHeader(std::uint16_t statusCode, std::string reasonPhrase)
        : status(statusCode), reason(std::move(reasonPhrase)) {}

    std::uint16_t status = 0;
    std::string reason;
    std::map<std::int32_t, std::string> knownHeaders;
    std::map<std::string, std::string> otherHeaders;
};

// The answer channel of one request; it belongs to one worker for the request's whole life.
struct IAnswerSender {
    virtual http_server::v3::Request& GetRequest() = 0;
    // Sends status and headers; a second call throws "meta data already sent".
    virtual void SendHeader(const HttpHeader& header) = 0;
    // The body's sink, to use after SendHeader. Each `send` takes all it is given.
    virtual cpp_utils::stream_io::v1::IStreamSender& GetBodySender() = 0;
    virtual ~IAnswerSender() = default;
};

struct IRequestHandler {
    virtual void Handle(IAnswerSender* answer) = 0;
    virtual ~IRequestHandler() = default;
};

}  // namespace ovtx::network::http_server_request_handler::v0
