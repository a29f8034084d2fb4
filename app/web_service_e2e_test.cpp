// The daemon's REST service over real HTTP: the binary in pattern mode on a local address of its
// own, and two capture runs of a simulated board behind one nginx front with the shipped routing.
#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "log/testing/log_file_reader.h"
#include "network/http_server/testing/http_test_client.h"
#include "network/http_server/testing/test_server.h"
#include "system/process/piped_child.h"
#include "testing/files.h"
#include "testing/free_port.h"
#include "testing/install_root.h"
#include "testing/shm.h"

namespace {

namespace http_testing = ovtx::network::http_server::v3::testing;
using ovtx::network::http_server::v3::testing::TestServer;
using ovtx::network::http_server_request_handler::v0::IAnswerSender;
using ovtx::system::process::v1::ExitStatus;
using ovtx::system::process::v1::PipedChild;
using ovtx::system::process::v1::SpawnOptions;
using ovtx::test_support::v1::eventually;
using ovtx::test_support::v1::freeLoopbackPort;
using ovtx::test_support::v1::freeLoopbackPorts;
using ovtx::test_support::v1::InstallRoot;
using namespace std::chrono_literals;

constexpr auto kTimeout = 60s;
const std::string kJsonHead =
    "Cache-Control: no-cache\r\nTransfer-Encoding: chunked\r\nContent-Type: application/json\r\n"
    "Access-Control-Allow-Origin: *\r\n";

// An answer split at the end of its headers, the body taken out of its chunks.
struct Answer {
    std::string statusLine;
    std::string headers;  // every header line with its CRLF
    std::string body;
};

Answer parseAnswer(const std::string& raw) {
    Answer answer;
    const std::size_t lineEnd = raw.find("\r\n");
    const std::size_t headEnd = raw.find("\r\n\r\n");
    if (lineEnd == std::string::npos || headEnd == std::string::npos) {
        ADD_FAILURE() << "not an HTTP answer: " << raw;
        return answer;
    }
    answer.statusLine = raw.substr(0, lineEnd);
    answer.headers = raw.substr(lineEnd + 2, headEnd + 2 - (lineEnd + 2));
    std::size_t position = headEnd + 4;
    if (answer.headers.find("Transfer-Encoding: chunked\r\n") == std::string::npos) {
        answer.body = raw.substr(position);
        return answer;
    }
    for (;;) {
        const std::size_t sizeEnd = raw.find("\r\n", position);
        const std::size_t size = std::stoul(raw.substr(position, sizeEnd - position), nullptr, 16);
        if (size == 0) {
            EXPECT_EQ(raw.substr(sizeEnd), "\r\n\r\n") << "the answer ends after its last chunk";
            return answer;
        }
        answer.body += raw.substr(sizeEnd + 2, size);
        position = sizeEnd + 2 + size + 2;
    }
}

Answer request(std::uint16_t port, const std::string& verb, const std::string& target,
               const std::string& body = "") {
    std::string text = verb + " " + target + " HTTP/1.1\r\nHost: localhost\r\n";
    if (!body.empty()) {
        text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    }
    return parseAnswer(http_testing::exchange(port, text + "\r\n" + body));
}

Json::Value parseJson(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(Json::Reader().parse(text, value)) << text;
    return value;
}

// True once something answers HTTP on `port`.
bool answersOn(std::uint16_t port) {
    return eventually(
        [port] {
            try {
                http_testing::exchange(port, "GET / HTTP/1.1\r\nHost: localhost\r\n\r\n");
                return true;
            } catch (const std::exception&) {
                return false;
            }
        },
        kTimeout);
}

// A run of the daemon on 1080p25 that serves its tree on 127.0.0.1:<httpPort>: a pattern run, or
// with a scenario a capture run on the simulated board.
PipedChild startRun(const InstallRoot& install, int sdiPort, std::uint16_t httpPort,
                    const std::string& scenario = "") {
    std::vector<std::string> arguments{"-sdiport", std::to_string(sdiPort), "-videoformat", "3"};
    if (scenario.empty()) {
        arguments.push_back("-pattern");
    }
    return install.start("sdi_tap", arguments, scenario,
                         {{"SDI_TAP_HTTP_BASE_URL", "http://127.0.0.1:" + std::to_string(httpPort)}});
}

Json::Value formatUnion(const std::string& alternative, const std::string& standard) {
    Json::Value value;
    value["_type_"] = alternative;
    value["_value_"][alternative]["Standard"] = standard;
    return value;
}

void stop(PipedChild& daemon) {
    daemon.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(0)) << daemon.standardError();
}

class WebServiceDaemonTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_daemon = startRun(m_install, 0, m_port);
        ASSERT_TRUE(answersOn(m_port)) << m_daemon.standardError();
    }
    // A clean stop, so that the run gives up its objects even when a check failed.
    void TearDown() override {
        if (m_daemon.running()) {
            stop(m_daemon);
        }
    }

    InstallRoot m_install;
    std::uint16_t m_port = freeLoopbackPort();
    PipedChild m_daemon;
};

TEST_F(WebServiceDaemonTest, GetOfTheRoot_AnswersTheWholeTree) {
    const Answer answer = request(m_port, "GET", "/sdi_tap/0");
    EXPECT_EQ(answer.statusLine, "HTTP/1.1 200 OK");
    EXPECT_EQ(answer.headers, kJsonHead);
    const Json::Value tree = parseJson(answer.body);
    EXPECT_EQ(tree.getMemberNames(),
              (std::vector<std::string>{"AudioSampling", "BoardInfo", "InputVideoFormat"}));
    // The values of a pattern run's tree are the service tree's tests'; here, the run's board query.
    EXPECT_EQ(tree["BoardInfo"]["ApiAvailable"], false);
    EXPECT_EQ(tree["BoardInfo"]["NbSdiBoard"], 0);
}

TEST_F(WebServiceDaemonTest, LeavesAndBadPaths_AnswerAsTheRequestLanguageSays) {
    const struct {
        std::string verb;
        std::string target;
        std::string body;
        std::string statusLine;
        std::string answerBody;
    } cases[] = {
        {"GET", "/sdi_tap/0/AudioSampling/8/DataRate", "", "HTTP/1.1 200 OK", "0\n"},
        {"GET", "/sdi_tap/0/BoardInfo/Properties/BoardType", "", "HTTP/1.1 200 OK", "\"\"\n"},
        {"GET", "/sdi_tap/0/Nope", "", "HTTP/1.1 400 No such variable: Nope", "No such variable: Nope"},
        {"GET", "/sdi_tap/0/AudioSampling/9", "", "HTTP/1.1 404 Invalid element index",
         "Invalid element index"},
        // A write of a status leaf succeeds (and changes nothing, as the service tree's tests tell).
        {"POST", "/sdi_tap/0/AudioSampling/1/ChannelStatus", "\"48KHZ\"", "HTTP/1.1 200 OK", ""},
    };
    for (const auto& entry : cases) {
        const Answer answer = request(m_port, entry.verb, entry.target, entry.body);
        EXPECT_EQ(answer.statusLine, entry.statusLine) << entry.target;
        EXPECT_EQ(answer.headers, kJsonHead) << entry.target;
        if (entry.verb == "GET") {
            EXPECT_EQ(answer.body, entry.answerBody) << entry.target;
        }
    }
    // Outside the run's path the server answers by itself.
    EXPECT_EQ(request(m_port, "GET", "/sdi_tap/1").statusLine.substr(0, 12), "HTTP/1.1 404");
}

// An address the daemon can't bind ends the run before its loop, with exit code 1.
TEST(WebServiceDaemonStartTest, AddressInUse_EndsTheRunWithExitCodeOne) {
    InstallRoot install;
    TestServer holder([](IAnswerSender&) {});
    PipedChild daemon = startRun(install, 0, holder.port());
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(1));
    EXPECT_TRUE(daemon.standardError().ends_with("\nException:Could not bind Http url to Http server\n"))
        << daemon.standardError();
}

