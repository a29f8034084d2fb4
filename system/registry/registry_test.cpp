#include "system/registry/registry.h"

#include <gtest/gtest.h>

#include <cstdlib>
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

TEST_F(RegistryKeyTest, OneTrailingLineEndIsNotPartOfTheValue) {
    auto key = RegistryKey::open("SOFTWARE\\FirmwareAgent\\CurrentVersion\\");
    ASSERT_TRUE(key);
    writeValue("/srv/firm/App/Bin\n");
    EXPECT_EQ(key->queryValue("Pathname", 255), "/srv/firm/App/Bin");
    writeValue("/srv/firm\r\n");
    EXPECT_EQ(key->queryValue("Pathname", 255), "/srv/firm");
    writeValue("/srv/firm\n\n");
    EXPECT_EQ(key->queryValue("Pathname", 255), "/srv/firm\n");
}

TEST_F(RegistryKeyTest, ValueIsCutToTheBufferAndAtItsNul) {
    auto key = RegistryKey::open("SOFTWARE\\FirmwareAgent\\CurrentVersion");
    ASSERT_TRUE(key);
    writeValue(std::string(300, 'a'));
    EXPECT_EQ(key->queryValue("Pathname", 255), std::string(254, 'a'));
    writeValue(std::string("/a\0/b", 5));
    EXPECT_EQ(key->queryValue("Pathname", 255), "/a");
}

}  // namespace
