#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <MovieDemo/Movie.h>

#include <cstdio>
#include <set>
#include <stdexcept>
#include <string>

namespace {

using Brantel::MovieDemo::Movie;
using Brantel::ProtocolX::DataChunk;
using Brantel::Time::TimePoint;

// A picture of 640x360 that nobody can look at, but with its header; another height for another
// one.
std::string Picture(const std::string& contents, char heightLow = '\x68') {
    return std::string("\xFF\xD8\xFF\xC0\x00\x0B\x08\x01", 8) + heightLow +
           std::string("\x02\x80\x01", 3) + contents;
}

class MovieTest : public testing::Test {
  protected:
    void Save(std::size_t frame, const std::string& image) const {
        Movie::Save(folder.Path(), frame, image, "small " + std::to_string(frame));
    }
    Movie Load() const { return Movie::Load(folder.Path(), TimePoint::Nanoseconds(1000)); }
    std::string RefusalOfLoading() const {
        try {
            Load();
            return "loaded";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }
    Brantel::Tests::TemporaryFolder folder;
};

TEST_F(MovieTest, WhatWasSavedIsLoaded) {
    Save(0, Picture("a"));
    Save(1, Picture("bb"));
    const Movie movie = Load();
    ASSERT_EQ(movie.FrameCount(), 2U);
    EXPECT_EQ(movie.Image(1), Picture("bb"));
    EXPECT_EQ(movie.Thumbnail(1), "small 1");
    EXPECT_EQ(movie.Bytes(), 13U + 14U + 7U + 7U);
}

TEST_F(MovieTest, FramesFollowEachOtherEvery40Milliseconds) {
    Save(0, Picture("a"));
    Save(1, Picture("b"));
    const Movie movie = Load();
    EXPECT_EQ(movie.TimeOf(0), TimePoint::Nanoseconds(1000));
    EXPECT_EQ(movie.TimeOf(1), TimePoint::Nanoseconds(40'001'000));
    EXPECT_EQ(movie.End(), TimePoint::Nanoseconds(80'001'000));
}

TEST_F(MovieTest, AChunkHoldsThePicturesAndWhatTheyAre) {
    Save(0, Picture("a"));
    const DataChunk chunk = Load().MakeChunk(0);
    EXPECT_EQ(chunk.GetTimePoint(), TimePoint::Nanoseconds(1000));
    EXPECT_EQ(chunk.GetDuration(), TimePoint::Nanoseconds(40'000'000));
    EXPECT_EQ(chunk.GetPropertyKeys(), (std::set<std::string>{"width", "height", "codec"}));
    EXPECT_EQ(chunk.GetProperty("width"), "640");
    EXPECT_EQ(chunk.GetProperty("height"), "360");
    EXPECT_EQ(chunk.GetProperty("codec"), "mjpeg");
    EXPECT_EQ(chunk.GetData("image"), Picture("a"));
    EXPECT_EQ(chunk.GetData("thumbnail"), "small 0");
}

TEST_F(MovieTest, AFolderWithoutPicturesIsNamed) {
    EXPECT_EQ(RefusalOfLoading(), folder.File("image-000000.jpg") + ": No such file or directory");
}

TEST_F(MovieTest, AMissingThumbnailIsNamed) {
    Save(0, Picture("a"));
    std::remove(folder.File("thumbnail-000000.jpg").c_str());
    EXPECT_EQ(RefusalOfLoading(),
              folder.File("thumbnail-000000.jpg") + ": No such file or directory");
}

TEST_F(MovieTest, APictureOfAnotherSizeIsNamed) {
    Save(0, Picture("a"));
    Save(1, Picture("b", '\x69'));
    EXPECT_EQ(RefusalOfLoading(),
              folder.File("image-000001.jpg") + ": 640x361 is not the size of the first picture");
}

TEST_F(MovieTest, WhatIsNoPictureIsNamed) {
    Save(0, "hello");
    EXPECT_EQ(RefusalOfLoading(),
              folder.File("image-000000.jpg") + ": These 5 bytes are no JPEG picture");
}

TEST_F(MovieTest, SavingIntoAFolderThatIsNotThereIsAnError) {
    EXPECT_THROW(Movie::Save(folder.File("nowhere"), 0, "a", "b"), std::runtime_error);
}

}  // namespace
