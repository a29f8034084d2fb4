#include "system/registry/registry.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <filesystem>
#include <fstream>

namespace {

using ovtx::system::registry::v1::RegistryKey;
namespace fs = std::filesystem;

class RegistryKeyTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_root = fs::temp_directory_path() / ("sdi_tap_registry_test_" + std::to_string(::getpid()));
        fs::create_directories(m_root / "SOFTWARE" / "FirmwareAgent" / "CurrentVersion");
        ::setenv("SDI_TAP_REGISTRY", m_root.c_str(), 1);
    }
    void TearDown() override {
        ::unsetenv("SDI_TAP_REGISTRY");
        fs::remove_all(m_root);
    }
    void writeValue(const std::string& text) {
        std::ofstream(m_root / "SOFTWARE" / "FirmwareAgent" / "CurrentVersion" / "Pathname", std::ios::binary)
            << text;
    }
    fs::path m_root;
};

TEST_F(RegistryKeyTest, KeyIsADirectoryBelowTheRoot) {
    EXPECT_TRUE(RegistryKey::open("SOFTWARE\\FirmwareAgent\\CurrentVersion\\").has_value());
    EXPECT_FALSE(RegistryKey::open("SOFTWARE\\ORVANTA_VTX\\CurrentVersion\\").has_value());
}

TEST_F(RegistryKeyTest, MissingValueFailsTheRead) {
    auto key = RegistryKey::open("SOFTWARE\\FirmwareAgent\\CurrentVersion\\");
    ASSERT_TRUE(key);
    EXPECT_FALSE(key->queryValue("Pathname", 255).has_value());
}

TEST_F(RegistryKeyTest, ValueText_LosesOneLineEndAndMustFitTheBufferWithItsNul) {
    auto key = RegistryKey::open("SOFTWARE\\FirmwareAgent\\CurrentVersion");
    ASSERT_TRUE(key);
    const struct {
        std::string stored;
        std::optional<std::string> read;
    } cases[] = {
        {"/srv/firm/App/Bin\n", "/srv/firm/App/Bin"},
        {"/srv/firm\r\n", "/srv/firm"},
        {"/srv/firm\n\n", "/srv/firm\n"},
        {std::string("/a\0/b", 5), "/a"},
        {std::string(254, 'a'), std::string(254, 'a')},
        {std::string(254, 'a') + "\r\n", std::string(254, 'a')},
        {std::string(255, 'a'), std::nullopt},
        {std::string(255, 'a') + "\n", std::nullopt},
        {std::string(300, 'a'), std::nullopt},
    };
    for (const auto& [stored, read] : cases) {
        writeValue(stored);
        EXPECT_EQ(key->queryValue("Pathname", 255), read) << stored.size() << " bytes stored";
    }
}

}  // namespace
