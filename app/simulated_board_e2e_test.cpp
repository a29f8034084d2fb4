// The daemon binary on a simulated board: the board it reports, a scenario it refuses, a port that
// another process holds.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "log/testing/log_file_reader.h"
#include "system/process/piped_child.h"
#include "testing/install_root.h"

namespace {

using ovtx::log::log_perf::v4::testing::containsText;
using ovtx::log::log_perf::v4::testing::readLogFile;
using ovtx::system::process::v1::ExitStatus;
using ovtx::system::process::v1::PipedChild;
using ovtx::test_support::v1::InstallRoot;
using namespace std::chrono_literals;

constexpr auto kTimeout = 60s;

// A scenario of two inputs and two outputs whose ports carry `ports`.
std::string writeScenario(const InstallRoot& install, const std::string& ports) {
    return install.writeScenario(R"("rx": 2, "tx": 2)", R"("api": {"version": "6.21.4"}, "ports": )" + ports);
}

TEST(SimulatedBoardDaemonTest, Print_LogsTheScenariosBoardOnTheCapturePath) {
    InstallRoot install;
    const std::string scenario = writeScenario(install, R"({"1": {"signal": [{"format": 3}]}})");
    PipedChild daemon = install.start("sdi_tap", {"-sdiport", "1", "-videoformat", "3", "-print"}, scenario);
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
    PipedChild daemon = install.start("sdi_tap", {"-sdiport", "0", "-videoformat", "3"}, scenario);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(1));
    EXPECT_EQ(daemon.standardError(), "Error: " + scenario + ": \"ports.0.signal[0].frame\": unknown key\n");
}

TEST(SimulatedBoardDaemonTest, PortHeldByAnotherProcess_ExitsWith100) {
    InstallRoot install;
    const std::string scenario = writeScenario(install, R"({"1": {"signal": [{"format": 3}]}})");
    PipedChild holder = install.start("sdi_board_report", {"--hold", "1"}, scenario);
    std::optional<std::string> line;
    while ((line = holder.readLine(kTimeout)) && *line != "Holding RX1") {
    }
    ASSERT_TRUE(line) << holder.standardError();
    PipedChild daemon = install.start("sdi_tap", {"-sdiport", "1", "-videoformat", "3"}, scenario);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(100));
    EXPECT_NE(daemon.standardError().find(
                  "Deltacast exception:Cannot open RX1 stream. (Requested stream is already used)\n"),
              std::string::npos)
        << daemon.standardError();
    holder.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(holder.wait(kTimeout), ExitStatus::exitedWith(0));
}

}  // namespace