// The shipped files laid out as Debian's nginx has them, the http block including conf.d/*.conf
// and sites-enabled/*.
TEST(NginxConfigurationTest, ShippedFiles_PassTheCheckOfNginx) {
    InstallRoot scratch;
    const std::filesystem::path conf = scratch.directory() / "conf";
    const std::filesystem::path shipped = std::filesystem::path(SDI_TAP_SOURCE_DIR) / "packaging" / "nginx";
    for (const char* folder : {"snippets", "conf.d", "sites-enabled"}) {
        std::filesystem::create_directories(conf / folder);
    }
    std::filesystem::copy_file(shipped / "sdi_tap_locations.conf",
                               conf / "snippets" / "sdi_tap_locations.conf");
    std::filesystem::copy_file(shipped / "sdi_tap_ports.conf", conf / "conf.d" / "sdi_tap_ports.conf");
    std::filesystem::copy_file(shipped / "sdi_tap.conf", conf / "sites-enabled" / "sdi_tap.conf");
    const std::string d = scratch.directory().string();
    std::ofstream(conf / "nginx.conf")
        << "pid " << d << "/nginx.pid;\nerror_log " << d
        << "/error.log;\nevents {}\nhttp {\n    client_body_temp_path " << d << "/body;\n    proxy_temp_path "
        << d << "/proxy;\n    include conf.d/*.conf;\n    include sites-enabled/*;\n}\n";
    PipedChild check =
        PipedChild::spawn("/usr/sbin/nginx", {"-t", "-p", d, "-c", "conf/nginx.conf", "-e", d + "/error.log"},
                          SpawnOptions{{}, true, 0ms});
    EXPECT_EQ(check.wait(kTimeout), ExitStatus::exitedWith(0)) << check.standardError();
}

// nginx in front of two runs: each run's tree under /sdi_tap/<port> of one address.
class NginxFrontTest : public ::testing::Test {
  protected:
    void SetUp() override {
        // Two capture runs on two inputs of one simulated board, the second input without signal.
        const std::string scenario = m_install.writeScenario(
            R"("rx": 2, "tx": 0)", R"("ports": {"0": {"signal": [{"format": "HD_1920_1080p_25"}]}})");
        for (int sdiPort : {0, 1}) {
            m_daemons.push_back(startRun(m_install, sdiPort, m_daemonPorts[sdiPort], scenario));
        }
        for (int sdiPort : {0, 1}) {
            ASSERT_TRUE(answersOn(m_daemonPorts[sdiPort])) << m_daemons[sdiPort].standardError();
        }
        writeNginxConfiguration();
        m_nginx = PipedChild::spawn("/usr/sbin/nginx",
                                    {"-p", dir().string(), "-c", (dir() / "nginx.conf").string(), "-e",
                                     (dir() / "error.log").string()},
                                    SpawnOptions{{}, true, 0ms});
        ASSERT_TRUE(answersOn(m_nginxPort)) << m_nginx.standardError();
    }

    void TearDown() override {
        m_nginx.kill(PipedChild::Signal::Quit);
        m_nginx.wait(kTimeout);
        for (PipedChild& daemon : m_daemons) {
            if (daemon.running()) {
                stop(daemon);
            }
        }
    }

    std::filesystem::path dir() const { return m_install.directory(); }

