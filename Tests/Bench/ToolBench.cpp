// The tool beside the plain library: a stream of JPEG pictures from a file in memory is recorded
// into a track of a real server over a Unix-domain socket, and played from it. The plain library
// reads the same file, straight into its chunks since it knows where the pictures end, appends them
// and reads them back; without a goal it is also told how long it takes with the pictures in
// memory. In turn, in one run. What the tool plays is compared with the stream, byte for byte.
//
// usage: ToolBench [MiB of the stream, default 1024] [rounds, default 5]

#include "Bench/Comparison.h"
#include "Support/ProgramRun.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libProtocolX/StorageClientX.h>
#include <libTime/TimePoint.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::Bench {
namespace {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Tests::ProgramRun;
using Tests::ServerProcess;
using Tests::TemporaryFolder;
using Time::TimePoint;

constexpr std::size_t mebi = std::size_t{1} << 20U;
constexpr std::size_t pictureBytes = 100'000;
constexpr long frameNanoseconds = 40'000'000;

// Coded data like that of a picture: any bytes, a stuffed one behind each FF.
std::string MakePicture(std::minstd_rand& random) {
    std::string picture("\xFF\xD8\xFF\xE0\x00\x04ok\xFF\xDA\x00\x02", 12);
    picture.reserve(pictureBytes);
    while (picture.size() < pictureBytes - 4) {
        const auto byte = static_cast<char>(random() >> 8U);
        picture += byte;
        if (byte == '\xFF') {
            picture += '\0';
        }
    }
    return picture + "\xFF\xD9";
}

class ToolCase {
  public:
    ToolCase(std::size_t mebibytes, const std::vector<std::string>& options)
        : server(folder.File("storage.sock"), Options(options)), movie(memory.File("movie")) {
        std::minstd_rand random(1);
        std::ofstream file(movie, std::ios::binary);
        for (std::size_t size = 0; size < mebibytes * mebi; size += pictures.back().size()) {
            pictures.push_back(MakePicture(random));
            file << pictures.back();
            bytes += static_cast<double>(pictures.back().size());
        }
        if (!file.flush()) {
            throw std::runtime_error("can't write " + movie);
        }
        constexpr long room = 64L << 20U;
        track = Tests::CreateTrack(*server.ConnectOverUnix(), static_cast<long>(bytes) + room);
    }

    void Measure(Report& report, const std::string& name, int rounds) {
        constexpr double goal = 0.8;
        const std::vector<double> record =
            TakeTurns(rounds, {Emptied([this] { AppendFromFile(); }),
                               Emptied([this] { RunTool("record", RecordCommand()); }),
                               Emptied([this] { AppendFromMemory(); })});
        Tell(report, "record " + name, {record[0], record[1]}, goal);
        report.Note("record " + name + ", from memory", MebibytesPerSecond(bytes, record[1]),
                    MebibytesPerSecond(bytes, record[2]), record[2] / record[1]);
        RunTool("compare", "\"$0\" --server \"$1\" play -q " + Number() + " | cmp - " + movie);
        std::printf("what was played is what was recorded, %.0f MiB\n", bytes / mebi);
        const Medians play = TakeTurns(
            rounds, [this] { return SecondsOf([this] { Read(); }); },
            [this] {
                return SecondsOf([this] {
                    RunTool("play", "\"$0\" --server \"$1\" play -q " + Number() + " > /dev/null");
                });
            });
        Tell(report, "play " + name, play, goal);
    }

  private:
    std::vector<std::string> Options(const std::vector<std::string>& more) const {
        std::vector<std::string> options = ServerProcess::OnFolder(folder.File("store"));
        options.insert(options.end(), more.begin(), more.end());
        return options;
    }
    // Each turn has a connection of its own and no other one is open, since a server may treat the
    // only client better than one among several.
    Turn Emptied(const std::function<void()>& work) {
        return [this, work] {
            server.ConnectOverUnix()->ClearTrack(track);
            return SecondsOf(work);
        };
    }
    void Tell(Report& report, const std::string& name, const Medians& seconds, double goal) const {
        report.AtLeast(name, MebibytesPerSecond(bytes, seconds.ours),
                       MebibytesPerSecond(bytes, seconds.base), seconds.base / seconds.ours, goal);
    }
    std::string Number() const { return std::to_string(track); }
    std::string RecordCommand() const {
        return "\"$0\" --server \"$1\" record -q " + Number() + " --format mjpeg --start 0 " +
               movie;
    }
    void RunTool(const std::string& name, const std::string& command) const {
        ProgramRun run({"/bin/sh", "-c", command, BRANTEL_TOOL, "unix:" + server.SocketPath()});
        constexpr std::chrono::minutes limit(10);
        if (run.Wait(limit) != 0) {
            throw std::runtime_error(name + " failed: " + run.Output() + run.Errors());
        }
    }
    void AppendFromFile() {
        std::FILE* const file = std::fopen(movie.c_str(), "rb");
        std::setvbuf(file, nullptr, _IONBF, 0);
        Append([file](const std::string& picture, DataChunk& chunk) {
            std::string& data = chunk.GetData("image");
            data.resize(picture.size());
            if (std::fread(data.data(), 1, data.size(), file) != data.size()) {
                throw std::runtime_error("The film ends too early");
            }
        });
        std::fclose(file);
    }
    void AppendFromMemory() {
        Append(
            [](const std::string& picture, DataChunk& chunk) { chunk.SetData("image", picture); });
    }
    void Append(const std::function<void(const std::string&, DataChunk&)>& fill) {
        const std::unique_ptr<StorageClientX> client = server.ConnectOverUnix();
        ProtocolX::IStorageWriterX* const writer = client->GetTrackWriter(track);
        DataChunk chunk;
        chunk.SetDuration(TimePoint::Nanoseconds(frameNanoseconds));
        long time = 0;
        for (const std::string& picture : pictures) {
            chunk.SetTimePoint(TimePoint::Nanoseconds(time));
            fill(picture, chunk);
            writer->Append(chunk);
            time += frameNanoseconds;
        }
    }
    void Read() {
        const std::unique_ptr<StorageClientX> client = server.ConnectOverUnix();
        ProtocolX::IStorageReaderX* const reader = client->GetTrackReader(track, 1);
        DataChunk chunk;
        std::size_t count = 0;
        for (TimePoint time = TimePoint::Nanoseconds(-1); reader->GetNextChunk(chunk, time, {});
             time = chunk.GetTimePoint()) {
            ++count;
        }
        if (count != pictures.size()) {
            throw std::runtime_error("The library read " + std::to_string(count) + " pictures of " +
                                     std::to_string(pictures.size()));
        }
    }

    TemporaryFolder folder;
    TemporaryFolder memory{TemporaryFolder::InMemory()};
    ServerProcess server;
    const std::string movie;
    std::vector<std::string> pictures;
    double bytes = 0;
    long track = 0;
};

void Run(std::size_t mebibytes, int rounds) {
    Report report;
    ToolCase(mebibytes, {"--durability", "os"}).Measure(report, "durability os", rounds);
    ToolCase(mebibytes, {"--durability", "always"}).Measure(report, "durability always", rounds);
    report.End();
}

}  // namespace
}  // namespace Brantel::Bench

int main(int argc, char** argv) {
    constexpr std::size_t usualMebibytes = 1024;
    try {
        Brantel::Bench::Run(
            argc > 1 ? static_cast<std::size_t>(std::atoll(argv[1])) : usualMebibytes,
            argc > 2 ? std::atoi(argv[2]) : Brantel::Bench::leastRounds);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ToolBench: %s\n", error.what());
        return 1;
    }
    return 0;
}
