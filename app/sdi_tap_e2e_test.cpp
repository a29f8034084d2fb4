// The daemon binary end to end: exit codes, standard-error texts and log lines of whole runs.
#include <gtest/gtest.h>

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

PipedChild startDaemon(const InstallRoot& install, const std::vector<std::string>& arguments) {
    SpawnOptions options;
    options.environment = install.environment();
    options.captureStandardError = true;
    return PipedChild::spawn(binaryPath("sdi_tap"), arguments, options);
}

TEST(SdiTapBinaryTest, BadCommandLine_PrintsMessageAndUsage) {
    InstallRoot install;
    PipedChild daemon = startDaemon(install, {"-sdiport", "1", "-videoformat", "3"});
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(1));
    const std::string errors = daemon.standardError();
    EXPECT_EQ(
        errors.rfind("SdiPort must be 0\n\nUsage: \n  1 : " + binaryPath("sdi_tap") + " -sdiport <port>", 0),
        0u)
        << errors;
    EXPECT_NE(errors.find("\nExample:\n  " + binaryPath("sdi_tap") + " -sdiport 2 -videoformat 2 -print\n"),
              std::string::npos);
}

TEST(SdiTapBinaryTest, UnreadableRoot_FailsWithoutLogFile) {
    // No Pathname at all, then one that does not fit the value buffer of 255 bytes with its NUL.
    for (const bool tooLong : {false, true}) {
        InstallRoot install(false);
        if (tooLong) {
            install.setPathname((install.root() / "App" / "Bin").string() + std::string(255, 'x') + "\n");
        }
        PipedChild daemon = startDaemon(install, {"-sdiport", "0", "-videoformat", "3"});
        EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(1)) << tooLong;
        EXPECT_EQ(daemon.standardError(), "Error: Could not find firmware root path\n");
        EXPECT_FALSE(std::filesystem::exists(install.root() / "Logs"));
    }
}

// Without a board the daemon switches to its pattern source by itself; -print adds the API line.
TEST(SdiTapBinaryTest, NoBoard_SwitchesToPatternAndStopsOnTerminate) {
    InstallRoot install;
    PipedChild daemon = startDaemon(install, {"-sdiport", "0", "-videoformat", "3", "-print"});
    ASSERT_TRUE(daemon.waitForStandardError("SDI board not found, switched to pattern mode.", kTimeout))
        << daemon.standardError();
    daemon.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(0)) << daemon.standardError();
    const auto lines = readLogFile(install.logFile("0").string());
    EXPECT_TRUE(containsText(lines, "API initialisation Failure"));
    EXPECT_TRUE(containsText(lines, "API v0.0.0  Board(s) 0"));
}

TEST(SdiTapBinaryTest, PatternSwitch_SaysNothingAboutTheBoardAndStopsOnInterrupt) {
    InstallRoot install;
    PipedChild daemon = startDaemon(install, {"-SDIPORT", "0", "-videoformat", "3", "-pattern"});
    ASSERT_TRUE(daemon.waitForStandardError("API initialisation Failure", kTimeout))
        << daemon.standardError();
    daemon.kill(PipedChild::Signal::Interrupt);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(0));
    EXPECT_EQ(daemon.standardError().find("switched to pattern mode"), std::string::npos);
    EXPECT_TRUE(containsText(readLogFile(install.logFile("0").string()), "API initialisation Failure"));
}

}  // namespace
