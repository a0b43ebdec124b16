#include "SoakLoad.h"

#include "Support/HttpClient.h"

#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libProtocolX/StorageClientX.h>
#include <libProtocolX/rpc/Client.h>
#include <libProtocolX/rpc/ClientTrackReader.h>
#include <libServices/UnixDomainConnection.h>
#include <libTime/TimePoint.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <utility>

namespace Brantel::Tests {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Time::TimePoint;

namespace {

constexpr std::int64_t step = 1000;  // nanoseconds from chunk to chunk
constexpr std::size_t errorLimit = 20;

std::uint64_t Mix(std::uint64_t value) {
    value += 0x9E3779B97F4A7C15U;
    value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9U;
    value = (value ^ (value >> 27U)) * 0x94D049BB133111EBU;
    return value ^ (value >> 31U);
}

// The bytes of the chunk of a track at a time point; sizes are mixed.
std::string BytesOf(long track, std::int64_t timePoint) {
    constexpr std::array<std::size_t, 6> sizes{1, 100, 1000, 4096, 60'000, 300'000};
    const std::uint64_t seed =
        Mix(static_cast<std::uint64_t>(timePoint) + (static_cast<std::uint64_t>(track) << 48U));
    std::string bytes(sizes.at(seed % sizes.size()), '\0');
    std::uint64_t word = seed;
    for (std::size_t place = 0; place < bytes.size(); ++place) {
        if (place % sizeof word == 0) {
            word = word * 6364136223846793005U + 1442695040888963407U;
        }
        bytes[place] = static_cast<char>(word >> (place % sizeof word * 8));
    }
    return bytes;
}

void Pause(std::chrono::milliseconds time) {
    std::this_thread::sleep_for(time);
}

}  // namespace

SoakLoad::SoakLoad(const ServerProcess& server, std::vector<long> givenTracks)
    : server(server), tracks(std::move(givenTracks)) {
    for (const long track : tracks) {
        Begin("recorder", [this, track] { Record(track); });
        Begin("reader forwards", [this, track] { ReadForwards(track); });
        Begin("reader backwards", [this, track] { ReadBackwards(track); });
    }
    Begin("protections", [this] { ProtectStretches(tracks.front()); });
    Begin("tracks", [this] { MakeTracks(); });
    Begin("connections", [this] { Reconnect(); });
    Begin("nonsense", [this] { TalkNonsense(); });
}

SoakLoad::~SoakLoad() {
    End();
}

void SoakLoad::End() {
    isEnding = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    threads.clear();
}

const char* SoakLoad::NameOf(Count count) {
    switch (count) {
        case Appended: return "appended";
        case Read: return "read";
        case Waited: return "waits";
        case Protected: return "protections";
        case TracksMade: return "tracks made";
        case Connected: return "connections";
        case Counts: break;
    }
    return "";
}

std::vector<std::string> SoakLoad::Errors() const {
    const std::lock_guard lock(mutex);
    return errors;
}

void SoakLoad::Begin(const std::string& name, std::function<void()> work) {
    threads.emplace_back([this, name, work = std::move(work)] {
        try {
            work();
        } catch (const std::exception& error) {
            Fail(name + " ended: " + error.what());
        }
    });
}

void SoakLoad::Fail(const std::string& text) {
    const std::lock_guard lock(mutex);
    if (errors.size() < errorLimit) {
        errors.push_back(text);
    }
}

void SoakLoad::Check(bool isRight, const std::string& text) {
    if (!isRight) {
        Fail(text);
    }
}

void SoakLoad::CheckChunk(const DataChunk& chunk, long track) {
    const std::int64_t time = chunk.GetTimePoint().ToNanoseconds();
    Done(Read);
    Check(chunk.GetData("block") == BytesOf(track, time) &&
              chunk.GetProperty("time") == std::to_string(time),
          "the chunk at " + std::to_string(time) + " of track " + std::to_string(track) +
              " has other bytes");
}

void SoakLoad::Record(long track) {
    constexpr std::chrono::milliseconds pace(2);
    const auto client = server.ConnectOverUnix();
    auto* const writer = client->GetTrackWriter(track);
    auto next = std::chrono::steady_clock::now();
    for (std::int64_t time = step; !isEnding; time += step) {
        DataChunk chunk;
        chunk.SetTimePoint(TimePoint::Nanoseconds(time));
        chunk.SetDuration(TimePoint::Nanoseconds(step));
        chunk.SetProperty("time", std::to_string(time));
        chunk.SetData("block", BytesOf(track, time));
        writer->Append(chunk);
        Done(Appended);
        next = std::max(next + pace, std::chrono::steady_clock::now());
        std::this_thread::sleep_until(next);
    }
}

void SoakLoad::ReadForwards(long track) {
    constexpr int timeoutMilliseconds = 200;
    Services::UnixDomainConnection connection(server.SocketPath());
    BrantelStorageApi::Client client(connection);
    BrantelStorageApi::ClientTrackReader waiting(connection, client.GetMutex(), track);
    const auto other = server.ConnectOverTcp();
    auto* const reader = other->GetTrackReader(track, 1);
    DataChunk chunk;
    for (std::int64_t last = 0; !isEnding;) {
        Protocol::TimePoint point;
        point.set_nanoseconds(static_cast<std::uint64_t>(last));
        bool isThere = false;
        waiting.Wait(point, timeoutMilliseconds, isThere);
        Done(Waited);
        if (!isThere) {
            continue;
        }
        // All of them may have been recycled meanwhile only when newer ones have come.
        Check(reader->GetNextChunk(chunk, TimePoint::Nanoseconds(last), {}),
              "no chunk after " + std::to_string(last) + ", though there was one");
        CheckChunk(chunk, track);
        const std::int64_t time = chunk.GetTimePoint().ToNanoseconds();
        Check(time > last,
              "the chunk after " + std::to_string(last) + " is at " + std::to_string(time));
        last = time;
    }
    waiting.DestroyOnServer();
}

void SoakLoad::ReadBackwards(long track) {
    constexpr int chunksInARow = 50;
    const auto client = server.ConnectOverUnix();
    auto* const reader = client->GetTrackReader(track, 2);
    DataChunk chunk;
    while (!isEnding) {
        TimePoint time = client->GetEndOfTrack(track);
        for (int count = 0; count < chunksInARow && reader->GetPreviousChunk(chunk, time, {});
             ++count) {
            CheckChunk(chunk, track);
            Check(chunk.GetTimePoint() < time, "a previous chunk is not before");
            time = chunk.GetTimePoint();
        }
        Pause(std::chrono::milliseconds(50));
    }
}

void SoakLoad::ProtectStretches(long track) {
    const auto client = server.ConnectOverUnix();
    auto* const reader = client->GetTrackReader(track, 3);
    DataChunk chunk;
    while (!isEnding) {
        const std::int64_t end = client->GetEndOfTrack(track).ToNanoseconds();
        if (end >= step) {
            const auto begin = TimePoint::Nanoseconds(end - step);
            const long id = client->Protect(track, begin, TimePoint::Nanoseconds(end));
            // Long enough for the ring to come round.
            Pause(std::chrono::milliseconds(1500));
            Check(reader->GetChunk(chunk, begin, {}),
                  "the protected chunk at " + std::to_string(end - step) + " is gone");
            CheckChunk(chunk, track);
            client->Unprotect(id);
            Done(Protected);
        }
        Pause(std::chrono::milliseconds(10));
    }
}

void SoakLoad::MakeTracks() {
    constexpr long size = 4L << 20U;
    const auto client = server.ConnectOverUnix();
    const auto await = [&client](long command) {
        while (client->GetCommandInfo(command).type != StorageClientX::FINISHED) {
            Pause(std::chrono::milliseconds(1));
        }
    };
    while (!isEnding) {
        StorageClientX::TrackParameters track;
        track.size = size;
        track = client->CreateTrack(track);
        await(track.commandId);
        client->SetTrackProperties(track.id, {{"name", "short"}});
        Check(client->GetTrackProperties(track.id).at("name") == "short", "a property is lost");
        for (std::int64_t time = 1; time <= 10; ++time) {
            AppendChunk(*client, track.id, time, "bytes " + std::to_string(time));
        }
        Check(ReadChunk(*client, track.id, 7) == "bytes 7", "a new track has other bytes");
        client->ClearTrack(track.id);
        Check(client->GetNumberOfChunks(track.id, TimePoint::Nanoseconds(0),
                                        TimePoint::Nanoseconds(100)) == 0,
              "a cleared track is not empty");
        client->CloseTrackReader(track.id, 1);
        client->CloseTrackWriter(track.id);
        await(client->DeleteTrack(track.id).commandId);
        Done(TracksMade);
        Pause(std::chrono::milliseconds(20));
    }
}

void SoakLoad::Reconnect() {
    DataChunk chunk;
    for (std::size_t round = 0; !isEnding; ++round) {
        const auto client = round % 2 == 0 ? server.ConnectOverUnix() : server.ConnectOverTcp();
        const long track = tracks.at(round % tracks.size());
        const std::vector<long> listed = client->ListTracks();
        Check(std::find(listed.begin(), listed.end(), track) != listed.end(), "a track is missing");
        auto* const reader = client->GetTrackReader(track, 4);
        if (reader->GetNextChunk(chunk, TimePoint::Nanoseconds(0), {})) {
            CheckChunk(chunk, track);
        }
        Check(client->GetTrackInfos(tracks).size() == tracks.size(), "a track has no information");
        Done(Connected);
        Pause(std::chrono::milliseconds(5));
    }
}

// Clients that break off within a message, or send what is none.
void SoakLoad::TalkNonsense() {
    while (!isEnding) {
        for (const std::string bytes : {"", "\x7f", "\xff\xff\xff\xff\xff\xff\xff", "GET / \r\n",
                                        "\x05hello", "\xff\xff\xff\x7fmuch is to come"}) {
            HttpSocket(server.Port()).Send(bytes);
        }
        Pause(std::chrono::milliseconds(20));
    }
}

}  // namespace Brantel::Tests