    // The routing as shipped, with the test's ports in place of the operator's table.
    void writeNginxConfiguration() const {
        std::ofstream ports(dir() / "ports.conf");
        for (int sdiPort : {0, 1}) {
            ports << "upstream sdi_tap_" << sdiPort << " { server 127.0.0.1:" << m_daemonPorts[sdiPort]
                  << "; keepalive 8; }\n";
        }
        ports << "map $sdi_tap_port $sdi_tap_upstream { default \"\"; 0 sdi_tap_0; 1 sdi_tap_1; }\n";
        const std::string d = dir().string();
        std::ofstream(dir() / "nginx.conf")
            << "daemon off;\nmaster_process off;\nworker_processes 1;\npid " << d << "/nginx.pid;\n"
            << "error_log " << d << "/error.log;\nevents { worker_connections 64; }\nhttp {\n"
            << "    access_log off;\n    client_body_temp_path " << d << "/body;\n    proxy_temp_path " << d
            << "/proxy;\n    fastcgi_temp_path " << d << "/fastcgi;\n    uwsgi_temp_path " << d
            << "/uwsgi;\n    scgi_temp_path " << d << "/scgi;\n    include " << d << "/ports.conf;\n"
            << "    server {\n        listen 127.0.0.1:" << m_nginxPort << ";\n        include "
            << SDI_TAP_SOURCE_DIR << "/packaging/nginx/sdi_tap_locations.conf;\n    }\n}\n";
    }

    InstallRoot m_install;
    std::vector<std::uint16_t> m_ports = freeLoopbackPorts(3);
    std::uint16_t m_daemonPorts[2] = {m_ports[0], m_ports[1]};
    std::uint16_t m_nginxPort = m_ports[2];
    std::vector<PipedChild> m_daemons;
    PipedChild m_nginx;
};

TEST_F(NginxFrontTest, BothTrees_AreReadThroughOneAddress) {
    for (const std::string port : {"0", "1"}) {
        const Answer answer = request(m_nginxPort, "GET", "/sdi_tap/" + port);
        EXPECT_EQ(answer.statusLine, "HTTP/1.1 200 OK") << port;
        EXPECT_NE(answer.headers.find("Access-Control-Allow-Origin: *\r\n"), std::string::npos) << port;
        const Json::Value tree = parseJson(answer.body);
        EXPECT_EQ(tree["AudioSampling"].size(), 8u) << port;
        EXPECT_EQ(tree["BoardInfo"]["Properties"]["NumRXchannels"], 2) << port;
        EXPECT_EQ(parseJson(request(m_daemonPorts[std::stoi(port)], "GET", "/sdi_tap/" + port).body), tree);
    }
    // Each tree is its own run's: the signal on input 0, none on input 1.
    EXPECT_EQ(parseJson(request(m_nginxPort, "GET", "/sdi_tap/0/InputVideoFormat").body),
              formatUnion("AVAILABLE_SDI_INPUT", "HD_1920_1080p_25"));
    EXPECT_EQ(parseJson(request(m_nginxPort, "GET", "/sdi_tap/1/InputVideoFormat").body),
              formatUnion("UNAVAILABLE_SDI_INPUT", "NO_FORMAT"));
    const Answer leaf = request(m_nginxPort, "GET", "/sdi_tap/1/BoardInfo/ApiAvailable");
    EXPECT_EQ(leaf.statusLine, "HTTP/1.1 200 OK");
    EXPECT_EQ(leaf.body, "true\n");
    // The run's own failure answer passes through, reason and body.
    const Answer bad = request(m_nginxPort, "GET", "/sdi_tap/0/Nope");
    EXPECT_EQ(bad.statusLine, "HTTP/1.1 400 No such variable: Nope");
    EXPECT_EQ(bad.body, "No such variable: Nope");
}

TEST_F(NginxFrontTest, PortsWithoutRun_AreRefusedByTheFront) {
    const Answer unknown = request(m_nginxPort, "GET", "/sdi_tap/5");
    EXPECT_EQ(unknown.statusLine, "HTTP/1.1 404 Not Found");
    EXPECT_EQ(unknown.body, "No sdi_tap run is configured for port 5\n");
    EXPECT_EQ(request(m_nginxPort, "GET", "/sdi_tap/01x").statusLine, "HTTP/1.1 404 Not Found");
    // A run that ended leaves the other one served.
    stop(m_daemons[1]);
    EXPECT_EQ(request(m_nginxPort, "GET", "/sdi_tap/1").statusLine, "HTTP/1.1 502 Bad Gateway");
    EXPECT_EQ(request(m_nginxPort, "GET", "/sdi_tap/0").statusLine, "HTTP/1.1 200 OK");
}

}  // namespace
