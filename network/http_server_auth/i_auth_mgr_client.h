// The access check that the HTTP server runs on each request before a worker sees it.
//
// `Authorize` runs on the server's listener thread, one request at a time; a failure it returns
// becomes a 401 answer with the failure's text as WWW-Authenticate.
//
//   struct OnlyGet : IAuthMgrClient {
//       AuthenticationResult Authorize(const HttpHeaders&, HttpVerb verb) override {
//           if (verb == HttpVerb::Get) return AuthenticationSuccessFul{};
//           return AuthenticationFail{"Basic realm=\"sdi_tap\""};
//       }
//   };
#pragma once

#include "network/http_server/request.h"
#include "network/http_server_auth/i_auth_mgr.h"

namespace ovtx::network::http_server_auth::i_auth_mgr_client::v0 {

struct IAuthMgrClient {
    virtual i_auth_mgr::v1::AuthenticationResult Authorize(const http_server::v3::HttpHeaders& headers,
                                                           http_server::v3::HttpVerb verb) = 0;
    virtual ~IAuthMgrClient() = default;
};

}  // namespace ovtx::network::http_server_auth::i_auth_mgr_client::v0
