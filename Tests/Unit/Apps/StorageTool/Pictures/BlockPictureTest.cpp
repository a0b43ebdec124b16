#include <gtest/gtest.h>

#include <StorageTool/Pictures/BlockPicture.h>
#include <StorageTool/Pictures/JpegDecoder.h>

#include <stdexcept>
#include <string>

namespace Brantel::Tool {
namespace {

// The left half black, the right half white.
Picture HalfAndHalf() {
    Picture picture;
    picture.width = 4;
    picture.height = 4;
    for (int i = 0; i < picture.width * picture.height; ++i) {
        picture.pixels.insert(picture.pixels.end(), 3, i % 4 < 2 ? 0 : 255);
    }
    return picture;
}

TEST(BlockPictureTest, APictureKeepsItsShapeInTheRoom) {
    const BlockPicture::Size wide = BlockPicture::Fit(1600, 800, {80, 24});
    EXPECT_EQ(wide.columns, 80);
    EXPECT_EQ(wide.rows, 20);
    const BlockPicture::Size high = BlockPicture::Fit(800, 1600, {80, 24});
    EXPECT_EQ(high.columns, 24);
    EXPECT_EQ(high.rows, 24);
    const BlockPicture::Size least = BlockPicture::Fit(1, 10'000, {0, -5});
    EXPECT_EQ(least.columns, 1);
    EXPECT_EQ(least.rows, 1);
}

TEST(BlockPictureTest, ABlockShowsTwoPixelsInColor) {
    EXPECT_EQ(BlockPicture::Blocks(HalfAndHalf(), {2, 1}),
              "\x1b[38;2;0;0;0m\x1b[48;2;0;0;0m▀\x1b[38;2;255;255;255m\x1b[48;2;255;255;255m▀"
              "\x1b[0m\n");
}

TEST(BlockPictureTest, LettersAreGreys) {
    EXPECT_EQ(BlockPicture::Letters(HalfAndHalf(), {4, 2}), "  @@\n  @@\n");
}

TEST(BlockPictureTest, WhatIsNoPictureIsRefused) {
    JpegDecoder decoder;
    EXPECT_THROW(decoder.Decode("", 1, 1), std::runtime_error);
    EXPECT_THROW(decoder.Decode("GIF89a", 1, 1), std::runtime_error);
}

}  // namespace
}  // namespace Brantel::Tool
