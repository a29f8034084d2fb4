// The bytes of answer heads: status line, headers, blank line.
#pragma once

#include <string>

#include "network/http_server_request_handler/i_request_handler.h"

namespace ovtx::network::http_server::v3::detail {

// "HTTP/1.1 <status> <reason>", the known headers in the order of their numbers, the other headers
// in the order of their names, then the blank line. Control characters in the reason and the
// values become blanks; characters a header name cannot hold are left out, and a name left empty
// drops its header. Throws Exception "Could not send Http request answer : headers too long" for a
// name or value above 0xFFFF bytes and std::range_error "Invalid HTTP header ID" for a known
// header without a name; a status above 999 fails as the platform's call would.
std::string formatHead(const http_server_request_handler::v0::HttpHeader& header);

// An answer of the server's own with a short text body (404, 400, 431).
std::string plainAnswer(std::uint16_t status, const std::string& reason, bool closing);

// The 401 answer to a request that failed the access check; `challenge` is its WWW-Authenticate.
std::string unauthorizedAnswer(const std::string& challenge, bool closing);

}  // namespace ovtx::network::http_server::v3::detail
