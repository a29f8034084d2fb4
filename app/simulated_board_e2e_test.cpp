// The daemon binary on a simulated board: the board it reports, a scenario it refuses, a port that
// another process holds.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "log/testing/log_file_reader.h"
#include "system/process/piped_child.h"
#include "testing/files.h"
#include "testing/install_root.h"

namespace {

using ovtx::log::log_perf::v4::testing::containsText;
using ovtx::log::log_perf::v4::testing::readLogFile;
using ovtx::system::process::v1::ExitStatus;
using ovtx::system::process::v1::PipedChild;
using ovtx::system::process::v1::SpawnOptions;
using ovtx::test_support::v1::binaryPath;
using ovtx::test_support::v1::InstallRoot;
using namespace std::chrono_literals;

constexpr auto kTimeout = 60s;

// A scenario file in the installation's directory, for a board whose serial no other test uses.
std::string writeScenario(const InstallRoot& install, const std::string& ports) {
    const std::string path = (install.directory() / "board.json").string();
    std::ofstream(path) << R"({"api": {"version": "6.21.4"}, "board": {"serial": "0x5E0)"
                        << ovtx::system::process::v1::currentProcessId()
                        << R"(", "rx": 2, "tx": 2}, "ports": )" << ports << "}";
    return path;
}

PipedChild start(const std::string& binary, const InstallRoot& install, const std::string& scenario,
                 const std::vector<std::string>& arguments) {
    SpawnOptions options;
    options.environment = install.environment();
    options.environment["SDI_TAP_SIMULATED_BOARD"] = scenario;
    options.captureStandardError = true;
    return PipedChild::spawn(binaryPath(binary), arguments, options);
}

TEST(SimulatedBoardDaemonTest, Print_LogsTheScenariosBoardOnTheCapturePath) {
    InstallRoot install;
    const std::string scenario = writeScenario(install, R"({"1": {"signal": [{"format": 3}]}})");
    PipedChild daemon = start("sdi_tap", install, scenario, {"-sdiport", "1", "-videoformat", "3", "-print"});
    ASSERT_TRUE(daemon.waitForStandardError("   - 2 In / 2 Out", kTimeout)) << daemon.standardError();
    daemon.kill(PipedChild::Signal::Terminate);
    daemon.wait(kTimeout);
    EXPECT_EQ(daemon.standardError().find("switched to pattern mode"), std::string::npos);
    const auto lines = readLogFile(install.logFile("1").string());
    for (const char* line : {"API v6.21.4  Board(s) 1", "    - Board firmware v7 (18-03-10)",
                             "    - 3G board type", " on PCIe bus"}) {
        EXPECT_TRUE(containsText(lines, line)) << line;
    }
    EXPECT_FALSE(containsText(lines, "API initialisation Failure"));
}

TEST(SimulatedBoardDaemonTest, BadScenario_ExitsOneNamingTheKey) {
    InstallRoot install;
    const std::string scenario = writeScenario(install, R"({"0": {"signal": [{"format": 3, "frame": 3}]}})");
    PipedChild daemon = start("sdi_tap", install, scenario, {"-sdiport", "0", "-videoformat", "3"});
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(1));
    EXPECT_EQ(daemon.standardError(), "Error: " + scenario + ": \"ports.0.signal[0].frame\": unknown key\n");
}

TEST(SimulatedBoardDaemonTest, PortHeldByAnotherProcess_ExitsWith100) {
    InstallRoot install;
    const std::string scenario = writeScenario(install, R"({"1": {"signal": [{"format": 3}]}})");
    PipedChild holder = start("sdi_board_report", install, scenario, {"--hold", "1"});
    std::optional<std::string> line;
    while ((line = holder.readLine(kTimeout)) && *line != "Holding RX1") {
    }
    ASSERT_TRUE(line) << holder.standardError();
    PipedChild daemon = start("sdi_tap", install, scenario, {"-sdiport", "1", "-videoformat", "3"});
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(100));
    EXPECT_NE(daemon.standardError().find(
                  "Deltacast exception:Cannot open RX1 stream. (Requested stream is already used)\n"),
              std::string::npos)
        << daemon.standardError();
    holder.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(holder.wait(kTimeout), ExitStatus::exitedWith(0));
}

}  // namespace
