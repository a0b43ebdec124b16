#include <gtest/gtest.h>

#include <MovieDemo/JpegSize.h>

#include <stdexcept>
#include <string>

namespace {

using Brantel::MovieDemo::JpegSize;

// The begin of a picture, one segment to be skipped, and a frame header of 640x360.
const std::string start("\xFF\xD8", 2);
const std::string application("\xFF\xE0\x00\x04\xFF\xC0", 6);
const std::string frameHeader("\xFF\xC0\x00\x0B\x08\x01\x68\x02\x80\x01", 10);

TEST(JpegSizeTest, TheSizeStandsInTheFrameHeader) {
    const JpegSize size = JpegSize::Of(start + application + frameHeader);
    EXPECT_EQ(size.width, 640U);
    EXPECT_EQ(size.height, 360U);
}

TEST(JpegSizeTest, OtherBytesAreNoPicture) {
    for (const std::string bytes : {"", "\xFF", "GIF89a"}) {
        EXPECT_THROW(JpegSize::Of(bytes), std::runtime_error) << bytes;
    }
}

TEST(JpegSizeTest, APictureThatEndsBeforeItsFrameHeaderDoesIsRefused) {
    const std::string whole = start + application + frameHeader;
    for (std::size_t size = 2; size < whole.size() - 1; ++size) {
        EXPECT_THROW(JpegSize::Of(whole.substr(0, size)), std::runtime_error) << size;
    }
}

}  // namespace
