// Heap instances and sessions through DataExchanger, in-process over the fixture tree.
#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "config/abstract_variable/testing/fixture_tree.h"
#include "network/restful_web_service_request_handler/data_exchanger.h"
#include "network/restful_web_service_request_handler/testing/recorded_answer.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {
namespace {

namespace fixture = config::abstract_variable::testing::v1;
using http_server::v3::HttpVerb;
using testing::v0::RecordedAnswer;

constexpr std::int32_t kCapacity = 15;
const std::string kPointInstance =
    R"({"type": {"variety": "struct", "children": [{"name": "X", "type": {"variety": "int32"}},
                                                   {"name": "Y", "type": {"variety": "int32"}}]},
        "value": {"X": 3, "Y": 4}})";

class HeapAndSessionTest : public ::testing::Test {
  protected:
    // The answer's body; a failure gives "<status> <reason>".
    std::string run(HttpVerb verb, const std::string& query, const std::string& body = "",
                    const std::string& path = "/svc") {
        RecordedAnswer answer(verb, path, query, body);
        try {
            m_handler.Handle(&answer);
        } catch (const std::exception&) {
            return std::to_string(answer.header().status) + " " + answer.header().reason;
        }
        return answer.headerSent() ? answer.body() : "nothing sent";
    }
    std::string newInstance() { return run(HttpVerb::Post, "?heap/new", kPointInstance); }

    std::shared_ptr<fixture::FixtureData> m_data =
        std::make_shared<fixture::FixtureData>(fixture::makeFixtureData());
    av::ObjectFactory m_root = fixture::fixtureTree(m_data);
    DataExchanger m_handler{m_root, std::shared_ptr<av::IAbstractObject>(m_root()), "/svc",
                            std::shared_ptr<IOnChangeNotifier>(newNoSaver()), kCapacity};
};

TEST_F(HeapAndSessionTest, HeapInstance_IsReadWrittenAndDeletedLikeAVariable) {
    EXPECT_EQ(newInstance(), "0");
    EXPECT_EQ(run(HttpVerb::Get, "?heap/instances/0/X"), "3\n");
    EXPECT_EQ(run(HttpVerb::Post, "?heap/instances/0/Y", "40"), "\"\"");
    EXPECT_EQ(run(HttpVerb::Get, "?heap/instances/0"), "{\n   \"X\" : 3,\n   \"Y\" : 40\n}\n");
    EXPECT_EQ(run(HttpVerb::Get, "?heap/instances/0/./X?desc"), "{\n   \"variety\" : \"int32\"\n}\n");
    EXPECT_EQ(run(HttpVerb::Get, "?heap/instances/0/Y&postprocessing=md5"),
              "90e2a51705594d033a3abe9d77b2b7ad");
    EXPECT_EQ(run(HttpVerb::Post, "?heap/delete", "0"), "\"\"");
    EXPECT_EQ(run(HttpVerb::Get, "?heap/instances/0/X"), "400 Id '0' does not exist in the heap");
    EXPECT_EQ(run(HttpVerb::Post, "?heap/delete", "0"), "400 Id '0' does not exist in the heap");
    EXPECT_EQ(newInstance(), "1");  // ids are never reused
}

TEST_F(HeapAndSessionTest, Heap_KeepsOneMoreThanItsCapacityAndPushesOutTheOldest) {
    for (std::int32_t id = 0; id <= kCapacity; ++id) {
        EXPECT_EQ(newInstance(), std::to_string(id));
    }
    EXPECT_EQ(run(HttpVerb::Get, "?heap/instances/0/X"), "3\n");
    EXPECT_EQ(newInstance(), std::to_string(kCapacity + 1));
    EXPECT_EQ(run(HttpVerb::Get, "?heap/instances/0/X"), "400 Id '0' does not exist in the heap");
    EXPECT_EQ(run(HttpVerb::Get, "?heap/instances/1/X"), "3\n");
}

TEST_F(HeapAndSessionTest, CallWithHeapReturnFormat_KeepsTheResultInTheHeap) {
    const std::string id = run(HttpVerb::Post, "?call&return_format=HEAP", R"({"X": 1, "Y": 1})", "/svc/Sum");
    EXPECT_EQ(id, "0\n");
    EXPECT_EQ(run(HttpVerb::Get, "?heap/instances/0"), "9\n");
    // A call without the heap format, or from inside the heap, keeps nothing.
    EXPECT_EQ(run(HttpVerb::Post, "?call", R"({"X": 1, "Y": 2})", "/svc/Sum"), "10\n");
    EXPECT_EQ(newInstance(), "1");
}

