// The REST answers as a client receives them over real HTTP: status line, reason, headers,
// chunks and bodies.
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>
#include <vector>

#include "config/abstract_variable/testing/fixture_tree.h"
#include "network/http_server/testing/http_test_client.h"
#include "network/http_server/testing/test_server.h"
#include "network/restful_web_service_request_handler/data_exchanger.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {
namespace {

namespace fixture = config::abstract_variable::testing::v1;
using http_server::v3::testing::exchange;
using http_server::v3::testing::TestServer;

std::string chunked(const std::string& body) {
    char size[16];
    std::snprintf(size, sizeof size, "%zx", body.size());
    return size + std::string("\r\n") + body + "\r\n0\r\n\r\n";
}

std::string head(const std::string& status, const std::string& contentType) {
    return "HTTP/1.1 " + status +
           "\r\nCache-Control: no-cache\r\nTransfer-Encoding: chunked\r\nContent-Type: " + contentType +
           "\r\nAccess-Control-Allow-Origin: *\r\n\r\n";
}

class DataExchangerWireTest : public ::testing::Test {
  protected:
    std::shared_ptr<fixture::FixtureData> m_data =
        std::make_shared<fixture::FixtureData>(fixture::makeFixtureData());
    av::ObjectFactory m_root = fixture::fixtureTree(m_data);
    TestServer m_server{
        std::make_unique<DataExchanger>(m_root, std::shared_ptr<av::IAbstractObject>(m_root()), "/svc",
                                        std::shared_ptr<IOnChangeNotifier>(newNoSaver()), 15)};

    std::string request(const std::string& verb, const std::string& target, const std::string& body = "") {
        std::string text = verb + " " + target + " HTTP/1.1\r\nHost: t\r\n";
        if (!body.empty()) {
            text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
        }
        return exchange(m_server.port(), text + "\r\n" + body);
    }
};

TEST_F(DataExchangerWireTest, GetOfAVariable_Answers200WithItsJsonInChunks) {
    EXPECT_EQ(request("GET", "/svc/Point"),
              head("200 OK", "application/json") + chunked("{\n   \"X\" : 1,\n   \"Y\" : 2\n}\n"));
}

TEST_F(DataExchangerWireTest, Failures_AnswerTheirTextAsReasonAndBody) {
    struct Case {
        std::string target;
        std::string status;
        std::string text;
    };
    const std::vector<Case> cases = {
        {"/svc/Nope", "400", "No such variable: Nope"},
        {"/svc/Points/9", "404", "Invalid element index"},
        {"/other/Point", "404", ""},  // outside the bound path: the server's own answer
        {"/svc/Point?bogus", "400", "unknown query: bogus"},
    };
    for (const Case& test : cases) {
        const std::string answer = request("GET", test.target);
        if (test.text.empty()) {
            EXPECT_TRUE(answer.starts_with("HTTP/1.1 " + test.status)) << answer;
            continue;
        }
        EXPECT_EQ(answer, head(test.status + " " + test.text, "application/json") + chunked(test.text))
            << test.target;
    }
}

TEST_F(DataExchangerWireTest, WritesOverTheWire_ChangeTheTreeAndAnswerAsTold) {
    EXPECT_EQ(request("POST", "/svc/Text?set", "\"over the wire\""),
              head("200 OK", "application/json") + chunked("\"\""));
    EXPECT_EQ(m_data->text, "over the wire");
    EXPECT_EQ(request("DELETE", "/svc/ById/4"), head("200 OK", "text/plain") + "0\r\n\r\n");
    EXPECT_EQ(request("GET", "/svc/ById?elements"), head("200 OK", "application/json") + chunked("[]\n"));
    const std::string large(5000, 'x');
    EXPECT_EQ(request("POST", "/svc/Text?format=raw", large),
              head("200 OK", "application/json") + chunked("\"\""));
    EXPECT_EQ(m_data->text, large);
}

TEST_F(DataExchangerWireTest, ClientsAtOnce_EachGetTheWholeTree) {
    const std::string expected = request("GET", "/svc?filter=data");
    ASSERT_TRUE(expected.starts_with("HTTP/1.1 200 OK")) << expected;
    std::vector<std::future<std::string>> answers;
    for (int client = 0; client < 8; ++client) {
        answers.push_back(
            std::async(std::launch::async, [this] { return request("GET", "/svc?filter=data"); }));
    }
    for (auto& answer : answers) {
        EXPECT_EQ(answer.get(), expected);
    }
}

TEST_F(DataExchangerWireTest, HeapNewOnGet_LeavesTheAnswerToTheServer) {
    const std::string text = "the server did not fill the response properly";
    EXPECT_EQ(request("GET", "/svc?heap/new"),
              "HTTP/1.1 400 Could not process request\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked(text));
}

}  // namespace
}  // namespace ovtx::network::restful_web_service_request_handler::v0
