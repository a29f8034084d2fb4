// What an access check answers, and what a remote access service is asked.
//
// The result is one of two alternatives: `AuthenticationFail`, with the text that goes to the
// client as the WWW-Authenticate header of a 401 answer, or `AuthenticationSuccessFul`.
//
//   AuthenticationResult result = AuthenticationFail{"Basic realm=\"sdi_tap\""};
//   if (auto* fail = std::get_if<AuthenticationFail>(&result)) challenge = fail->ResponseHeader;
#pragma once

#include <string>
#include <variant>

#include "network/http_server/request.h"

namespace ovtx::network::http_server_auth::i_auth_mgr::v1 {

struct AuthenticationFail {
    static constexpr const char* kTag = "AUTHFAIL";
    std::string ResponseHeader;
};

struct AuthenticationSuccessFul {
    static constexpr const char* kTag = "AUTHSUCCESSFUL";
};

// The alternative's index is its tag: 0 fail, 1 success.
using AuthenticationResult = std::variant<AuthenticationFail, AuthenticationSuccessFul>;

// What a remote access service is told of a request.
struct AuthenticationParams {
    std::string Authorization;  // the request's Authorization header, empty when there is none
    http_server::v3::HttpVerb Verb = http_server::v3::HttpVerb::Unparsed;
};

}  // namespace ovtx::network::http_server_auth::i_auth_mgr::v1
