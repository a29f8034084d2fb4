#include "tools/caption_files.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "testing/files.h"
#include "testing/shm.h"

namespace {

using namespace ovtx::tools::simulcast_follow::v1;
using ovtx::test_support::v1::readFileBytes;
using ovtx::test_support::v1::uniqueName;
namespace fs = std::filesystem;

constexpr std::int64_t kSecond = 10000000;

TEST(CaptionFilesTest, DropFrameTimecode_SkipsTwoCodesAMinuteButEachTenth) {
    const struct {
        std::int64_t frame;
        const char* code;
    } cases[] = {{0, "00:00:00;00"},     {29, "00:00:00;29"},    {30, "00:00:01;00"},
                 {1799, "00:00:59;29"},  {1800, "00:01:00;02"},  {3597, "00:01:59;29"},
                 {3598, "00:02:00;02"},  {17981, "00:09:59;29"}, {17982, "00:10:00;00"},
                 {17984, "00:10:00;02"}, {19782, "00:11:00;02"}, {107892, "01:00:00;00"}};
    for (const auto& c : cases) {
        EXPECT_EQ(dropFrameTimecode(c.frame), c.code) << c.frame;
    }
}

TEST(CaptionFilesTest, TimesOnTheSccGridAndInSubRip) {
    EXPECT_EQ(sccFrameAt(0), 0);
    EXPECT_EQ(sccFrameAt(2 * kSecond), 60);  // 59.94 rounds to 60
    EXPECT_EQ(sccFrameAt(400000), 1);        // 40 ms: 1.2 frames
    EXPECT_EQ(subRipTime(0), "00:00:00,000");
    EXPECT_EQ(subRipTime(3600 * kSecond + 61 * kSecond + 5678900), "01:01:01,567");
}

class CaptionFileOutputTest : public testing::Test {
  protected:
    void SetUp() override { m_path = fs::temp_directory_path() / uniqueName("caption_files_"); }
    void TearDown() override { fs::remove(m_path); }
    fs::path m_path;
};

// Pairs at 25 fps land on successive 29.97 frames while they can, and start a new line where the
// grid leaves a frame out or where null pairs lie between them.
TEST_F(CaptionFileOutputTest, Scc_PairsOnTheGridNullsLeftOut) {
    SccFile scc;
    ASSERT_TRUE(scc.open(m_path.string()));
    for (int frame = 0; frame < 6; ++frame) {
        scc.addPair(frame * 400000, {0x94, static_cast<std::uint8_t>(0x20 + frame)});
    }
    scc.addPair(6 * 400000, {0x80, 0x80});  // frame 7 of the grid stays empty
    scc.addPair(2 * kSecond, {0xC2, 0x45});
    ASSERT_TRUE(scc.close());
    EXPECT_EQ(readFileBytes(m_path),
              "Scenarist_SCC V1.0\n\n00:00:00;00\t9420 9421 9422\n"
              "\n00:00:00;04\t9423 9424 9425\n\n00:00:02;00\tc245\n");
}

TEST_F(CaptionFileOutputTest, SubRip_OneCuePerShownTextClosedAtTheEnd) {
    SubRipFile srt;
    ASSERT_TRUE(srt.open(m_path.string()));
    srt.show(0, "");
    srt.show(kSecond, "BEEP");
    srt.show(kSecond + 400000, "BEEP");
    srt.show(kSecond + 1200000, "");
    srt.show(3 * kSecond, "BOP");
    ASSERT_TRUE(srt.close(3 * kSecond + 400000));
    EXPECT_EQ(readFileBytes(m_path),
              "1\n00:00:01,000 --> 00:00:01,120\nBEEP\n\n2\n00:00:03,000 --> 00:00:03,040\nBOP\n\n");
}

}  // namespace
