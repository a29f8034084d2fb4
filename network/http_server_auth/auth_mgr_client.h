// Access checks: one that lets everything through, and a client of a remote access service.
//
// The daemon serves its status to every local client:
//
//   RequestsSource source(&logger, url, std::move(handler), 32, alwaysSuccessfulAuthMgr());
//
// `AuthMgrClient` asks an access service over HTTP instead: it posts the request's Authorization
// header and verb as JSON to "<host>:<port>/AuthMgrHost/IsAuthorized?call" and reads back the
// result in the JSON form of a union ({"_type_": "AUTHFAIL", "_value_": {"AUTHFAIL":
// {"ResponseHeader": "..."}}}). A service that cannot be reached, or an answer of another form,
// raises a failure; the server then logs it and answers nothing to that request.
#pragma once

#include <memory>
#include <string>

#include "network/http_server_auth/i_auth_mgr_client.h"

namespace ovtx::network::http_server_auth::auth_mgr_client::v3 {

class DummyAuthMgrClient : public i_auth_mgr_client::v0::IAuthMgrClient {
  public:
    i_auth_mgr::v1::AuthenticationResult Authorize(const http_server::v3::HttpHeaders& headers,
                                                   http_server::v3::HttpVerb verb) override;
};

std::unique_ptr<i_auth_mgr_client::v0::IAuthMgrClient> alwaysSuccessfulAuthMgr();

class AuthMgrClient : public i_auth_mgr_client::v0::IAuthMgrClient {
  public:
    // `host` may carry a scheme ("http://auth.local"); without one, HTTP is meant.
    AuthMgrClient(std::string host, int port);

    i_auth_mgr::v1::AuthenticationResult Authorize(const http_server::v3::HttpHeaders& headers,
                                                   http_server::v3::HttpVerb verb) override;

    const std::string& url() const { return m_url; }

  private:
    std::string m_url;
};

}  // namespace ovtx::network::http_server_auth::auth_mgr_client::v3
