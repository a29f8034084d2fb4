// The web service assembled, over real HTTP on a free loopback port: serving, the state file and
// its saver, the log prefix, start failures and the stop.
#include "network/restful_web_service/abstract_object_web_service.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "config/abstract_variable/declaration.h"
#include "log/testing/capturing_logger.h"
#include "network/http_server/testing/http_test_client.h"
#include "network/http_server_auth/auth_mgr_client.h"
#include "testing/files.h"
#include "testing/shm.h"

namespace {

namespace av = ovtx::config::abstract_variable::lib_abstract_variable::v2;
using ovtx::log::log_perf::v4::testing::CapturingLogger;
namespace http_testing = ovtx::network::http_server::v3::testing;
using ovtx::network::http_server_auth::auth_mgr_client::v3::alwaysSuccessfulAuthMgr;
using ovtx::network::restful_web_service::v3::AbstractObjectWebService;
using ovtx::test_support::v1::eventually;
using ovtx::test_support::v1::readFileBytes;
using ovtx::test_support::v1::uniqueName;
using namespace std::chrono_literals;

struct Studio {
    std::string name = "studio 1";
    std::int32_t level = 3;
};

av::ObjectFactory studioTree(const std::shared_ptr<Studio>& studio) {
    static const auto kDeclaration =
        av::StructDeclaration<Studio>().field("Name", &Studio::name).field("Level", &Studio::level).build();
    return kDeclaration.factory(studio);
}

std::size_t threadCount() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        ++count;
    }
    return count;
}

class AbstractObjectWebServiceTest : public ::testing::Test {
  protected:
    AbstractObjectWebServiceTest()
        : m_dir(std::filesystem::temp_directory_path() / uniqueName("sdi_tap_web_service_")) {
        std::filesystem::create_directories(m_dir);
    }
    ~AbstractObjectWebServiceTest() override { std::filesystem::remove_all(m_dir); }

    std::unique_ptr<AbstractObjectWebService> start(const std::shared_ptr<Studio>& studio,
                                                    const std::string& stateFile,
                                                    const std::string& path = "/studio") {
        return std::make_unique<AbstractObjectWebService>(&m_logger, studioTree(studio), "http://127.0.0.1:0",
                                                          path, stateFile, false, alwaysSuccessfulAuthMgr(),
                                                          15, 4, false);
    }
    static std::string get(std::uint16_t port, const std::string& target) {
        const std::string answer =
            http_testing::exchange(port, "GET " + target + " HTTP/1.1\r\nHost: t\r\n\r\n");
        return answer.substr(answer.find("\r\n\r\n") + 4);
    }
    static std::string post(std::uint16_t port, const std::string& target, const std::string& body) {
        const std::string answer =
            http_testing::exchange(port, "POST " + target + " HTTP/1.1\r\nHost: t\r\nContent-Length: " +
                                             std::to_string(body.size()) + "\r\n\r\n" + body);
        return answer.substr(0, answer.find("\r\n"));
    }
    std::string stateFile() const { return (m_dir / "studio").string(); }

    std::filesystem::path m_dir;
    CapturingLogger m_logger;
};

TEST_F(AbstractObjectWebServiceTest, ServiceUrl_IsTheBaseAndThePathJoined) {
    auto studio = std::make_shared<Studio>();
    auto service = start(studio, "", "/sdi_tap/4K");
    EXPECT_EQ(get(service->port(), "/sdi_tap/4K/Name"), "b\r\n\"studio 1\"\n\r\n0\r\n\r\n");
    EXPECT_EQ(post(service->port(), "/sdi_tap/4K/Level", "9"), "HTTP/1.1 200 OK");
    EXPECT_EQ(studio->level, 9) << "the service writes the data behind the factory's tree";
}

TEST_F(AbstractObjectWebServiceTest, NoStateFileName_ReadsAndWritesNoFileAndRunsNoSaver) {
    const std::size_t before = threadCount();
    auto withoutFile = start(std::make_shared<Studio>(), "");
    const std::size_t withoutSaver = threadCount() - before;
    auto withFile = start(std::make_shared<Studio>(), stateFile(), "/other");
    EXPECT_EQ(threadCount() - before - withoutSaver, withoutSaver + 1)
        << "one saving thread, only with a file";

    EXPECT_EQ(post(withoutFile->port(), "/studio/Level", "4"), "HTTP/1.1 200 OK");
    withoutFile.reset();
    EXPECT_FALSE(std::filesystem::exists(".state"));
    EXPECT_FALSE(std::filesystem::exists(stateFile() + ".state")) << "a change without a file name was saved";
}

TEST_F(AbstractObjectWebServiceTest, Changes_ReachTheStateFileAndTheNextServiceLoadsIt) {
    {
        auto studio = std::make_shared<Studio>();
        auto service = start(studio, stateFile());
        EXPECT_EQ(post(service->port(), "/studio/Name", "\"studio 4\""), "HTTP/1.1 200 OK");
        EXPECT_TRUE(eventually(
            [&] { return readFileBytes(stateFile() + ".state").find("studio 4") != std::string::npos; },
            10s));
    }
    auto studio = std::make_shared<Studio>();
    auto service = start(studio, stateFile());
    EXPECT_EQ(studio->name, "studio 4") << "loaded before the first request";
    EXPECT_EQ(get(service->port(), "/studio/Level"), "2\r\n3\n\r\n0\r\n\r\n");
    EXPECT_EQ(m_logger.lines(), std::vector<std::string>{});
}

TEST_F(AbstractObjectWebServiceTest, BadStateFile_IsLoggedWithThePrefixAndTheServiceStartsFromTheFactory) {
    std::ofstream(stateFile() + ".state") << "{\"Name\": 7}";
    auto studio = std::make_shared<Studio>();
    auto service = start(studio, stateFile());
    EXPECT_EQ(studio->name, "studio 1");
    EXPECT_EQ(m_logger.lines(),
              std::vector<std::string>{"0 Web service /studio: Cannot load file " + stateFile() +
                                       ".state : Cannot unserialize json: incorrect type"});
}

}  // namespace
