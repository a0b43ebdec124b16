#pragma once

#include "JpegSize.h"

#include <libProtocolX/DataChunk.h>
#include <libTime/TimePoint.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Brantel::MovieDemo {

// A moving picture as files hold it: JPEG pictures, 25 a second, each with a small one. Constant
// after it was loaded.
class Movie {
  public:
    // The names under which a chunk holds the two pictures.
    static constexpr const char* imageKey = "image";
    static constexpr const char* thumbnailKey = "thumbnail";

    // Loads image-000000.jpg, thumbnail-000000.jpg, image-000001.jpg and so on from the folder.
    // `start` is the time point of the first frame. Throws std::runtime_error that names the file,
    // also when there is none, when one of a pair is missing, and when a picture is not as large as
    // the first.
    static Movie Load(const std::string& folder, Time::TimePoint start);

    // Writes both pictures of a frame, under the names they are loaded from. Throws
    // std::runtime_error.
    static void Save(const std::string& folder, std::size_t frame, const std::string& image,
                     const std::string& thumbnail);

    std::size_t FrameCount() const { return frames.size(); }
    // Of all pictures.
    std::uint64_t Bytes() const { return bytes; }

    const std::string& Image(std::size_t frame) const { return frames.at(frame).image; }
    const std::string& Thumbnail(std::size_t frame) const { return frames.at(frame).thumbnail; }

    static Time::TimePoint FrameDuration();
    Time::TimePoint TimeOf(std::size_t frame) const;
    // Where the last frame ends.
    Time::TimePoint End() const { return TimeOf(frames.size()); }

    // The frame as it is recorded: properties width, height and codec, and the two pictures.
    ProtocolX::DataChunk MakeChunk(std::size_t frame) const;

  private:
    struct Frame {
        std::string image;
        std::string thumbnail;
    };

    std::vector<Frame> frames;
    std::uint64_t bytes = 0;
    JpegSize size;
    Time::TimePoint start;
};

}  // namespace Brantel::MovieDemo
