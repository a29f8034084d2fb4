#include "tools/media_files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "testing/files.h"
#include "testing/shm.h"

namespace {

using namespace ovtx::tools::simulcast_follow::v1;
using ovtx::test_support::v1::readFileBytes;
using ovtx::test_support::v1::uniqueName;
using ovtx::test_support::v1::valueAt;
namespace fs = std::filesystem;

class MediaFilesTest : public testing::Test {
  protected:
    void SetUp() override { m_path = fs::temp_directory_path() / uniqueName("media_files_"); }
    void TearDown() override { fs::remove(m_path); }
    fs::path m_path;
};

// A follow may end at any moment: the file is a complete WAV file from open() on.
TEST_F(MediaFilesTest, Wav_CompleteAfterOpenAndAfterEveryAppend) {
    WavFile wav;
    ASSERT_TRUE(wav.open(m_path.string()));
    std::string bytes = readFileBytes(m_path);
    ASSERT_EQ(bytes.size(), 44u);
    EXPECT_EQ(valueAt<std::uint32_t>(bytes, 4), 36u);
    EXPECT_EQ(valueAt<std::uint32_t>(bytes, 24), 48000u);
    EXPECT_EQ(valueAt<std::uint32_t>(bytes, 40), 0u);

    ASSERT_TRUE(wav.start(44100));
    const std::vector<std::int16_t> samples{1, -1, 2, -2, 3, -3};
    ASSERT_TRUE(wav.append(samples.data(), 3));
    bytes = readFileBytes(m_path);  // not closed yet
    ASSERT_EQ(bytes.size(), 44u + 12);
    EXPECT_EQ(valueAt<std::uint32_t>(bytes, 4), 36u + 12);
    EXPECT_EQ(valueAt<std::uint32_t>(bytes, 24), 44100u);
    EXPECT_EQ(valueAt<std::uint32_t>(bytes, 28), 44100u * 4);
    EXPECT_EQ(valueAt<std::uint32_t>(bytes, 40), 12u);
    EXPECT_EQ(valueAt<std::int16_t>(bytes, 46), -1);
}

TEST_F(MediaFilesTest, Y4m_FieldOrderAndPixelAspectOfTheFormat) {
    const struct {
        FormatGeometry geometry;
        int depth;
        int aspectNumerator;
        int aspectDenominator;
        const char* header;
    } cases[] = {
        {{720, 576, 25, 1, true}, 8, 4, 3, "YUV4MPEG2 W720 H576 F25:1 It A16:15 C420\n"},
        {{720, 480, 30000, 1001, true}, 8, 16, 9, "YUV4MPEG2 W720 H480 F30000:1001 Ib A32:27 C420\n"},
        {{1920, 1080, 25, 1, false},
         10,
         16,
         9,
         "YUV4MPEG2 W1920 H1080 F25:1 Ip A1:1 C420p10 XYSCSS=420P10\n"},
    };
    for (const auto& c : cases) {
        Y4mFile y4m;
        ASSERT_TRUE(y4m.open(m_path.string()));
        ASSERT_TRUE(y4m.start(c.geometry, c.depth, c.aspectNumerator, c.aspectDenominator));
        ASSERT_TRUE(y4m.close());
        EXPECT_EQ(readFileBytes(m_path), c.header);
    }
}

TEST(MediaFilesNamesTest, StandardOutputNames) {
    EXPECT_TRUE(isStandardOutput("-"));
    EXPECT_TRUE(isStandardOutput("/dev/stdout"));
    EXPECT_FALSE(isStandardOutput("-x"));
    EXPECT_FALSE(isStandardOutput("out.wav"));
}

}  // namespace
