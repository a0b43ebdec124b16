#include "Playback.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Brantel::MovieDemo {

using ProtocolX::DataChunk;
using Time::TimePoint;

namespace {

constexpr long readerId = 1;
const TimePoint nowhere = TimePoint::Nanoseconds(-1);
const TimePoint nanosecond = TimePoint::Nanoseconds(1);

std::string NameOf(std::size_t frame) {
    return "frame " + std::to_string(frame);
}

std::uint64_t DataBytes(const DataChunk& chunk) {
    std::uint64_t bytes = 0;
    for (const std::string& key : chunk.GetDataKeys()) {
        bytes += chunk.GetData(key).size();
    }
    return bytes;
}

// The frames in an order that is the same at each run.
std::vector<std::size_t> ShuffledFrames(std::size_t count) {
    std::vector<std::size_t> frames(count);
    std::iota(frames.begin(), frames.end(), std::size_t{0});
    std::shuffle(frames.begin(), frames.end(), std::mt19937(count));  // NOLINT(*-msc51-cpp)
    return frames;
}

}  // namespace

Playback::Playback(ProtocolX::StorageClientX& client, long trackId, const Movie& movie,
                   Comparison& comparison)
    : reader(*client.GetTrackReader(trackId, readerId)), movie(movie), comparison(comparison) {
    comparison.Numbers("the reader's track", reader.GetTrackId(), trackId);
}

DataChunk Playback::ReadFrame(FrameMeter& meter, std::size_t frame, const Read& read) {
    DataChunk chunk;
    meter.Start();
    const bool found = read(chunk);
    meter.Stop(DataBytes(chunk));
    if (!found) {
        throw std::runtime_error(NameOf(frame) + " was not found");
    }
    CompareMetadata(frame, chunk);
    return chunk;
}

void Playback::CompareMetadata(std::size_t frame, const DataChunk& chunk) {
    DataChunk expected = movie.MakeChunk(frame);
    const std::string name = NameOf(frame);
    comparison.TimePoints(name + ": the time point", chunk.GetTimePoint(), movie.TimeOf(frame));
    comparison.TimePoints(name + ": the duration", chunk.GetDuration(), Movie::FrameDuration());
    comparison.Holds(name + " has its three properties and no other",
                     chunk.GetPropertyKeys() == expected.GetPropertyKeys());
    for (const std::string& key : expected.GetPropertyKeys()) {
        comparison.Bytes(std::string(name).append(", property ").append(key),
                         chunk.GetProperty(key), expected.GetProperty(key));
    }
}

void Playback::CompareData(const std::string& what, const DataChunk& chunk, const char* key,
                           const std::string& expected) {
    comparison.Holds(what + " has the data block " + key, chunk.GetDataKeys().contains(key));
    comparison.Bytes(what + ", " + key, chunk.GetData(key), expected);
}

void Playback::WalkForward(const std::string& folder) {
    TimePoint position = nowhere;
    for (std::size_t frame = 0; frame < movie.FrameCount(); ++frame) {
        const DataChunk chunk = ReadFrame(forward, frame, [&](DataChunk& next) {
            return reader.GetNextChunk(next, position, {});
        });
        CompareData(NameOf(frame), chunk, Movie::imageKey, movie.Image(frame));
        CompareData(NameOf(frame), chunk, Movie::thumbnailKey, movie.Thumbnail(frame));
        Movie::Save(folder, frame, chunk.GetData(Movie::imageKey),
                    chunk.GetData(Movie::thumbnailKey));
        position = chunk.GetTimePoint();
    }
    DataChunk none;
    comparison.Holds("nothing comes after the last frame",
                     !reader.GetNextChunk(none, position, {}));
}

void Playback::WalkBackward() {
    TimePoint position = TimePoint::GetHighestTimePoint();
    for (std::size_t frame = movie.FrameCount(); frame-- > 0;) {
        const DataChunk chunk = ReadFrame(backward, frame, [&](DataChunk& previous) {
            return reader.GetPreviousChunk(previous, position, {});
        });
        CompareData(NameOf(frame), chunk, Movie::imageKey, movie.Image(frame));
        CompareData(NameOf(frame), chunk, Movie::thumbnailKey, movie.Thumbnail(frame));
        position = chunk.GetTimePoint();
    }
    DataChunk none;
    comparison.Holds("nothing comes before the first frame",
                     !reader.GetPreviousChunk(none, position, {}));
}

void Playback::Jump() {
    const TimePoint middle = TimePoint::Nanoseconds(Movie::FrameDuration().ToNanoseconds() / 2);
    const TimePoint end = Movie::FrameDuration() - nanosecond;
    for (const std::size_t frame : ShuffledFrames(movie.FrameCount())) {
        for (const TimePoint& inside : {TimePoint(), middle, end}) {
            const DataChunk chunk = ReadFrame(jumping, frame, [&](DataChunk& covering) {
                return reader.GetChunk(covering, movie.TimeOf(frame) + inside, {});
            });
            CompareData(NameOf(frame), chunk, Movie::imageKey, movie.Image(frame));
            CompareData(NameOf(frame), chunk, Movie::thumbnailKey, movie.Thumbnail(frame));
        }
    }
    DataChunk none;
    comparison.Holds("no frame covers the nanosecond before the first one",
                     !reader.GetChunk(none, movie.TimeOf(0) - nanosecond, {}));
    comparison.Holds("no frame covers the end of the last one",
                     !reader.GetChunk(none, movie.End(), {}));
}

void Playback::ReadThumbnails() {
    const std::set<std::string> keys = {Movie::thumbnailKey};
    for (std::size_t frame = 0; frame < movie.FrameCount(); ++frame) {
        const DataChunk chunk = ReadFrame(thumbnails, frame, [&](DataChunk& small) {
            return reader.GetChunk(small, movie.TimeOf(frame), keys);
        });
        comparison.Holds(NameOf(frame) + " comes with its thumbnail alone",
                         chunk.GetDataKeys() == keys);
        CompareData(NameOf(frame), chunk, Movie::thumbnailKey, movie.Thumbnail(frame));
    }
}

void Playback::StepTimePoints() {
    const std::size_t last = movie.FrameCount() - 1;
    comparison.TimePoints("the first time point", reader.FirstTimePoint(), movie.TimeOf(0));
    comparison.TimePoints("the last time point", reader.LastTimePoint(), movie.TimeOf(last));
    for (std::size_t frame = 0; frame <= last; ++frame) {
        const TimePoint here = movie.TimeOf(frame);
        comparison.TimePoints("the time point after " + NameOf(frame), reader.NextTimePoint(here),
                              frame < last ? movie.TimeOf(frame + 1) : nowhere);
        comparison.TimePoints("the time point before " + NameOf(frame),
                              reader.PreviousTimePoint(here),
                              frame > 0 ? movie.TimeOf(frame - 1) : nowhere);
    }
}

}  // namespace Brantel::MovieDemo
