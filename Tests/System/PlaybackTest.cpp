// The demonstration finds every difference between what was recorded and what is read.

#include "Support/Refusal.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"

#include <libTime/TimePoint.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <MovieDemo/Comparison.h>
#include <MovieDemo/Movie.h>
#include <MovieDemo/Playback.h>
#include <MovieDemo/Recording.h>
#include <MovieDemo/TrackInspection.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace Brantel::Tests {
namespace {

using MovieDemo::Comparison;
using MovieDemo::Movie;
using MovieDemo::Playback;
using MovieDemo::Recording;
using MovieDemo::TrackInspection;
using testing::HasSubstr;

constexpr std::size_t frameCount = 6;

// Not for looking at, but with the frame header of a picture of 640x360.
std::string Picture(std::size_t frame) {
    return std::string("\xFF\xD8\xFF\xC0\x00\x0B\x08\x01\x68\x02\x80\x01", 12) +
           std::string(5000, static_cast<char>(frame));
}

class PlaybackTest : public testing::Test {
  protected:
    Movie Make() const {
        for (std::size_t frame = 0; frame < frameCount; ++frame) {
            Movie::Save(made.Path(), frame, Picture(frame), "small " + std::to_string(frame));
        }
        return Load();
    }
    Movie Load() const {
        return Movie::Load(made.Path(), Time::TimePoint::Nanoseconds(1'000'000'000));
    }
    // Plays what was recorded and compares it with what now lies in the folder.
    std::string DifferenceOf(const std::function<void(Playback&)>& play) {
        const Movie movie = Load();
        Playback playback(*reading, recording.Track().id, movie, comparison);
        return RefusalOf([&] { play(playback); });
    }

    TemporaryFolder made;
    TemporaryFolder output;
    ServerProcess server{output.File("storage.sock")};
    std::unique_ptr<ProtocolX::StorageClientX> writing = server.ConnectOverUnix();
    std::unique_ptr<ProtocolX::StorageClientX> reading = server.ConnectOverTcp();
    const Movie recorded = Make();
    Recording recording{*writing, recorded};
    Comparison comparison;
};

TEST_F(PlaybackTest, WhatWasRecordedIsReadInEveryDirection) {
    recording.Record();
    EXPECT_EQ(DifferenceOf([&](Playback& playback) {
                  playback.WalkForward(output.Path());
                  playback.WalkBackward();
                  playback.Jump();
                  playback.ReadThumbnails();
                  playback.StepTimePoints();
              }),
              "nothing");
    const Movie read = Movie::Load(output.Path(), Time::TimePoint());
    EXPECT_EQ(read.FrameCount(), frameCount);
    EXPECT_EQ(read.Image(frameCount - 1), Picture(frameCount - 1));
}

TEST_F(PlaybackTest, OneByteThatDiffersIsFoundInEveryDirection) {
    recording.Record();
    std::string image = Picture(4);
    image[2000] = 'x';
    Movie::Save(made.Path(), 4, image, "small 4");
    const std::string difference = "frame 4, image: byte 2000 of 5012 is 4 instead of 120";
    EXPECT_EQ(DifferenceOf([&](Playback& playback) { playback.WalkForward(output.Path()); }),
              difference);
    EXPECT_EQ(DifferenceOf([](Playback& playback) { playback.WalkBackward(); }), difference);
    EXPECT_EQ(DifferenceOf([](Playback& playback) { playback.Jump(); }), difference);
}

TEST_F(PlaybackTest, AThumbnailThatDiffersIsFound) {
    recording.Record();
    Movie::Save(made.Path(), 2, Picture(2), "smaLl 2");
    EXPECT_EQ(DifferenceOf([](Playback& playback) { playback.ReadThumbnails(); }),
              "frame 2, thumbnail: byte 3 of 7 is 108 instead of 76");
}

TEST_F(PlaybackTest, AFrameThatWasNotRecordedIsMissed) {
    recording.Record();
    Movie::Save(made.Path(), frameCount, Picture(9), "small 9");
    EXPECT_EQ(DifferenceOf([&](Playback& playback) { playback.WalkForward(output.Path()); }),
              "frame 6 was not found");
    EXPECT_EQ(DifferenceOf([](Playback& playback) { playback.StepTimePoints(); }),
              "the last time point is 1.200000000 instead of 1.240000000");
}

TEST_F(PlaybackTest, TheTrackIsWhatWasRecorded) {
    recording.Record();
    TrackInspection inspection(*reading, recording.Track(), recorded, comparison);
    EXPECT_EQ(RefusalOf([&] {
                  inspection.CheckInfos();
                  inspection.CheckCounts();
                  inspection.CheckProperties();
                  inspection.CheckProtection();
              }),
              "nothing");
    EXPECT_GT(comparison.ComparedAnswers(), 30U);
}

TEST_F(PlaybackTest, ATrackThatGrewMeanwhileIsADifference) {
    recording.Record();
    AppendChunk(*writing, recording.Track().id, 9'000'000'000, "one more");
    TrackInspection inspection(*reading, recording.Track(), recorded, comparison);
    EXPECT_THAT(RefusalOf([&] { inspection.CheckInfos(); }),
                HasSubstr("the info's end is 9.000000001"));
    EXPECT_THAT(RefusalOf([&] { inspection.CheckCounts(); }),
                HasSubstr("the number of chunks in the whole time is 7 instead of 6"));
}

TEST_F(PlaybackTest, AStorageWithoutRoomIsAnError) {
    ServerProcess small(output.File("small.sock"), {"--capacity", "1MiB"});
    const auto client = small.ConnectOverUnix();
    Recording impossible(*client, recorded);
    EXPECT_THAT(RefusalOf([&] { impossible.Record(); }), HasSubstr("Exception from server: "));
}

}  // namespace
}  // namespace Brantel::Tests
