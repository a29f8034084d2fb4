// The daemon binary end to end: exit codes, standard-error texts and log lines of whole runs.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "log/testing/log_file_reader.h"
#include "system/console/testing/unread_pipe.h"
#include "system/process/piped_child.h"
#include "testing/files.h"
#include "testing/install_root.h"
#include "testing/shm.h"
#include "testing/tool_run.h"

namespace {

using ovtx::log::log_perf::v4::kDaemonLogFileSizeLimit;
using ovtx::log::log_perf::v4::testing::containsText;
using ovtx::log::log_perf::v4::testing::readLogFile;
using ovtx::system::console::v1::testing::UnreadPipe;
using ovtx::system::process::v1::ExitStatus;
using ovtx::system::process::v1::PipedChild;
using ovtx::system::process::v1::SpawnOptions;
using ovtx::test_support::v1::binaryPath;
using ovtx::test_support::v1::InstallRoot;
using ovtx::test_support::v1::readFileBytes;
using ovtx::test_support::v1::runTool;
using ovtx::test_support::v1::uniqueName;
using namespace std::chrono_literals;

constexpr auto kTimeout = 60s;

TEST(SdiTapBinaryTest, BadCommandLine_PrintsMessageAndUsage) {
    InstallRoot install;
    PipedChild daemon = install.start("sdi_tap", {"-sdiport", "1", "-videoformat", "3"});
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(1));
    const std::string errors = daemon.standardError();
    EXPECT_EQ(
        errors.rfind("SdiPort must be 0\n\nUsage: \n  1 : " + binaryPath("sdi_tap") + " -sdiport <port>", 0),
        0u)
        << errors;
}

TEST(SdiTapBinaryTest, UnreadableRoot_FailsWithoutLogFile) {
    // No Pathname at all, one that does not fit the value buffer of 255 bytes with its NUL, an empty
    // one and a relative one: none names an installation root.
    const std::string relative = uniqueName("sdi_tap_relative_root_");
    const std::optional<std::string> values[] = {
        std::nullopt, "/srv/firm/App/Bin" + std::string(255, 'x') + "\n", "\n", relative + "/App/Bin\n"};
    for (const auto& value : values) {
        InstallRoot install(false);
        if (value) {
            install.setPathname(*value);
        }
        PipedChild daemon = install.start("sdi_tap", {"-sdiport", "0", "-videoformat", "3"});
        EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(1)) << value.value_or("no value");
        EXPECT_EQ(daemon.standardError(), "Error: Could not find firmware root path\n");
        EXPECT_FALSE(std::filesystem::exists(install.root() / "Logs"));
    }
    EXPECT_FALSE(std::filesystem::exists(relative)) << "a Logs directory below the working directory";
    std::filesystem::remove_all(relative);
}

// Without a board the daemon switches to its pattern source by itself; -print adds the API line.
TEST(SdiTapBinaryTest, NoBoard_SwitchesToPatternAndStopsOnTerminate) {
    InstallRoot install;
    PipedChild daemon = install.start("sdi_tap", {"-sdiport", "0", "-videoformat", "3", "-print"});
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
    PipedChild daemon = install.start("sdi_tap", {"-SDIPORT", "0", "-videoformat", "3", "-pattern"});
    ASSERT_TRUE(daemon.waitForStandardError("API initialisation Failure", kTimeout))
        << daemon.standardError();
    daemon.kill(PipedChild::Signal::Interrupt);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(0));
    EXPECT_EQ(daemon.standardError().find("switched to pattern mode"), std::string::npos);
    EXPECT_TRUE(containsText(readLogFile(install.logFile("0").string()), "API initialisation Failure"));
}

