// One HTTP request as a request handler sees it.
//
// The server fills a `Request` from the request line and headers as they arrived; the body stays
// on the connection and is read on the handler's own thread, piece by piece, through `body`:
//
//   const Request& request = answer->GetRequest();
//   if (request.verb == HttpVerb::Post) {
//       std::uint8_t buffer[1000];
//       while (std::size_t got = request.body->receive(buffer, sizeof buffer)) store(buffer, got);
//   }
//
// `path` is the percent-decoded absolute path with "." and ".." segments resolved; `query` is the
// rest of the target from its "?" on (empty when there is none) and is not decoded.
#pragma once

#include <algorithm>
#include <cctype>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cpp_utils/stream_io/stream_io.h"

namespace ovtx::network::http_server::v3 {

// Request methods, numbered as the platform's HTTP service numbers them.
enum class HttpVerb : int {
    Unparsed = 0,
    Unknown = 1,  // any method without a number of its own
    Invalid = 2,
    Options = 3,
    Get = 4,
    Head = 5,
    Post = 6,
    Put = 7,
    Delete = 8,
    Trace = 9,
    Connect = 10,
    Track = 11,
    Move = 12,
    Copy = 13,
    Propfind = 14,
    Proppatch = 15,
    Mkcol = 16,
    Lock = 17,
    Unlock = 18,
    Search = 19,
};

// Header fields in arrival order, names as the client spelled them.
using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

// The value of the first field named `name` (compared without regard to case), or null.
inline const std::string* findHeader(const HttpHeaders& headers, std::string_view name) {
    const auto sameName = [&](const auto& field) {
        return std::equal(
            field.first.begin(), field.first.end(), name.begin(), name.end(),
            [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
    };
    const auto found = std::find_if(headers.begin(), headers.end(), sameName);
    return found == headers.end() ? nullptr : &found->second;
}

struct Request {
    std::string path;
    std::string query;
    HttpVerb verb = HttpVerb::Unparsed;
    HttpHeaders headers;
    // Reads the body: each call returns the bytes it delivered, 0 at the end of the body. Throws
    // "incomplete http request" when the client goes away or stays silent too long mid-body, or
    // when the server stops.
    std::unique_ptr<cpp_utils::stream_io::v1::IStreamReceiver> body;
};

}  // namespace ovtx::network::http_server::v3
