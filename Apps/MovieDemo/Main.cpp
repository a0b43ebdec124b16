// Records a moving picture into a storage over one address, reads it back over another one in every
// direction, and compares every byte; or does the reading alone, of what was recorded earlier.

#include "Comparison.h"
#include "Movie.h"
#include "Playback.h"
#include "RecordedTrack.h"
#include "Recording.h"
#include "ServerAddress.h"
#include "TrackInspection.h"

#include <libProtocolX/StorageClientX.h>
#include <libTime/TimePoint.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

namespace {

using Brantel::MovieDemo::Comparison;
using Brantel::MovieDemo::Movie;
using Brantel::MovieDemo::Playback;
using Brantel::MovieDemo::RecordedTrack;
using Brantel::MovieDemo::Recording;
using Brantel::MovieDemo::ServerAddress;
using Brantel::MovieDemo::TrackInspection;

// Ten o'clock, as a recording of the day would count.
constexpr long startNanoseconds = 36'000'000'000'000;
constexpr double bytesOfMegabyte = 1e6;

struct Arguments {
    std::string record;
    std::string play;
    std::string pictures;
    std::string output;
};

void PlayAll(Playback& playback, const std::string& output) {
    playback.WalkForward(output);
    playback.WalkBackward();
    playback.Jump();
    playback.ReadThumbnails();
    playback.StepTimePoints();
}

void Inspect(TrackInspection& inspection) {
    inspection.CheckInfos();
    inspection.CheckCounts();
    inspection.CheckProperties();
    inspection.CheckProtection();
}

void RecordAndPlay(const Arguments& arguments, const Movie& movie) {
    const ServerAddress recordAddress = ServerAddress::Parse(arguments.record);
    const ServerAddress playAddress = ServerAddress::Parse(arguments.play);
    Brantel::ProtocolX::StorageClientX writing;
    recordAddress.Connect(writing);
    Recording recording(writing, movie);
    recording.Record();
    std::printf("Recorded  %zu chunks of an image and a thumbnail, %.1f MB, over %s: %s\n",
                recording.Appending().Frames(),
                static_cast<double>(movie.Bytes()) / bytesOfMegabyte, recordAddress.text.c_str(),
                recording.Appending().Text().c_str());

    Brantel::ProtocolX::StorageClientX reading;
    playAddress.Connect(reading);
    Comparison comparison;
    Playback playback(reading, recording.Track().id, movie, comparison);
    PlayAll(playback, arguments.output);
    std::printf("Read back over %s: forward %s; backward %s; %zu jumps %s; thumbnails alone %s\n",
                playAddress.text.c_str(), playback.Forward().Text().c_str(),
                playback.Backward().Text().c_str(), playback.Jumping().Frames(),
                playback.Jumping().Text().c_str(), playback.Thumbnails().Text().c_str());

    TrackInspection inspection(reading, recording.Track(), movie, comparison);
    Inspect(inspection);
    inspection.CheckWorkers(recordAddress.host, playAddress.host);
    std::printf(
        "Compared  %.1f MB in %zu answers (pictures, properties, time points, infos, counts, "
        "durations, a protection, workers): no difference\n",
        static_cast<double>(comparison.ComparedBytes()) / bytesOfMegabyte,
        comparison.ComparedAnswers());
}

void PlayAgain(const Arguments& arguments, const Movie& movie) {
    Brantel::ProtocolX::StorageClientX reading;
    ServerAddress::Parse(arguments.play).Connect(reading);
    const RecordedTrack track = RecordedTrack::Find(reading, movie);
    Comparison comparison;
    Playback playback(reading, track.id, movie, comparison);
    PlayAll(playback, arguments.output);
    TrackInspection inspection(reading, track, movie, comparison);
    Inspect(inspection);
    std::printf("%.1f MB in %zu answers, no difference\n",
                static_cast<double>(comparison.ComparedBytes()) / bytesOfMegabyte,
                comparison.ComparedAnswers());
}

void Run(const Arguments& arguments) {
    std::filesystem::create_directories(arguments.output);
    const Movie movie =
        Movie::Load(arguments.pictures, Brantel::Time::TimePoint::Nanoseconds(startNanoseconds));
    if (arguments.record.empty()) {
        PlayAgain(arguments, movie);
    } else {
        RecordAndPlay(arguments, movie);
    }
}

}  // namespace

// Without memory for its options there is nothing to do but to end.
int main(int argc, char** argv) {  // NOLINT(bugprone-exception-escape)
    constexpr int misused = 2;
    Arguments arguments;
    CLI::App app("Records a moving picture, reads it back and compares every byte",
                 "brantel-movie-demo");
    app.add_option("--record", arguments.record,
                   "Storage to record into: unix:PATH or tcp:IPV4:PORT; without it, what was "
                   "recorded earlier is read again")
        ->type_name("ADDRESS");
    app.add_option("--play", arguments.play,
                   "Storage to read from, the same one: unix:PATH or tcp:IPV4:PORT")
        ->required()
        ->type_name("ADDRESS");
    app.add_option("--pictures", arguments.pictures,
                   "Folder with image-000000.jpg, thumbnail-000000.jpg and so on")
        ->required()
        ->type_name("FOLDER");
    app.add_option("--output", arguments.output, "Folder for the pictures that were read")
        ->required()
        ->type_name("FOLDER");
    try {
        app.parse(argc, argv);
        Run(arguments);
        return 0;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : misused;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "brantel-movie-demo: %s\n", error.what());
        return 1;
    }
}
