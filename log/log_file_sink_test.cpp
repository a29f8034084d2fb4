#include "log/log_file_sink.h"
#include "log/testing/log_file_reader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

using ovtx::log::log_perf::v4::formatLogTime;
using ovtx::log::log_perf::v4::HistoryEntry;
using ovtx::log::log_perf::v4::LogFileSink;
using ovtx::log::log_perf::v4::LogHistory;
using ovtx::log::log_perf::v4::Timestamp;

constexpr Timestamp kWhen{1795268123, 42};

std::string readBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void writeBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string header(std::size_t position) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%.8X\r\n", static_cast<unsigned>(position));
    return text;
}

std::string record(long long sequence, int level, const std::string& text) {
    return std::to_string(sequence) + ";" + formatLogTime(kWhen) + ";1795268123042;" + std::to_string(level) +
           ";" + text + "\r\n";
}

std::vector<std::string> textsOf(const std::vector<std::pair<std::int64_t, HistoryEntry>>& entries) {
    std::vector<std::string> texts;
    for (const auto& [sequence, entry] : entries) {
        texts.push_back(std::to_string(sequence) + ":" + entry.text);
    }
    return texts;
}

class LogFileSinkTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_directory = std::filesystem::temp_directory_path() /
                      ("log_file_sink_test_" + std::to_string(std::random_device{}()));
        std::filesystem::create_directories(m_directory);
        m_path = m_directory / "sdi_tap.0.log";
    }
    void TearDown() override { std::filesystem::remove_all(m_directory); }

    std::filesystem::path m_directory;
    std::filesystem::path m_path;
};

TEST_F(LogFileSinkTest, FirstStart_CreatesTheHeaderAndAnEmptyHistory) {
    LogFileSink sink(50000);
    sink.SetFile(m_path.string());
    EXPECT_EQ(readBytes(m_path), "0x00000000\r\n");
    EXPECT_TRUE(sink.GetEntries(0, -1).empty());
    std::int64_t first = 0;
    std::int64_t last = 0;
    try {
        sink.GetRange(-1, -1, first, last);
        FAIL() << "an empty history must raise";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "History is empty");
    }
}

TEST_F(LogFileSinkTest, Records_HaveTheirFieldsAndCrLfAndTheHeaderFollows) {
    LogFileSink sink(50000);
    sink.SetFile(m_path.string());
    sink.Log(2, &kWhen, "Board(s) 1");
    sink.Log(0, &kWhen, "a;b;c");
    const std::string records = record(0, 2, "Board(s) 1") + record(1, 0, "a;b;c");
    EXPECT_EQ(readBytes(m_path), header(12 + records.size()) + records);

    const auto entries = sink.GetEntries(0, -1);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[1].second.text, "a;b;c");
    EXPECT_EQ(entries[1].second.level, 0);
    EXPECT_EQ(entries[1].second.timeMs, 1795268123042);
    EXPECT_EQ(entries[1].second.formattedTime, formatLogTime(kWhen));
}

TEST_F(LogFileSinkTest, Threshold_LeavesOutHigherLevels) {
    LogFileSink sink(50000);
    sink.SetFile(m_path.string());
    sink.SetThreshold(1);
    sink.Log(2, &kWhen, "verbose");
    sink.Log(1, &kWhen, "warning");
    EXPECT_EQ(textsOf(sink.GetEntries(0, -1)), (std::vector<std::string>{"0:warning"}));
}

TEST_F(LogFileSinkTest, RestartOfUnwrappedFile_RenumbersFromZeroAndAppends) {
    const std::string records =
        record(40, 2, "first") + record(41, 1, "semi;colon;text") + record(42, 3, "third");
    writeBytes(m_path, header(12 + records.size()) + records);

    LogFileSink sink(50000);
    sink.SetFile(m_path.string());
    EXPECT_EQ(textsOf(sink.GetEntries(0, -1)),
              (std::vector<std::string>{"0:first", "1:semi;colon;text", "2:third"}));
    sink.Log(2, &kWhen, "fourth");
    const std::string expected = records + record(3, 2, "fourth");
    EXPECT_EQ(readBytes(m_path), header(12 + expected.size()) + expected);
}

TEST_F(LogFileSinkTest, RestartOfWrappedFile_NumbersFromTheWritePositionInWritingOrder) {
    // Newest lines 7 and 8 at the start; at the write position the remnant of an overwritten line,
    // then the oldest lines 5 and 6. Line 5 gives the numbering and is itself not kept.
    const std::string newest = record(7, 2, "new7") + record(8, 2, "new8");
    const std::string oldest = std::string("d4\r\n") + record(5, 2, "old5") + record(6, 2, "old6");
    writeBytes(m_path, header(12 + newest.size()) + newest + oldest);

    LogFileSink sink(50000);
    sink.SetFile(m_path.string());
    EXPECT_EQ(textsOf(sink.GetEntries(0, -1)), (std::vector<std::string>{"5:old6", "6:new7", "7:new8"}));

    sink.Log(2, &kWhen, "next");
    const std::string rewritten = newest + record(8, 2, "next");
    const std::string bytes = readBytes(m_path);
    EXPECT_EQ(bytes.substr(0, 12 + rewritten.size()), header(12 + rewritten.size()) + rewritten);
}

