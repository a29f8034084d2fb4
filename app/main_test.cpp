#include "app/main.h"

#include <gtest/gtest.h>
#include "system/process/piped_child.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

using namespace ovtx::app::sdi_tap::v1;
namespace fs = std::filesystem;

TEST(FirmwareRootTest, RootIsAheadOfTheFirstAppMark) {
    EXPECT_EQ(firmwareRootFromPathname("/srv/firm/App/Bin"), "/srv/firm");
    EXPECT_EQ(firmwareRootFromPathname("/srv/firm"), "/srv/firm");
    EXPECT_EQ(firmwareRootFromPathname("/tools/Application/Bin"), "/tools");
    EXPECT_EQ(firmwareRootFromPathname("/a/App/b/App"), "/a");
    EXPECT_EQ(firmwareRootFromPathname("/srv/app/Bin"), "/srv/app/Bin");  // case-sensitive
    EXPECT_EQ(firmwareRootFromPathname("/Ap"), "/Ap");
    EXPECT_EQ(firmwareRootFromPathname("/App"), "");
}

TEST(PortNameTest, DecimalPortOrFourK) {
    EXPECT_EQ(composePortName(false, 2), "2");
    EXPECT_EQ(composePortName(true, -1), "4K");
}

class FindFirmwareRootTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_root = fs::temp_directory_path() /
                 ("sdi_tap_root_test_" + std::to_string(ovtx::system::process::v1::currentProcessId()));
        ::setenv("SDI_TAP_REGISTRY", m_root.c_str(), 1);
    }
    void TearDown() override {
        ::unsetenv("SDI_TAP_REGISTRY");
        fs::remove_all(m_root);
    }
    void setPathname(const char* vendor, const char* value) {
        const fs::path key = m_root / "SOFTWARE" / vendor / "CurrentVersion";
        fs::create_directories(key);
        if (value != nullptr) {
            std::ofstream(key / "Pathname") << value << "\n";
        }
    }
    fs::path m_root;
};

TEST_F(FindFirmwareRootTest, NeitherKeyFails) {
    std::string root;
    EXPECT_FALSE(findFirmwareRoot(root));
}

TEST_F(FindFirmwareRootTest, SecondKeyIsTheFallback) {
    setPathname("ORVANTA_VTX", "/opt/vtx/App/Bin");
    std::string root;
    ASSERT_TRUE(findFirmwareRoot(root));
    EXPECT_EQ(root, "/opt/vtx");
}

TEST_F(FindFirmwareRootTest, FirstKeyWinsAndItsMissingValueFails) {
    setPathname("ORVANTA_VTX", "/opt/vtx");
    setPathname("FirmwareAgent", "/srv/firm/App/Bin");
    std::string root;
    ASSERT_TRUE(findFirmwareRoot(root));
    EXPECT_EQ(root, "/srv/firm");
    fs::remove(m_root / "SOFTWARE" / "FirmwareAgent" / "CurrentVersion" / "Pathname");
    EXPECT_FALSE(findFirmwareRoot(root));
}

TEST_F(FindFirmwareRootTest, OnlyAnAbsolutePathnameNamesARoot) {
    const struct {
        const char* value;
        bool found;
        const char* root;
    } cases[] = {
        {"/srv/firm/App/Bin", true, "/srv/firm"},
        {"/App/Bin", true, ""},  // the file system's root: the log goes to /Logs
        {"", false, ""},
        {"srv/firm/App/Bin", false, ""},
        {"./App/Bin", false, ""},
        {" /srv/firm", false, ""},
    };
    for (const auto& c : cases) {
        setPathname("FirmwareAgent", c.value);
        std::string root;
        EXPECT_EQ(findFirmwareRoot(root), c.found) << "'" << c.value << "'";
        if (c.found) {
            EXPECT_EQ(root, c.root);
        }
    }
}

}  // namespace
