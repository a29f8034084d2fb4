#include "network/http_server_auth/auth_mgr_client.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <future>
#include <string>
#include <variant>

#include "network/http_server/testing/http_test_client.h"
#include "network/http_server/testing/test_server.h"

namespace ovtx::network::http_server_auth::auth_mgr_client::v3 {
namespace {

using http_server::v3::HttpVerb;
using http_server::v3::testing::HttpTestClient;
using http_server::v3::testing::TestServer;
using http_server_request_handler::v0::HttpHeader;
using http_server_request_handler::v0::IAnswerSender;
using i_auth_mgr::v1::AuthenticationFail;

const std::string kFail =
    R"({"_type_": "AUTHFAIL", "_value_": {"AUTHFAIL": {"ResponseHeader": "Basic realm=\"x\""}}})";
const std::string kSuccess = R"({"_type_": "AUTHSUCCESSFUL", "_value_": {"AUTHSUCCESSFUL": {}}})";

// An access service that answers every call with `answer` and reports what it was asked.
class AccessService {
  public:
    explicit AccessService(std::string answer)
        : m_server(
              [this, answer](IAnswerSender& a) {
                  auto& request = a.GetRequest();
                  std::string body(256, '\0');
                  body.resize(
                      request.body->receive(reinterpret_cast<std::uint8_t*>(body.data()), body.size()));
                  m_calls.set_value(request.path + request.query + " " +
                                    std::to_string(static_cast<int>(request.verb)) + " " + body);
                  a.SendHeader(HttpHeader(200, "OK"));
                  a.GetBodySender().send(reinterpret_cast<const std::uint8_t*>(answer.data()), answer.size());
              },
              {.path = "/AuthMgrHost", .workers = 1}) {}

    AuthMgrClient client() { return AuthMgrClient("127.0.0.1", m_server.port()); }
    std::string call() { return m_calls.get_future().get(); }

  private:
    std::promise<std::string> m_calls;
    TestServer m_server;
};

TEST(AuthMgrClientTest, ServiceAnswers_BecomeTheResult) {
    AccessService failing(kFail);
    const auto result =
        failing.client().Authorize({{"authorization", "Basic dTpw"}, {"Host", "h"}}, HttpVerb::Post);
    ASSERT_TRUE(std::holds_alternative<AuthenticationFail>(result));
    EXPECT_EQ(std::get<AuthenticationFail>(result).ResponseHeader, "Basic realm=\"x\"");
    EXPECT_EQ(failing.call(), R"(/AuthMgrHost/IsAuthorized?call 6 {"Authorization":"Basic dTpw","Verb":6})");

    AccessService succeeding(kSuccess);
    EXPECT_EQ(succeeding.client().Authorize({}, HttpVerb::Get).index(), 1u);
    EXPECT_EQ(alwaysSuccessfulAuthMgr()->Authorize({}, HttpVerb::Delete).index(), 1u);
}

TEST(AuthMgrClientTest, UnusableAnswers_Fail) {
    AccessService unknownTag(R"({"_type_": "MAYBE", "_value_": {}})");
    EXPECT_THROW(unknownTag.client().Authorize({}, HttpVerb::Get), std::runtime_error);
    AccessService notJson("<html>");
    EXPECT_THROW(notJson.client().Authorize({}, HttpVerb::Get), std::runtime_error);
    EXPECT_THROW(AuthMgrClient("127.0.0.1", 1).Authorize({}, HttpVerb::Get), std::runtime_error);
}

TEST(AuthMgrClientTest, ServerWithRemoteCheck_AnswersItsFailureWith401) {
    AccessService service(kFail);
    TestServer server([](IAnswerSender& a) { a.SendHeader(HttpHeader(200, "OK")); },
                      {.authorisation = std::make_unique<AuthMgrClient>(service.client())});
    HttpTestClient client(server.port());
    client.send("GET /svc HTTP/1.1\r\nAuthorization: Basic bad\r\n\r\n");
    EXPECT_EQ(
        client.readAnswer(),
        "HTTP/1.1 401 Unauthorized\r\nContent-Length: 0\r\nWWW-Authenticate: Basic realm=\"x\"\r\n\r\n");
    EXPECT_EQ(service.call(), R"(/AuthMgrHost/IsAuthorized?call 6 {"Authorization":"Basic bad","Verb":4})");
}

}  // namespace
}  // namespace ovtx::network::http_server_auth::auth_mgr_client::v3
