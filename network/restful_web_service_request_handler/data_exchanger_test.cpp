// The roads of a request through DataExchanger, in-process over the fixture tree.
#include "network/restful_web_service_request_handler/data_exchanger.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "config/abstract_variable/testing/fixture_tree.h"
#include "network/restful_web_service_request_handler/testing/recorded_answer.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {
namespace {

namespace fixture = config::abstract_variable::testing::v1;
using http_server::v3::HttpVerb;
using testing::v0::RecordedAnswer;

struct CountingNotifier : IOnChangeNotifier {
    void OnChange() override { ++changes; }
    std::atomic<int> changes = 0;
};

class DataExchangerTest : public ::testing::Test {
  protected:
    struct Result {
        int status = 0;
        std::string reason;
        std::string body;
        std::string failure;  // what the handler raised for the server
    };

    Result run(HttpVerb verb, const std::string& path, const std::string& query,
               const std::string& body = "") {
        RecordedAnswer answer(verb, path, query, body);
        Result result;
        try {
            m_handler.Handle(&answer);
        } catch (const std::exception& failure) {
            result.failure = failure.what();
        }
        result.status = answer.header().status;
        result.reason = answer.header().reason;
        result.body = answer.body();
        return result;
    }
    std::string get(const std::string& path, const std::string& query = "") {
        const Result result = run(HttpVerb::Get, path, query);
        EXPECT_EQ(result.status, 200) << path << query << ": " << result.body;
        return result.body;
    }

