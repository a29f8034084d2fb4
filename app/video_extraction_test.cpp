#include "app/video_extraction.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "encoding/picture/packed_to_planar.h"
#include "testing/expect_failure.h"

namespace {

using namespace ovtx::app::sdi_tap::v1;
namespace formats = ovtx::encoding::sdi::sdi_common::v2;
using ovtx::test_support::v1::expectFailure;

std::vector<std::uint8_t> counting(std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{7});
    return bytes;
}

TEST(VideoExtractionTest, PlanarProgressive_IsOneCopyCutToThePicture) {
    const formats::SdiFormatInfo info(formats::VS_HD_1280_720p_50);
    VideoExtraction video(info, true, false);
    ASSERT_EQ(video.pictureBytes(), 1280u * 720 * 3 / 2);
    const auto board = counting(video.pictureBytes() + 100);  // more than a picture: the rest is left
    std::vector<std::uint8_t> picture(video.pictureBytes() + 100, 0);
    video.extractPicture(board.data(), board.size(), picture.data());
    EXPECT_TRUE(std::equal(picture.begin(), picture.end() - 100, board.begin()));
    EXPECT_EQ(picture.back(), 0);
}

TEST(VideoExtractionTest, PackedProgressive_ConvertsTheBoardsLines) {
    const formats::SdiFormatInfo info(formats::VS_HD_1280_720p_50);
    VideoExtraction video(info, false, false);
    EXPECT_EQ(video.workingBytes(), 1280u * 2 * 720);
    const auto board = counting(1280 * 2 * 720);
    std::vector<std::uint8_t> picture(video.pictureBytes()), expected(video.pictureBytes());
    video.extractPicture(board.data(), board.size(), picture.data());
    ovtx::encoding::picture::v1::convertPackedToPlanar(board.data(), 2 * 1280, expected.data(), 1280, 720);
    EXPECT_EQ(picture, expected);
    expectFailure([&] { video.extractPicture(board.data(), board.size() - 1, picture.data()); },
                  "Unexpected frame size in Progressive function");
}

TEST(VideoExtractionTest, Refusals_NameWhatCantBeExtracted) {
    formats::SdiFormatInfo segmented(formats::VS_HD_1920_1080p_25);
    segmented.scan = formats::SCAN_PSF;
    const struct {
        formats::SdiFormatInfo info;
        bool planar;
        bool tenBit;
        std::size_t size;
        std::string text;
    } cases[] = {
        {segmented, true, false, 1920 * 1080 * 3 / 2, "Not Implented PSF video format"},
        {formats::SdiFormatInfo(formats::VS_PAL_720_576i_50), false, false, 720 * 2 * 576 - 1,
         "Unexpected frame size in Interleave function"},
        {formats::SdiFormatInfo(formats::VS_PAL_720_576i_50), true, true, 720 * 576 * 3 - 1,
         "Unexpected frame size in Interleave function"},
    };
    for (const auto& c : cases) {
        VideoExtraction video(c.info, c.planar, c.tenBit);
        const std::vector<std::uint8_t> board(c.size);
        std::vector<std::uint8_t> picture(video.pictureBytes());
        expectFailure([&] { video.extractPicture(board.data(), board.size(), picture.data()); }, c.text);
    }
}

}  // namespace
