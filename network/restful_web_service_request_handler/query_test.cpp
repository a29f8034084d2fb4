#include "network/restful_web_service_request_handler/query.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/expect_failure.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {
namespace {

using http_server::v3::HttpVerb;
using test_support::v1::expectFailure;

struct CommandCase {
    std::string query;
    HttpVerb verb;
    QueryCommand command;
    DataFormat parameterFormat;
    DataFormat returnFormat;
};

TEST(QueryTest, CommandsAndFormats_AfterTheVerbDefaults) {
    const std::vector<CommandCase> cases = {
        {"", HttpVerb::Get, QueryCommand::get, DataFormat::json, DataFormat::json},
        {"", HttpVerb::Post, QueryCommand::load, DataFormat::json, DataFormat::json},
        {"?", HttpVerb::Get, QueryCommand::get, DataFormat::json, DataFormat::json},
        {"?size&get", HttpVerb::Get, QueryCommand::size, DataFormat::json, DataFormat::json},
        {"?get&size", HttpVerb::Get, QueryCommand::get, DataFormat::json, DataFormat::json},
        {"?set", HttpVerb::Post, QueryCommand::set, DataFormat::json, DataFormat::json},
        {"?format=raw", HttpVerb::Post, QueryCommand::load, DataFormat::raw, DataFormat::json},
        {"?format=raw", HttpVerb::Get, QueryCommand::get, DataFormat::json, DataFormat::raw},
        {"?format=raw", HttpVerb::Head, QueryCommand::get, DataFormat::json, DataFormat::raw},
        {"?format=json", HttpVerb::Get, QueryCommand::get, DataFormat::json, DataFormat::json},
        {"?format=raw&return_format=HEAP", HttpVerb::Post, QueryCommand::load, DataFormat::raw,
         DataFormat::heap},
        {"?return_format=raw&return_format=HEAP", HttpVerb::Get, QueryCommand::get, DataFormat::json,
         DataFormat::raw},
        {"?format=raw&parameter_format=multipart_form-data", HttpVerb::Get, QueryCommand::get,
         DataFormat::multipartFormData, DataFormat::raw},
        {"?call&a/b&x=y", HttpVerb::Post, QueryCommand::call, DataFormat::json, DataFormat::json},
        {"?resize&&", HttpVerb::Post, QueryCommand::resize, DataFormat::json, DataFormat::json},
    };
    for (const CommandCase& test : cases) {
        Query query = parseQuery(test.query);
        applyVerbDefaults(query, test.verb);
        EXPECT_EQ(query.command, test.command) << test.query;
        EXPECT_EQ(query.parameterFormat, test.parameterFormat) << test.query;
        EXPECT_EQ(query.returnFormat, test.returnFormat) << test.query;
    }
}

TEST(QueryTest, ValueOptions_TakeTheTextBehindTheirEqualSign) {
    const Query query = parseQuery(
        "?session=12&add_monitored_variable=/Point/X&remove_monitored_variable=3&filter=function&filter=data&"
        "postprocessing=md5&new_session&get_change_log&remove_session");
    EXPECT_EQ(query.session, "12");
    EXPECT_EQ(query.addMonitoredVariable, "/Point/X");
    EXPECT_EQ(query.removeMonitoredVariable, "3");
    EXPECT_EQ(query.filters, (std::vector<std::string>{"data", "function"}));
    EXPECT_EQ(query.postProcessing, PostProcessing::md5);
    EXPECT_TRUE(query.newSession && query.getChangeLog && query.removeSession);
    EXPECT_EQ(sessionCommandCount(query), 5);
    EXPECT_FALSE(query.commandGiven);

    const Query unknownWords = parseQuery("?postprocessing=sha1&filter=&format=xml");
    EXPECT_FALSE(unknownWords.postProcessingGiven || unknownWords.filtersGiven || unknownWords.formatGiven);
    EXPECT_EQ(parseQuery("?session=").session, "");
}

TEST(QueryTest, MalformedOptions_FailWithTheirText) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"?ab", "unknown query: ab"},
        {"?get&GET", "unknown query: GET"},
        {"?sessions=1", "Option session should be followed by '='"},
        {"?session/1", "Option session should be followed by '='"},
        {"?add_monitored_variable/x", "Option add_monitored_variable should be followed by '='"},
        {"?heap/instances/1/A?bogus", "unknown query: bogus"},
    };
    for (const auto& [text, failure] : cases) {
        expectFailure([&] { parseQuery(text); }, failure);
    }
}

TEST(QueryTest, HeapOptions_GiveTheirAlternative) {
    EXPECT_TRUE(std::holds_alternative<HeapNew>(parseQuery("?heap/new").heap));
    EXPECT_TRUE(std::holds_alternative<HeapDelete>(parseQuery("?heap/delete").heap));

    struct Case {
        std::string option;
        std::int32_t id;
        std::string path;
        bool commandGiven;
    };
    const std::vector<Case> cases = {
        {"heap/instances/3", 3, "", false},
        {"heap/instances/3/A/./B?size", 3, "/A/B", true},
        {"heap/instances/12/a.b//c", 12, "/ab/c", false},
        {"heap/instances/0/.?get", 0, "", true},
    };
    for (const Case& test : cases) {
        const Query query = parseQuery("?" + test.option);
        ASSERT_TRUE(query.heapGiven) << test.option;
        const auto& instance = std::get<HeapInstance>(query.heap);
        EXPECT_EQ(instance.id, test.id) << test.option;
        EXPECT_EQ(instance.path, test.path) << test.option;
        EXPECT_EQ(instance.commandGiven, test.commandGiven) << test.option;
    }
    EXPECT_EQ(std::get<HeapInstance>(parseQuery("?heap/instances/3/A?size").heap).command,
              QueryCommand::size);

    for (const std::string dropped : {"heap/instance/3", "heap/instances/x", "heap/instances", "heap/old"}) {
        EXPECT_FALSE(parseQuery("?" + dropped).heapGiven) << dropped;
    }
}

}  // namespace
}  // namespace ovtx::network::restful_web_service_request_handler::v0