    std::shared_ptr<fixture::FixtureData> m_data =
        std::make_shared<fixture::FixtureData>(fixture::makeFixtureData());
    av::ObjectFactory m_root = fixture::fixtureTree(m_data);
    std::shared_ptr<CountingNotifier> m_notifier = std::make_shared<CountingNotifier>();
    DataExchanger m_handler{m_root, std::shared_ptr<av::IAbstractObject>(m_root()), "/svc/", m_notifier, 15};
};

struct RoadCase {
    HttpVerb verb;
    std::string path;
    std::string query;
    std::string body;
    std::string answer;
};

TEST_F(DataExchangerTest, Requests_AnswerWhatTheQueryAsks) {
    const std::vector<RoadCase> cases = {
        {HttpVerb::Get, "/svc/Int32", "", "", "7\n"},
        {HttpVerb::Get, "/svc/Point/X/", "?get", "", "1\n"},
        {HttpVerb::Get, "/svc/Points/2/Y", "", "", "6\n"},
        {HttpVerb::Get, "/svc/Colour", "", "", "\"Green\"\n"},
        {HttpVerb::Get, "/svc/Points", "?size", "", "2\n"},
        {HttpVerb::Get, "/svc/ById", "?elements", "", "[ 4 ]\n"},
        {HttpVerb::Get, "/svc/Points/Idx/X", "?desc", "", "{\n   \"variety\" : \"int32\"\n}\n"},
        {HttpVerb::Get, "/svc/Text", "?format=raw", "", "hello"},
        {HttpVerb::Get, "/svc/File", "?return_format=raw", "", "abc"},
        {HttpVerb::Get, "/svc/Text", "?postprocessing=md5", "", "77f088caf896bc2be55af5cdf8e860ae"},
        {HttpVerb::Post, "/svc/Sum", "?call", R"({"X": 1, "Y": 2})", "10\n"},
        {HttpVerb::Post, "/svc/Text", "?set", "\"bye\"", "\"\""},
        {HttpVerb::Post, "/svc/Text", "?format=raw", "raw text", "\"\""},
        {HttpVerb::Post, "/svc/Points", "?resize", "3", "\"\""},
        {HttpVerb::Post, "/svc/Points", "?insert", R"({"X": 8, "Y": 9})", "4\n"},
        {HttpVerb::Post, "/svc/Channels", "?insert", R"({"Name": "spare", "Colour": "Blue"})", "1\n"},
        {HttpVerb::Delete, "/svc/ById/4", "", "", ""},
        {HttpVerb::Put, "/svc/ById/9", "", "", ""},
    };
    for (const RoadCase& test : cases) {
        const Result result = run(test.verb, test.path, test.query, test.body);
        EXPECT_EQ(result.status, 200) << test.path << test.query << ": " << result.body;
        EXPECT_EQ(result.body, test.answer) << test.path << test.query;
    }
    EXPECT_EQ(m_data->text, "raw text");
    ASSERT_EQ(m_data->points.size(), 4u);
    EXPECT_EQ(m_data->points[3], (fixture::Point{8, 9}));
    EXPECT_EQ(m_data->channels.get(1).first.name, "spare");
    EXPECT_EQ(m_data->byId.size(), 1u);
    EXPECT_TRUE(m_data->byId.contains(9));
}

TEST_F(DataExchangerTest, FilterOfAVariety_GivesNullAndKeepsTheMember) {
    const std::string root = get("/svc", "?filter=function&filter=data");
    EXPECT_NE(root.find("\"Sum\" : null"), std::string::npos) << root;
    EXPECT_NE(root.find("\"Blob\" : null"), std::string::npos) << root;
    EXPECT_NE(root.find("\"Text\" : \"hello\""), std::string::npos) << root;
}

TEST_F(DataExchangerTest, WritingRequests_TellTheNotifierAndReadsDoNot) {
    get("/svc/Point");
    get("/svc/Points", "?size");
    EXPECT_EQ(m_notifier->changes, 0);
    run(HttpVerb::Post, "/svc/Int32", "", "8");
    run(HttpVerb::Delete, "/svc/ById/4", "");
    run(HttpVerb::Post, "/svc/Int32", "", "\"not a number\"");  // fails before any change
    EXPECT_EQ(m_notifier->changes, 2);
    EXPECT_EQ(m_data->int32, 8);
}

struct FailureCase {
    HttpVerb verb;
    std::string path;
    std::string query;
    std::string body;
    int status;
    std::string text;
};

TEST_F(DataExchangerTest, Failures_Answer400WithTheirTextAndRaiseItForTheServer) {
    const std::vector<FailureCase> cases = {
        {HttpVerb::Get, "/other/Int32", "", "", 400, "Invalid resource: /other/Int32"},
        {HttpVerb::Get, "/svcInt32", "", "", 400, "Invalid resource: /svcInt32"},
        {HttpVerb::Get, "/svc/Points/7", "", "", 404, "Invalid element index"},
        {HttpVerb::Get, "/svc/Nope", "", "", 400, "No such variable: Nope"},
        {HttpVerb::Get, "/svc/Int32", "?resize", "", 400, "not implemented"},
        {HttpVerb::Get, "/svc/Int32", "?parameter_format=HEAP", "", 400, "invalid data format"},
        {HttpVerb::Get, "/svc/Int32", "?parameter_format=multipart_form-data", "", 400,
         "operation not supported"},
        {HttpVerb::Get, "/svc/Int32", "?return_format=multipart_form-data", "", 400, "invalid return format"},
        {HttpVerb::Post, "/svc/Int32", "?call", "", 400, "cannot convert union to given type"},
        {HttpVerb::Get, "/svc/Int32", "?format=raw", "", 400, "Operation not supported"},
        {HttpVerb::Post, "/svc/Locked", "?set", "5", 400, "cannot unserialize read only variable"},
        {HttpVerb::Post, "/svc/Fixed", "?resize", "5", 400, "resize is not allowed"},
        {HttpVerb::Delete, "svc", "", "", 400, "Invalid map path"},
        {HttpVerb::Delete, "/svc/ById/", "", "", 400, "Invalid map path"},
        {HttpVerb::Delete, "/svc/ById/x1", "", "", 400, "Invalid map path"},
        {HttpVerb::Delete, "/svc/Point/1", "", "", 400, "Operation not supported"},
        {HttpVerb::Get, "/svc", "?new_session&get_change_log", "", 400,
         "Commands : "
         "new_session,remove_session,add_monitored_variable,remove_monitored_variable,get_change_log "
         "are exclusive"},
    };
    for (const FailureCase& test : cases) {
        const Result result = run(test.verb, test.path, test.query, test.body);
        EXPECT_EQ(result.status, test.status) << test.path << test.query;
        EXPECT_EQ(result.reason, test.text) << test.path << test.query;
        EXPECT_EQ(result.body, test.text) << test.path << test.query;
        EXPECT_TRUE(result.failure.starts_with("Could not process request: ")) << result.failure;
    }
    EXPECT_EQ(run(HttpVerb::Get, "/svc/Points/7", "").failure,
              "Could not process request: invalid vector<T> subscript");
    EXPECT_EQ(m_data->byId.size(), 1u);
}

TEST_F(DataExchangerTest, ElementRoad_AnswersPlainText) {
    RecordedAnswer answer(HttpVerb::Delete, "/svc/ById/4", "");
    m_handler.Handle(&answer);
    EXPECT_EQ(answer.header().knownHeaders.at(http_server_request_handler::v0::HttpHeaderContentType),
              "text/plain");
    EXPECT_TRUE(m_data->byId.empty());
}

}  // namespace
}  // namespace ovtx::network::restful_web_service_request_handler::v0
