// The state file against a real file in a temporary directory.
#include "network/restful_web_service/state_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "config/abstract_variable/declaration.h"
#include "log/testing/capturing_logger.h"
#include "testing/files.h"
#include "testing/shm.h"

namespace {

namespace av = ovtx::config::abstract_variable::lib_abstract_variable::v2;
using ovtx::log::log_perf::v4::testing::CapturingLogger;
using ovtx::network::restful_web_service::v3::StateFile;
using ovtx::test_support::v1::readFileBytes;
using ovtx::test_support::v1::uniqueName;

struct Settings {
    std::int32_t level = 1;
    std::string name = "first";
    std::int32_t locked = 5;
};

const av::Declaration<Settings>& settingsDeclaration() {
    static const auto kDeclaration = av::StructDeclaration<Settings>()
                                         .field("Level", &Settings::level)
                                         .field("Name", &Settings::name)
                                         .readOnlyField("Locked", &Settings::locked)
                                         .build();
    return kDeclaration;
}

class StateFileTest : public ::testing::Test {
  protected:
    StateFileTest() : m_dir(std::filesystem::temp_directory_path() / uniqueName("sdi_tap_state_")) {
        std::filesystem::create_directories(m_dir);
    }
    ~StateFileTest() override { std::filesystem::remove_all(m_dir); }

    std::shared_ptr<av::IAbstractObject> tree(const std::shared_ptr<Settings>& data) {
        return settingsDeclaration().factory(data)();
    }
    std::string path() const { return (m_dir / "service.state").string(); }
    void writeFile(const std::string& text) const { std::ofstream(path()) << text; }

    std::filesystem::path m_dir;
    CapturingLogger m_logger;
};

TEST_F(StateFileTest, SavedTree_LoadsIntoAnotherTree) {
    auto saved = std::make_shared<Settings>(Settings{9, "ninth", 6});
    StateFile(path(), tree(saved)).save();
    EXPECT_EQ(readFileBytes(path()),
              "{\n   \"Level\" : 9,\n   \"Locked\" : 6,\n   \"Name\" : \"ninth\"\n}\n");
    EXPECT_FALSE(std::filesystem::exists(path() + ".tmp"));

    auto loaded = std::make_shared<Settings>();
    EXPECT_TRUE(StateFile(path(), tree(loaded)).load(m_logger, true));
    EXPECT_EQ(loaded->level, 9);
    EXPECT_EQ(loaded->name, "ninth");
    EXPECT_EQ(loaded->locked, 5) << "a read-only member is not loaded";
    EXPECT_EQ(m_logger.lines(), std::vector<std::string>{});
}

TEST_F(StateFileTest, MissingFile_LeavesTheTreeWithoutAWord) {
    auto data = std::make_shared<Settings>();
    EXPECT_FALSE(StateFile(path(), tree(data)).load(m_logger, false));
    EXPECT_EQ(data->name, "first");
    EXPECT_EQ(m_logger.lines(), std::vector<std::string>{});
}

// A file that can't be loaded whole changes nothing: the service starts from the factory's tree.
TEST_F(StateFileTest, FileThatDoesNotFit_IsLoggedAndLeavesTheTreeAlone) {
    const struct {
        const char* content;
        bool allowPartial;
        const char* text;
    } cases[] = {
        {"{\"Level\": 3, \"Name\": ", true,
         "* Line 1, Column 22\n  Syntax error: value, object or array expected.\n"},
        {"{\"Level\": 3, \"Name\": 4, \"Locked\": 1}", true, "Cannot unserialize json: incorrect type"},
        {"{\"Level\": 3, \"Name\": \"x\", \"Locked\": 1}", false, "cannot unserialize read only variable"},
        {"{\"Level\": 3, \"Name\": \"x\"}", false, "Missing child \"Locked\" in struct"},
    };
    for (const auto& entry : cases) {
        writeFile(entry.content);
        auto data = std::make_shared<Settings>();
        CapturingLogger logger;
        EXPECT_FALSE(StateFile(path(), tree(data)).load(logger, entry.allowPartial)) << entry.content;
        EXPECT_EQ(data->level, 1) << entry.content;
        EXPECT_EQ(logger.lines(),
                  std::vector<std::string>{"0 Cannot load file " + path() + " : " + entry.text})
            << entry.content;
    }
}

TEST_F(StateFileTest, UnreadablePath_IsLogged) {
    std::filesystem::create_directory(path());
    auto data = std::make_shared<Settings>();
    EXPECT_FALSE(StateFile(path(), tree(data)).load(m_logger, true));
    EXPECT_EQ(m_logger.lines(),
              std::vector<std::string>{"0 Cannot load file " + path() + " : could not read file: " + path()});
}

TEST_F(StateFileTest, SaveIfChanged_WritesOnlyADifferentTree) {
    auto data = std::make_shared<Settings>();
    StateFile state(path(), tree(data));
    state.saveIfChanged();  // nothing written yet: the first check writes
    ASSERT_TRUE(std::filesystem::exists(path()));
    std::filesystem::remove(path());
    state.saveIfChanged();
    EXPECT_FALSE(std::filesystem::exists(path())) << "same tree, written again";
    data->name = "second";
    state.saveIfChanged();
    EXPECT_NE(readFileBytes(path()).find("\"second\""), std::string::npos);
}

TEST_F(StateFileTest, UnwritableDirectory_FailsTheSave) {
    auto data = std::make_shared<Settings>();
    StateFile state((m_dir / "missing" / "service.state").string(), tree(data));
    try {
        state.save();
        ADD_FAILURE() << "saved into a missing directory";
    } catch (const std::exception& e) {
        EXPECT_EQ(std::string(e.what()),
                  "Cannot open file " + (m_dir / "missing" / "service.state.tmp").string() + " for writing");
    }
}

}  // namespace
