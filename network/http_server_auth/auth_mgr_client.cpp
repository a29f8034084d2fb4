#include "network/http_server_auth/auth_mgr_client.h"

#include <json/json.h>
#include <curlpp/Easy.hpp>
#include <curlpp/Options.hpp>
#include <curlpp/cURLpp.hpp>

#include <list>
#include <sstream>
#include <stdexcept>

namespace ovtx::network::http_server_auth::auth_mgr_client::v3 {

namespace {

using i_auth_mgr::v1::AuthenticationFail;
using i_auth_mgr::v1::AuthenticationParams;
using i_auth_mgr::v1::AuthenticationResult;
using i_auth_mgr::v1::AuthenticationSuccessFul;

constexpr long kTimeoutSeconds = 10;

std::string callBody(const AuthenticationParams& params) {
    Json::Value call(Json::objectValue);
    call["Authorization"] = params.Authorization;
    call["Verb"] = static_cast<int>(params.Verb);
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    return Json::writeString(compact, call);
}

AuthenticationResult resultOf(const std::string& text) {
    Json::Value answer;
    std::string errors;
    std::istringstream in(text);
    if (!Json::parseFromStream(Json::CharReaderBuilder(), in, &answer, &errors) || !answer.isObject()) {
        throw std::runtime_error("Access check: not a JSON object: " + text);
    }
    const std::string tag = answer.get("_type_", "").asString();
    const Json::Value& value = answer["_value_"][tag];
    if (tag == AuthenticationFail::kTag) {
        return AuthenticationFail{value.get("ResponseHeader", "").asString()};
    }
    if (tag == AuthenticationSuccessFul::kTag) {
        return AuthenticationSuccessFul{};
    }
    throw std::runtime_error("internal assertion failure");
}

}  // namespace

AuthenticationResult DummyAuthMgrClient::Authorize(const http_server::v3::HttpHeaders&,
                                                   http_server::v3::HttpVerb) {
    return AuthenticationSuccessFul{};
}

std::unique_ptr<i_auth_mgr_client::v0::IAuthMgrClient> alwaysSuccessfulAuthMgr() {
    return std::make_unique<DummyAuthMgrClient>();
}

AuthMgrClient::AuthMgrClient(std::string host, int port)
    : m_url(std::move(host) + ":" + std::to_string(port) + "/AuthMgrHost/IsAuthorized?call") {}

AuthenticationResult AuthMgrClient::Authorize(const http_server::v3::HttpHeaders& headers,
                                              http_server::v3::HttpVerb verb) {
    AuthenticationParams params;
    params.Verb = verb;
    if (const std::string* authorization = http_server::v3::findHeader(headers, "Authorization")) {
        params.Authorization = *authorization;
    }
    const std::string body = callBody(params);
    std::ostringstream answer;
    try {
        curlpp::Easy request;
        request.setOpt(curlpp::options::Url(m_url));
        request.setOpt(curlpp::options::HttpHeader(std::list<std::string>{"Content-Type: application/json"}));
        request.setOpt(curlpp::options::PostFields(body));
        request.setOpt(curlpp::options::PostFieldSize(static_cast<long>(body.size())));
        request.setOpt(curlpp::options::Timeout(kTimeoutSeconds));
        request.setOpt(curlpp::options::NoSignal(true));
        request.setOpt(curlpp::options::FailOnError(true));
        request.setOpt(curlpp::options::WriteStream(&answer));
        request.perform();
    } catch (const curlpp::RuntimeError& e) {
        throw std::runtime_error(std::string("Access check at ") + m_url + " failed: " + e.what());
    } catch (const curlpp::LogicError& e) {
        throw std::runtime_error(std::string("Access check at ") + m_url + " failed: " + e.what());
    }
    return resultOf(answer.str());
}

}  // namespace ovtx::network::http_server_auth::auth_mgr_client::v3
