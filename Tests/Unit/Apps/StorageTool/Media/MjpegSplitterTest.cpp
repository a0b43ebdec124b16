#include "SplitFixture.h"

#include <gtest/gtest.h>

#include <StorageTool/Media/MjpegSplitter.h>

#include <random>
#include <string>
#include <vector>

namespace Brantel::Tool {
namespace {

using std::string_literals::operator""s;

const std::string start = "\xFF\xD8"s;
const std::string end = "\xFF\xD9"s;

// A segment with its length.
std::string Segment(char marker, const std::string& content) {
    const std::size_t length = content.size() + 2;
    return "\xFF"s + marker + static_cast<char>(length >> 8U) + static_cast<char>(length & 0xFFU) +
           content;
}

// Coded data with everything that may stand in it: stuffed bytes, restart markers, fill bytes.
std::string CodedData(const std::string& text) {
    return text + "\xFF\x00"s + text + "\xFF\xD0"s + text + "\xFF\xD7\xFF\x00\xFF\x00"s;
}

std::string Picture(const std::string& text) {
    return start + Segment('\xE0', "JFIF\0"s) + Segment('\xC0', "frame") + Segment('\xDA', "scan") +
           CodedData(text) + end;
}

// One whose application segment holds a whole picture, as cameras write their thumbnails.
std::string PictureWithThumbnail(const std::string& text) {
    return start + Segment('\xE1', "Exif\0\0"s + Picture("thumbnail")) + Segment('\xDA', "scan") +
           CodedData(text) + end;
}

// With several scans and tables in between, as progressive pictures have.
std::string ProgressivePicture(const std::string& text) {
    return start + Segment('\xC2', "frame") + Segment('\xDA', "first") + CodedData(text) +
           Segment('\xC4', "tables\xFF\xD9"s) + Segment('\xDA', "second") + CodedData(text) +
           "\xFF\xFF\xFF"s + end;
}

Split SplitAtOnce(const std::string& stream, std::size_t limit = ISplitter::defaultLimit) {
    MjpegSplitter splitter(limit);
    return FeedAtOnce(splitter, stream);
}

const std::vector<std::string> pictures = {Picture("one"), PictureWithThumbnail("two"),
                                           ProgressivePicture("three"), Picture("")};

std::string Stream() {
    std::string stream;
    for (const std::string& picture : pictures) {
        stream += picture;
    }
    return stream;
}

TEST(MjpegSplitterTest, EachPictureIsAPiece) {
    const Split split = SplitAtOnce(Stream());
    EXPECT_EQ(split.pieces, pictures);
    EXPECT_EQ(split.error, "");
}

TEST(MjpegSplitterTest, AnEmptyStreamHasNoPicture) {
    const Split split = SplitAtOnce("");
    EXPECT_TRUE(split.pieces.empty());
    EXPECT_EQ(split.error, "");
}

TEST(MjpegSplitterTest, InAnyPartsThePicturesAreTheSame) {
    const std::string stream = Stream();
    const Split whole = SplitAtOnce(stream);
    for (unsigned seed = 0; seed < 200; ++seed) {
        MjpegSplitter splitter;
        ASSERT_EQ(FeedInParts(splitter, stream, 1 + seed / 8, seed), whole) << seed;
    }
}

TEST(MjpegSplitterTest, AStreamThatEndsWithinAPictureSaysWhere) {
    const std::string whole = Picture("one");
    for (std::size_t size = whole.size() + 1; size < 2 * whole.size(); ++size) {
        const Split split = SplitAtOnce((whole + whole).substr(0, size));
        ASSERT_EQ(split.pieces.size(), 1U);
        ASSERT_EQ(split.error, "The stream ends at byte " + std::to_string(size) +
                                   ", within the picture that began at byte " +
                                   std::to_string(whole.size()));
    }
}

TEST(MjpegSplitterTest, WhatIsNoPictureIsRefusedWithItsPlace) {
    EXPECT_EQ(SplitAtOnce("GIF89a").error,
              "Byte 0 is 47 where a JPEG picture, FF D8, should begin");
    const Split behind = SplitAtOnce(Picture("one") + "\0"s);
    EXPECT_EQ(behind.pieces.size(), 1U);
    EXPECT_EQ(behind.error, "Byte " + std::to_string(Picture("one").size()) +
                                " is 00 where a JPEG picture, FF D8, should begin");
}

TEST(MjpegSplitterTest, DamageWithinAPictureIsRefusedWithItsPlace) {
    EXPECT_EQ(SplitAtOnce(start + "\x00"s).error,
              "Byte 2 is 00 where a marker of the picture that began at byte 0 should be");
    EXPECT_EQ(SplitAtOnce(start + "\xFF\x00"s).error,
              "Byte 3 is 00 where a marker of the picture that began at byte 0 should be");
    EXPECT_EQ(SplitAtOnce(start + start).error,
              "Byte 3 is D8 where the picture that began at byte 0 has not ended");
    EXPECT_EQ(SplitAtOnce(start + "\xFF\xE0\x00\x01"s).error,
              "Byte 5 is 01 where the length of a segment of the picture that began at byte 0 "
              "should be at least 2");
}

TEST(MjpegSplitterTest, APictureMayHaveAsManyBytesAsTheLimit) {
    const std::string picture = Picture("of some size");
    EXPECT_EQ(SplitAtOnce(picture, picture.size()).error, "");
    const Split over = SplitAtOnce(picture, picture.size() - 1);
    EXPECT_TRUE(over.pieces.empty());
    EXPECT_EQ(over.error, "The picture that began at byte 0 is over the limit of " +
                              std::to_string(picture.size() - 1) + " bytes");
}

// Whatever the bytes are: the pieces are the stream as far as it went, and parts change nothing.
TEST(MjpegSplitterTest, DamagedStreamsGiveTheSameInAnyParts) {
    std::mt19937 random(7);
    for (int round = 0; round < 2000; ++round) {
        std::string stream = Stream();
        for (unsigned flips = random() % 4; flips > 0; --flips) {
            stream[random() % stream.size()] = static_cast<char>(random());
        }
        stream.resize(random() % (stream.size() + 1));
        const std::size_t limit = 40 + random() % 200;
        const Split whole = SplitAtOnce(stream, limit);
        MjpegSplitter splitter(limit);
        ASSERT_EQ(FeedInParts(splitter, stream, 30, round + 1U), whole) << round;
        std::string joined;
        for (const std::string& piece : whole.pieces) {
            joined += piece;
        }
        ASSERT_EQ(joined, stream.substr(0, joined.size())) << round;
        ASSERT_TRUE(!whole.error.empty() || joined == stream) << round;
    }
}

}  // namespace
}  // namespace Brantel::Tool
