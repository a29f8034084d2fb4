// The daemon binary end to end: exit codes and standard-error texts of whole runs.
#include <gtest/gtest.h>
#include "system/process/piped_child.h"

#include <csignal>
#include <filesystem>
#include <fstream>

#include "log/testing/log_file_reader.h"
#include "system/process/testing/child_process.h"

namespace {

using ovtx::log::log_perf::v4::testing::containsText;
using ovtx::log::log_perf::v4::testing::readLogFile;
using ovtx::system::process::testing::binaryPath;
using ovtx::system::process::testing::ChildProcess;
namespace fs = std::filesystem;
using std::chrono::seconds;

class SdiTapBinaryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
        m_dir = fs::temp_directory_path() /
                ("sdi_tap_e2e_" + std::to_string(ovtx::system::process::v1::currentProcessId()) + "_" +
                 test->name());
        fs::create_directories(m_dir / "registry");
    }
    void TearDown() override { fs::remove_all(m_dir); }

    // Installs the root <dir>/root with the Pathname <dir>/root/App/Bin.
    void installRoot() {
        const fs::path key = m_dir / "registry" / "SOFTWARE" / "FirmwareAgent" / "CurrentVersion";
        fs::create_directories(key);
        fs::create_directories(root() / "App" / "Bin");
        std::ofstream(key / "Pathname") << (root() / "App" / "Bin").string() << "\n";
    }
    fs::path root() const { return m_dir / "root"; }

    ChildProcess start(const std::vector<std::string>& arguments) {
        return ChildProcess(binaryPath("sdi_tap"), arguments,
                            {{"SDI_TAP_REGISTRY", (m_dir / "registry").string()}});
    }

    fs::path m_dir;
};

TEST_F(SdiTapBinaryTest, BadCommandLinePrintsMessageAndUsage) {
    ChildProcess daemon = start({"-sdiport", "1", "-videoformat", "3"});
    EXPECT_EQ(daemon.waitExitCode(seconds(60)), 1);
    const std::string errors = daemon.standardError();
    EXPECT_EQ(
        errors.rfind("SdiPort must be 0\n\nUsage: \n  1 : " + binaryPath("sdi_tap") + " -sdiport <port>", 0),
        0u)
        << errors;
    EXPECT_NE(errors.find("\nExample:\n  " + binaryPath("sdi_tap") + " -sdiport 2 -videoformat 2 -print\n"),
              std::string::npos);
}

TEST_F(SdiTapBinaryTest, UnreadableRoot_FailsWithoutLogFile) {
    // No Pathname at all, then one that does not fit the value buffer of 255 bytes with its NUL.
    for (const bool installed : {false, true}) {
        if (installed) {
            installRoot();
            std::ofstream(m_dir / "registry" / "SOFTWARE" / "FirmwareAgent" / "CurrentVersion" / "Pathname")
                << (root() / "App" / "Bin").string() << std::string(255, 'x') << "\n";
        }
        ChildProcess daemon = start({"-sdiport", "0", "-videoformat", "3"});
        EXPECT_EQ(daemon.waitExitCode(seconds(60)), 1);
        EXPECT_EQ(daemon.standardError(), "Error: Could not find firmware root path\n");
        EXPECT_FALSE(fs::exists(root() / "Logs"));
    }
}

TEST_F(SdiTapBinaryTest, PatternRunStopsOnConsoleSignalsWithExitZero) {
    installRoot();
    for (int signalNumber : {SIGINT, SIGTERM}) {
        ChildProcess daemon = start({"-sdiport", "0", "-videoformat", "3"});
        ASSERT_TRUE(daemon.waitForOutput("SDI board not found, switched to pattern mode.", seconds(60)))
            << daemon.standardError();
        daemon.signal(signalNumber);
        EXPECT_EQ(daemon.waitExitCode(seconds(60)), 0) << "signal " << signalNumber << "\n"
                                                       << daemon.standardError();
    }
}

TEST_F(SdiTapBinaryTest, PrintReportsTheMissingApiBeforeSwitching) {
    installRoot();
    ChildProcess daemon = start({"-sdiport", "0", "-videoformat", "3", "-print"});
    ASSERT_TRUE(daemon.waitForOutput("SDI board not found, switched to pattern mode.", seconds(60)))
        << daemon.standardError();
    daemon.signal(SIGINT);
    EXPECT_EQ(daemon.waitExitCode(seconds(60)), 0);
    const auto lines = readLogFile((root() / "Logs" / "sdi_tap.0.log").string());
    EXPECT_TRUE(containsText(lines, "API v0.0.0  Board(s) 0"));
}

TEST_F(SdiTapBinaryTest, PatternSwitchSaysNothingAboutTheBoard) {
    installRoot();
    ChildProcess daemon = start({"-SDIPORT", "0", "-videoformat", "3", "-pattern"});
    ASSERT_TRUE(daemon.waitForOutput("API initialisation Failure", seconds(60))) << daemon.standardError();
    daemon.signal(SIGINT);
    EXPECT_EQ(daemon.waitExitCode(seconds(60)), 0);
    EXPECT_EQ(daemon.standardError().find("switched to pattern mode"), std::string::npos);
    const auto lines = readLogFile((root() / "Logs" / "sdi_tap.0.log").string());
    EXPECT_TRUE(containsText(lines, "API initialisation Failure"));
}

}  // namespace