TEST_F(LogFileSinkTest, SizeLimit_WrapsTheFileAndARestartKeepsTheWritingOrder) {
    constexpr std::uint32_t kLimit = 400;
    {
        LogFileSink sink(50000);
        sink.SetFileSizeLimit(kLimit);
        sink.SetFile(m_path.string());
        for (int index = 0; index < 40; ++index) {
            sink.Log(2, &kWhen, ("record " + std::to_string(100 + index)).c_str());
        }
    }
    const std::string bytes = readBytes(m_path);
    const std::size_t oneRecord = record(10, 2, "record 100").size();
    EXPECT_LE(bytes.size(), kLimit + oneRecord);
    const std::size_t position = std::stoul(bytes.substr(2, 8), nullptr, 16);
    ASSERT_GE(position, 12u);
    ASSERT_LE(position, bytes.size());
    // The newest record ends at the write position, or at the end when writing has just wrapped.
    const std::size_t newestEnd = position == 12 ? bytes.size() : position;
    EXPECT_EQ(bytes.substr(newestEnd - 12, 12), "record 139\r\n");
    EXPECT_NE(bytes.find("record 137"), std::string::npos);
    EXPECT_EQ(bytes.find("record 100"), std::string::npos);

    // A wrapped file stays within the limit and its allowance: a restart takes it as it is.
    LogFileSink restarted(50000);
    restarted.SetFileSizeLimit(kLimit);
    restarted.SetFile(m_path.string());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_directory), {}), 1);
    const auto entries = restarted.GetEntries(0, -1);
    ASSERT_GE(entries.size(), 5u);
    EXPECT_EQ(entries.back().second.text, "record 139");
    for (std::size_t index = 1; index < entries.size(); ++index) {
        EXPECT_EQ(entries[index].first, entries[index - 1].first + 1);
        EXPECT_LT(entries[index - 1].second.text, entries[index].second.text);
    }
}

TEST_F(LogFileSinkTest, HeaderPositionOutsideTheFile_CountsAsFirstRecord) {
    const std::string records = record(0, 2, "one") + record(1, 2, "two");
    for (const std::size_t position : {std::size_t{0x1000}, std::size_t{3}}) {
        writeBytes(m_path, header(position) + records);
        LogFileSink sink(50000);
        sink.SetFile(m_path.string());
        // Read as a ring from byte 12: the line there only gives the numbering.
        EXPECT_EQ(textsOf(sink.GetEntries(0, -1)), (std::vector<std::string>{"0:two"})) << position;
        sink.Log(2, &kWhen, "new");
        EXPECT_EQ(readBytes(m_path).substr(12, record(1, 2, "new").size()), record(1, 2, "new")) << position;
    }
}

TEST_F(LogFileSinkTest, UnreadableFile_IsMovedAsideAndANewOneSaysSo) {
    struct Case {
        std::string line;
        std::string reason;
    };
    const Case cases[] = {
        {"0;t;abc;2;text\r\n", "invalid stoll argument"},
        {"0;t;1;x;text\r\n", "invalid stoi argument"},
        {"0;t;1;99999999999;text\r\n", "stoi argument out of range"},
        {"0;t;99999999999999999999;2;text\r\n", "stoll argument out of range"},
        {"\x01\xff\x7f;\x02;\x03;\x04;\x05\n\x06", "invalid stoll argument"},
    };
    std::set<std::string> asides;
    for (const auto& c : cases) {
        const std::string corrupt = header(12 + c.line.size()) + c.line;
        writeBytes(m_path, corrupt);
        LogFileSink sink(50000);
        std::vector<std::string> notices;
        sink.SetNoticeHandler([&](const std::string& notice) { notices.push_back(notice); });
        sink.SetFile(m_path.string());

        const std::string prefix = "Log file " + m_path.string() + " could not be read (" + c.reason +
                                   "): moved it to " + m_path.string() + ".corrupt-";
        ASSERT_EQ(notices.size(), 1u) << c.reason;
        EXPECT_EQ(notices[0].rfind(prefix, 0), 0u) << notices[0];
        EXPECT_TRUE(notices[0].ends_with(" and started a new one")) << notices[0];
        const std::string aside =
            notices[0].substr(notices[0].find(" moved it to ") + 13,
                              notices[0].find(" and started") - notices[0].find(" moved it to ") - 13);
        EXPECT_EQ(readBytes(aside), corrupt);
        asides.insert(aside);
        EXPECT_EQ(textsOf(sink.GetEntries(0, -1)), (std::vector<std::string>{"0:" + notices[0]}));

        sink.Log(2, &kWhen, "after");
        const auto lines = ovtx::log::log_perf::v4::testing::readLogFile(m_path.string());
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[0].level, 1);
        EXPECT_EQ(lines[0].text, notices[0]);
        EXPECT_EQ(lines[1].text, "after");
    }
    // Files moved aside within the same second keep distinct names.
    EXPECT_EQ(asides.size(), std::size(cases));
}