// Standard error on a pipe that is full and that nobody reads: the run neither waits for it to
// start nor while it publishes, and stops when asked.
TEST(SdiTapBinaryTest, StandardErrorNobodyReads_RunPublishesAndStops) {
    InstallRoot install;
    UnreadPipe pipe(install.directory() / "stderr.fifo");
    pipe.fill();
    SpawnOptions options;
    options.environment = install.environment();
    options.environment["SDI_TAP_TEST_STDERR"] = pipe.path().string();
    PipedChild daemon = PipedChild::spawn("/bin/sh",
                                          {"-c", "exec \"$0\" \"$@\" 2>\"$SDI_TAP_TEST_STDERR\"",
                                           binaryPath("sdi_tap"), "-sdiport", "0", "-videoformat", "3"},
                                          options);
    const auto follow = runTool("simulcast_follow", {"0", "--records", "100"}, std::chrono::seconds(20));
    EXPECT_EQ(follow.exitCode, 0);
    EXPECT_EQ(follow.lines.size(), 100u);
    daemon.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(0));
    EXPECT_EQ(pipe.drain().find_first_not_of('f'), std::string::npos) << "the pipe was not full all along";
}

TEST(SdiTapBinaryTest, CorruptLogFile_IsMovedAsideAndTheRunComesUp) {
    InstallRoot install;
    const std::string log = install.logFile("0").string();
    std::filesystem::create_directories(install.root() / "Logs");
    const std::string corrupt = "0x00000030\r\n0;Mon Nov 23 10:00:00.000;x17;2;text\r\n";
    std::ofstream(log, std::ios::binary) << corrupt;

    PipedChild daemon = install.start("sdi_tap", {"-sdiport", "0", "-videoformat", "3", "-pattern"});
    const std::string said =
        "Log file " + log + " could not be read (invalid stoll argument): moved it to " + log + ".corrupt-";
    ASSERT_TRUE(daemon.waitForStandardError("API initialisation Failure", kTimeout))
        << daemon.standardError();
    daemon.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(0));

    const std::string errors = daemon.standardError();
    const std::size_t at = errors.find(said);
    ASSERT_NE(at, std::string::npos) << errors;
    const std::string notice = errors.substr(at, errors.find('\n', at) - at);
    const auto lines = readLogFile(log);
    EXPECT_TRUE(containsText(lines, notice));
    EXPECT_TRUE(containsText(lines, "API initialisation Failure"));
}

// A log written without a bound and grown past the daemon's: the run moves it aside and keeps its
// log within its own bound (which lines it keeps, the sink's tests tell).
TEST(SdiTapBinaryTest, OversizeLogFile_IsBroughtWithinTheBound) {
    InstallRoot install;
    const std::string log = install.logFile("0").string();
    std::filesystem::create_directories(install.root() / "Logs");
    std::string records;
    for (int index = 0; records.size() < kDaemonLogFileSizeLimit + (1 << 20); ++index) {
        records += std::to_string(index) + ";Mon Nov 23 10:00:00.000;1795428000000;2;old line\r\n";
    }
    char header[16];
    std::snprintf(header, sizeof header, "0x%.8X\r\n", static_cast<unsigned>(12 + records.size()));
    std::ofstream(log, std::ios::binary) << header << records;
    const std::size_t oversize = 12 + records.size();
    records.clear();

    PipedChild daemon = install.start("sdi_tap", {"-sdiport", "0", "-videoformat", "3", "-pattern"});
    ASSERT_TRUE(daemon.waitForStandardError("API initialisation Failure", kTimeout))
        << daemon.standardError();
    daemon.kill(PipedChild::Signal::Terminate);
    EXPECT_EQ(daemon.wait(kTimeout), ExitStatus::exitedWith(0));

    const std::string said = "Log file " + log + " held " + std::to_string(oversize) +
                             " bytes, over its limit of " + std::to_string(kDaemonLogFileSizeLimit) +
                             ": moved it to " + log + ".oversize-";
    EXPECT_NE(daemon.standardError().find(said), std::string::npos) << daemon.standardError();
    EXPECT_LE(std::filesystem::file_size(log), kDaemonLogFileSizeLimit);
    EXPECT_NE(readFileBytes(log).find(";2;API initialisation Failure\r\n"), std::string::npos);
}

}  // namespace
