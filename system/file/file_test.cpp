#include "system/file/file.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace file = ovtx::system::file::v2;
using file::FileException;

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void writeAll(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

// Runs `action`, expecting a FileException with exactly `text`.
template <typename Action>
void expectFailure(Action action, const std::string& text) {
    try {
        action();
        ADD_FAILURE() << "no failure, expected: " << text;
    } catch (const FileException& e) {
        EXPECT_EQ(e.what(), text);
    }
}

class FileTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_root =
            (std::filesystem::temp_directory_path() / ("file_test_" + std::to_string(::getpid()))).string();
        std::filesystem::create_directories(m_root);
    }
    void TearDown() override { std::filesystem::remove_all(m_root); }

    std::string m_root;
};

TEST_F(FileTest, CreateDirectories_MakesMissingParentsAndAcceptsExisting) {
    const std::string logs = m_root + "/root/Logs";
    file::createDirectories(logs);
    file::createDirectories(logs + "/");
    EXPECT_TRUE(file::isDirectory(logs));
    file::checkIsDirectory(logs);
}

TEST_F(FileTest, Enumerate_ListsEntriesWithoutDotEntries) {
    file::createDirectory(m_root + "/sub");
    writeAll(m_root + "/a.log", "a");
    auto entries = file::enumerateDirectory(m_root);
    std::sort(entries.begin(), entries.end(), [](const auto& x, const auto& y) { return x.name < y.name; });
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].name, "a.log");
    EXPECT_FALSE(entries[0].isDirectory);
    EXPECT_EQ(entries[1].name, "sub");
    EXPECT_TRUE(entries[1].isDirectory);
}

TEST_F(FileTest, CopyAndRemoveRecursive_HandleATree) {
    file::createDirectories(m_root + "/source/deep");
    writeAll(m_root + "/source/one.txt", "one");
    writeAll(m_root + "/source/deep/two.txt", "two");
    writeAll(m_root + "/target.txt", "old content that is longer");
    file::copyFile(m_root + "/source/one.txt", m_root + "/target.txt");
    EXPECT_EQ(readAll(m_root + "/target.txt"), "one");

    file::copyDirectoryRecursive(m_root + "/source", m_root + "/copy");
    EXPECT_EQ(readAll(m_root + "/copy/deep/two.txt"), "two");
    file::removeDirectoryRecursive(m_root + "/copy");
    EXPECT_FALSE(file::pathExists(m_root + "/copy"));
    EXPECT_TRUE(file::pathExists(m_root + "/source/deep/two.txt"));
}

TEST_F(FileTest, Failures_NameThePathAndTheError) {
    const std::string missing = m_root + "/missing";
    const std::string enoent = std::to_string(ENOENT);
    expectFailure([&] { file::enumerateDirectory(missing); },
                  "could not enumerate the contents of [" + missing + "]: Win32 error " + enoent);
    expectFailure([&] { file::createDirectory(missing + "/x"); },
                  "could not create directory [" + missing + "/x]: Win32 error " + enoent);
    expectFailure([&] { file::createDirectory(m_root); },
                  "could not create directory [" + m_root + "]: Win32 error " + std::to_string(EEXIST));
    expectFailure([&] { file::removeFile(missing); },
                  "could not remove file [" + missing + "]: Win32 error " + enoent);
    expectFailure([&] { file::removeDirectory(missing); },
                  "could not remove directory [" + missing + "]: Win32 error " + enoent);
    expectFailure([&] { file::copyFile(missing, m_root + "/t"); },
                  "cannot copy " + missing + " to " + m_root + "/t");
    expectFailure([&] { file::checkIsDirectory(missing); }, missing + " is not a directory");
    expectFailure([&] { file::normalisePath(""); }, "invalid path []");
    expectFailure([&] { file::normalisePath("/a/../.."); }, "invalid path [/a/../..]");
}

TEST_F(FileTest, NormalisePath_ResolvesDotsAndSeparators) {
    struct Case {
        std::string path;
        std::string expected;
    };
    const Case cases[] = {
        {"/opt//sdi/./App/../Logs/", "/opt/sdi/Logs"},
        {"/", "/"},
        {"/a/..", "/"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(file::normalisePath(c.path), c.expected) << c.path;
    }
    EXPECT_EQ(file::normalisePath("x/y"),
              file::normalisePath(std::filesystem::current_path().string() + "/x/y"));
}

}  // namespace
