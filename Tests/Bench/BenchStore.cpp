#include "Bench/BenchStore.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <thread>

namespace Brantel::Bench {

namespace {

Engine::LocalOptions MakeOptions(const std::string& directory,
                                 BenchStore::Preparation preparation) {
    Engine::LocalOptions options;
    options.directory = directory;
    options.preparation = preparation;
    return options;
}

// The number behind a name in a file of lines "name: number".
double FieldOf(const char* file, const std::string& name) {
    std::ifstream fields(file);
    std::string found;
    while (fields >> found) {
        if (found == name + ":") {
            double value = 0;
            fields >> value;
            return value;
        }
    }
    throw std::runtime_error(std::string(file) + " has no " + name);
}

}  // namespace

Protocol::TimePoint At(std::int64_t nanoseconds) {
    Protocol::TimePoint message;
    message.set_nanoseconds(static_cast<std::uint64_t>(nanoseconds));
    return message;
}

BenchStore::BenchStore(const std::string& directory, Preparation preparation,
                       const Tracks::StorageOptions& options, Engine::IFileCalls* calls)
    : engine(MakeOptions(directory, preparation), calls),
      tracks(engine, options),
      storage(tracks.MakeTrackStorage()) {}

void BenchStore::Create(long track, std::uint64_t capacity, const std::string& durability) {
    Protocol::TrackParameters wanted;
    Protocol::TrackParameters made;
    wanted.set_id(static_cast<std::uint64_t>(track));
    wanted.set_size(capacity);
    storage->CreateTrack(wanted, made);
    for (;;) {
        Protocol::CommandInfo info;
        storage->GetCommandInfo(static_cast<long>(made.commandid()), info);
        if (info.type() == Protocol::CommandInfo::FINISHED) {
            break;
        }
        if (info.type() == Protocol::CommandInfo::CANCELED) {
            throw std::runtime_error("The track of a benchmark could not be made");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    SetDurability(track, durability);
}

void BenchStore::SetDurability(long track, const std::string& durability) {
    Protocol::PropertyList properties;
    auto& property = *properties.add_items();
    property.set_key("storage.durability");
    property.set_value(durability);
    storage->SetTrackProperties(track, properties);
}

std::unique_ptr<BrantelStorageApi::ITrackWriter> BenchStore::OpenWriter(long track) {
    return std::unique_ptr<BrantelStorageApi::ITrackWriter>(
        tracks.MakeWriterFactory({})->CreateTrackWriter(track));
}

std::unique_ptr<BrantelStorageApi::ITrackReader> BenchStore::OpenReader(long track) {
    return std::unique_ptr<BrantelStorageApi::ITrackReader>(
        tracks.MakeReaderFactory({})->CreateTrackReader(track));
}

ChunkWriter::ChunkWriter(BenchStore& store, long track, std::size_t size, std::size_t spread,
                         std::int64_t next)
    : writer(store.OpenWriter(track)), size(size), spread(spread), next(next) {
    chunk.mutable_duration()->set_nanoseconds(duration);
    chunk.mutable_properties();
    auto& block = *chunk.mutable_data()->add_items();
    block.set_key("data");
    block.mutable_value()->assign(size, 'x');
}

void ChunkWriter::Append() {
    chunk.mutable_timecode()->set_nanoseconds(static_cast<std::uint64_t>(next));
    if (spread > 0) {
        // Any sequence without a pattern that a short memory could learn.
        constexpr std::uint64_t factor = 0x9e3779b97f4a7c15;
        const std::uint64_t mixed = (static_cast<std::uint64_t>(next) * factor) >> 32U;
        chunk.mutable_data()->mutable_items(0)->mutable_value()->resize(size + mixed % spread, 'x');
    }
    writer->Append(chunk);
    next += duration;
}

void ChunkWriter::Append(std::uint64_t count) {
    for (; count > 0; --count) {
        Append();
    }
}

double InKilledProcess(const std::function<double()>& work) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        throw std::runtime_error("pipe failed");
    }
    const pid_t child = ::fork();
    if (child == 0) {
        try {
            const double answer = work();
            if (::write(ends[1], &answer, sizeof answer) != sizeof answer) {
                std::cerr << "The answer of a benchmark's process was lost\n";
            }
        } catch (const std::exception& error) {
            std::cerr << error.what() << '\n';
        }
        ::kill(::getpid(), SIGKILL);
    }
    ::close(ends[1]);
    double answer = 0;
    const bool whole = ::read(ends[0], &answer, sizeof answer) == sizeof answer;
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    if (child < 0 || !whole) {
        throw std::runtime_error("A process of a benchmark has failed");
    }
    return answer;
}

double PrivateMemory() {
    constexpr double kibi = 1024;
    return FieldOf("/proc/self/status", "RssAnon") * kibi;
}

}  // namespace Brantel::Bench