TEST_F(HeapAndSessionTest, HeapRequests_FailOrStaySilentAsTold) {
    EXPECT_EQ(run(HttpVerb::Get, "?heap/new", kPointInstance), "nothing sent");
    EXPECT_EQ(run(HttpVerb::Get, "?heap/delete", "0"), "nothing sent");
    EXPECT_EQ(run(HttpVerb::Post, "?heap/new", R"({"value": 3})"),
              "400 A new heap instance is described by {\"type\": ..., \"value\": ...}");
    EXPECT_EQ(run(HttpVerb::Post, "?heap/new", R"({"type": {"variety": "int32"}, "value": "x"})"),
              "400 Cannot unserialize json: incorrect type");
    EXPECT_EQ(run(HttpVerb::Post, "?heap/delete", "\"0\""), "400 Cannot unserialize json: incorrect type");
    EXPECT_EQ(run(HttpVerb::Post, "?heap/new", R"({"type": {"variety": "int32"}})"), "0");
    EXPECT_EQ(run(HttpVerb::Get, "?heap/instances/0"), "0\n");
}

TEST_F(HeapAndSessionTest, ChangeLog_ReportsTheVariablesChangedSinceTheLastCall) {
    EXPECT_EQ(run(HttpVerb::Get, "?new_session"), "0");
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&add_monitored_variable=/Text"), "0");
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&add_monitored_variable=/Point"), "1");
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&add_monitored_variable=/Int32"), "2");
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&get_change_log"), "[]\n");
    m_data->text = "changed";
    m_data->point.y = 20;
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&get_change_log"), "[ 0, 1 ]\n");
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&get_change_log"), "[]\n");
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&remove_monitored_variable=1"), "\"\"");
    m_data->point.y = 21;
    m_data->int32 = 0;
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&get_change_log"), "[ 2 ]\n");
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&remove_session"), "\"\"");
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&get_change_log"), "400 '0' is not a valid session id");
}

TEST_F(HeapAndSessionTest, ChangeLog_ReportsAVariableThatGoesAndComesBackOnceEach) {
    run(HttpVerb::Get, "?new_session");
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&add_monitored_variable=/ById/4/X"), "0");
    run(HttpVerb::Delete, "", "", "/svc/ById/4");
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&get_change_log"), "[ 0 ]\n");
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&get_change_log"), "[]\n");
    run(HttpVerb::Put, "", "", "/svc/ById/4");
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&get_change_log"), "[ 0 ]\n");
}

TEST_F(HeapAndSessionTest, SessionCommands_FailWithTheirText) {
    run(HttpVerb::Get, "?new_session");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"?get_change_log", "Session command 'get_change_log' must be used with argument 'session'"},
        {"?add_monitored_variable=/Text",
         "Session command 'add_monitored_variable' must be used with argument 'session'"},
        {"?session=4&remove_session", "'4' is not a valid session id"},
        {"?session=x&remove_session", "'x' is not a valid session id"},
        {"?session=0&add_monitored_variable=/Nope", "No such variable: Nope"},
        {"?session=0&remove_monitored_variable=7", "'7' is not a monitored variable of this session"},
        {"?session=0&new_session&remove_session",
         "Commands : "
         "new_session,remove_session,add_monitored_variable,remove_monitored_variable,get_change_log "
         "are exclusive"},
    };
    for (const auto& [query, text] : cases) {
        EXPECT_EQ(run(HttpVerb::Get, query), "400 " + text) << query;
    }
}

TEST_F(HeapAndSessionTest, TenthSession_PushesOutTheOldest) {
    for (int id = 0; id < 10; ++id) {
        EXPECT_EQ(run(HttpVerb::Get, "?new_session"), std::to_string(id));
    }
    EXPECT_EQ(run(HttpVerb::Get, "?session=0&get_change_log"), "400 '0' is not a valid session id");
    EXPECT_EQ(run(HttpVerb::Get, "?session=1&get_change_log"), "[]\n");
}

TEST_F(HeapAndSessionTest, ConcurrentRequests_EachGetAnIdOfTheirOwn) {
    constexpr int kThreads = 8;
    constexpr int kEach = 25;
    std::mutex mutex;
    std::set<std::string> instances;
    std::set<std::string> sessions;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
            for (int count = 0; count < kEach; ++count) {
                const std::string instance = newInstance();
                const std::string session = run(HttpVerb::Get, "?new_session");
                run(HttpVerb::Get, "?session=" + session + "&add_monitored_variable=/Point");
                std::lock_guard lock(mutex);
                instances.insert(instance);
                sessions.insert(session);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(instances.size(), std::size_t{kThreads * kEach});
    EXPECT_EQ(sessions.size(), std::size_t{kThreads * kEach});
    EXPECT_EQ(newInstance(), std::to_string(kThreads * kEach));
}

}  // namespace
}  // namespace ovtx::network::restful_web_service_request_handler::v0