TEST_F(LogFileSinkTest, FileFarOverTheLimit_IsMovedAsideAndItsNewestLinesKept) {
    constexpr std::uint32_t kLimit = 2000;
    std::string records;
    for (int index = 0; index < 200; ++index) {
        records += record(index, 2, "record " + std::to_string(1000 + index));
    }
    const std::string original = header(12 + records.size()) + records;
    writeBytes(m_path, original);

    LogFileSink sink(50000);
    sink.SetFileSizeLimit(kLimit);
    std::vector<std::string> notices;
    sink.SetNoticeHandler([&](const std::string& notice) { notices.push_back(notice); });
    sink.SetFile(m_path.string());

    ASSERT_EQ(notices.size(), 1u);
    const std::string prefix = "Log file " + m_path.string() + " held " + std::to_string(original.size()) +
                               " bytes, over its limit of 2000: moved it to " + m_path.string() +
                               ".oversize-";
    EXPECT_EQ(notices[0].rfind(prefix, 0), 0u) << notices[0];
    const std::size_t asideAt = notices[0].find(" moved it to ") + 13;
    EXPECT_EQ(readBytes(notices[0].substr(asideAt, notices[0].find(" and kept") - asideAt)), original);

    // The newest records, half the limit's worth, then the notice.
    const auto entries = sink.GetEntries(0, -1);
    const std::size_t oneRecord = record(199, 2, "record 1199").size();
    ASSERT_EQ(entries.size(), kLimit / 2 / oneRecord + 1);
    EXPECT_EQ(entries[entries.size() - 2].second.text, "record 1199");
    EXPECT_EQ(entries.back().second.text, notices[0]);
    EXPECT_LE(std::filesystem::file_size(m_path), 12 + kLimit / 2 + oneRecord + notices[0].size() + 60);

    for (int index = 0; index < 100; ++index) {
        sink.Log(2, &kWhen, "more");
    }
    EXPECT_LE(std::filesystem::file_size(m_path), kLimit + LogFileSink::kLimitAllowance);
}

TEST_F(LogFileSinkTest, Reader_GivesTheLinesOfAFinishedFileAndCreatesNone) {
    {
        LogFileSink sink(50000);
        sink.SetFile(m_path.string());
        sink.Log(2, &kWhen, "API initialisation Failure");
        sink.Log(1, &kWhen, "second");
    }
    const auto lines = ovtx::log::log_perf::v4::testing::readLogFile(m_path.string());
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(ovtx::log::log_perf::v4::testing::containsText(lines, "API initialisation Failure"));
    EXPECT_EQ(lines[1].level, 1);
    const auto missing = m_directory / "missing.log";
    EXPECT_TRUE(ovtx::log::log_perf::v4::testing::readLogFile(missing.string()).empty());
    EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST(LogHistoryTest, Limit_PushesOutTheOldestEntry) {
    LogHistory history(50000);
    for (std::int64_t sequence = 0; sequence <= 50000; ++sequence) {
        history.insert(sequence, HistoryEntry{});
    }
    std::int64_t first = 0;
    std::int64_t last = 0;
    EXPECT_TRUE(history.getRange(0, -1, first, last));
    EXPECT_EQ(first, 1);
    EXPECT_EQ(last, 50000);
}

TEST(LogHistoryTest, Ranges_ResolveNegativeIndicesAndClip) {
    LogHistory history(100);
    for (std::int64_t sequence = 10; sequence <= 14; ++sequence) {
        history.insert(sequence, HistoryEntry{2, sequence, "", "line " + std::to_string(sequence)});
    }
    struct Case {
        std::int64_t first, last;
        bool expected;
        std::int64_t firstOut, lastOut;
        std::size_t entries;
    };
    const Case cases[] = {
        {-1, -1, true, 14, 14, 1},                              // the newest line
        {-3, -1, true, 12, 14, 3},  {0, 100, true, 10, 14, 5},  // clipped to what is kept
        {13, 11, false, 13, 11, 0},                             // last below first
        {-20, 11, true, 10, 11, 2}, {20, 30, false, 20, 14, 0},
    };
    for (const auto& c : cases) {
        std::int64_t first = -99;
        std::int64_t last = -99;
        EXPECT_EQ(history.getRange(c.first, c.last, first, last), c.expected) << c.first << ".." << c.last;
        EXPECT_EQ(first, c.firstOut) << c.first << ".." << c.last;
        EXPECT_EQ(last, c.lastOut) << c.first << ".." << c.last;
        EXPECT_EQ(history.getEntries(c.first, c.last).size(), c.entries) << c.first << ".." << c.last;
    }
    const auto newest = history.getEntries(-2, -1);
    ASSERT_EQ(newest.size(), 2u);
    EXPECT_EQ(newest[0].second.text, "line 13");
    EXPECT_EQ(newest[1].second.text, "line 14");
}

}  // namespace
