#include "log/console_sink.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

namespace {

using ovtx::log::log_perf::v4::ConsoleSink;
using ovtx::log::log_perf::v4::formatLogTime;
using ovtx::log::log_perf::v4::Timestamp;
using ovtx::system::console::v1::NonBlockingWriter;

constexpr Timestamp kWhen{1795268123, 7};

std::string contentOf(std::FILE* stream) {
    std::fflush(stream);
    std::rewind(stream);
    std::string content;
    char buffer[256];
    std::size_t read = 0;
    while ((read = std::fread(buffer, 1, sizeof buffer, stream)) > 0) {
        content.append(buffer, read);
    }
    return content;
}

class ConsoleSinkTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(m_stream, nullptr); }
    void TearDown() override { std::fclose(m_stream); }
    std::FILE* m_stream = std::tmpfile();
    NonBlockingWriter m_output{fileno(m_stream)};
};

TEST_F(ConsoleSinkTest, NoTerminal_WritesTimeAndTextWithoutEscapes) {
    {
        ConsoleSink sink(m_output, false);
        sink.Log(0, &kWhen, "API initialisation Failure");
    }
    EXPECT_EQ(contentOf(m_stream), formatLogTime(kWhen) + " API initialisation Failure\n");
}

TEST_F(ConsoleSinkTest, Terminal_ColoursEachLevelAndResetsAtTheEnd) {
    struct Case {
        int level;
        const char* colour;
    };
    const Case cases[] = {{0, "\033[91m"}, {1, "\033[93m"}, {2, "\033[0m"}, {3, "\033[92m"}};
    std::string expected;
    {
        ConsoleSink sink(m_output, true);
        for (const auto& c : cases) {
            sink.Log(c.level, &kWhen, "text");
            expected += std::string(c.colour) + formatLogTime(kWhen) + " text\n";
        }
    }
    EXPECT_EQ(contentOf(m_stream), expected + "\033[0m");
}

TEST_F(ConsoleSinkTest, Threshold_LeavesOutHigherLevels) {
    ConsoleSink sink(m_output, false);
    sink.Log(4, &kWhen, "beyond the default");
    sink.SetThreshold(0);
    sink.Log(1, &kWhen, "warning");
    sink.Log(0, &kWhen, "error");
    EXPECT_EQ(contentOf(m_stream), formatLogTime(kWhen) + " error\n");
}

TEST(LogTimeTest, Format_IsCtimeWithATwoDigitDayWithoutYear) {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    EXPECT_EQ(formatLogTime(Timestamp{1704153600, 42}), "Tue Jan 02 00:00:00.042");
    EXPECT_EQ(formatLogTime(Timestamp{1795268123, 5}), "Sat Nov 21 13:35:23.005");
    ::unsetenv("TZ");
    ::tzset();
}

}  // namespace
