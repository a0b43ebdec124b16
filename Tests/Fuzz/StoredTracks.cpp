#include "Fuzz/StoredTracks.h"

#include <CommonMessages.pb.h>
#include <libProtocolX/rpc/ITrackReader.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriter.h>
#include <libTracks/ClientConnection.h>

#include <limits>
#include <memory>
#include <thread>
#include <vector>

namespace Brantel::Tests {

namespace {

using BrantelStorageApi::ITrackReader;
using BrantelStorageApi::ITrackStorage;
using BrantelStorageApi::ITrackWriter;
using Tracks::Storage;

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::size_t mostSteps = 10'000;

Protocol::TimePoint PointAt(std::int64_t nanoseconds) {
    Protocol::TimePoint point;
    point.set_nanoseconds(static_cast<std::uint64_t>(nanoseconds));
    return point;
}

std::int64_t ValueOf(const Protocol::TimePoint& point) {
    return static_cast<std::int64_t>(point.nanoseconds());
}

Protocol::Chunk MakeChunk(std::int64_t time, std::size_t size) {
    Protocol::Chunk chunk;
    *chunk.mutable_timecode() = PointAt(time);
    *chunk.mutable_duration() = PointAt(10);
    auto& property = *chunk.mutable_properties()->add_items();
    property.set_key("width");
    property.set_value(std::to_string(time));
    std::string image(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        image[i] = static_cast<char>(time * 37 + static_cast<std::int64_t>(i * 11 + i / 256));
    }
    auto& data = *chunk.mutable_data();
    data.add_items()->set_key("image");
    data.mutable_items(0)->set_value(std::move(image));
    data.add_items()->set_key("thumbnail");
    data.mutable_items(1)->set_value("t" + std::to_string(time));
    return chunk;
}

Protocol::Chunk OnlyThumbnail(const std::string& bytes) {
    Protocol::Chunk chunk;
    chunk.ParseFromString(bytes);
    chunk.mutable_data()->mutable_items()->DeleteSubrange(0, 1);
    return chunk;
}

// Commands are carried out beside the calls.
void AwaitCommands(ITrackStorage& tracks) {
    for (;;) {
        Protocol::Ids ongoing;
        tracks.GetOngoingCommands(ongoing);
        if (ongoing.ids().empty()) {
            return;
        }
        std::this_thread::yield();
    }
}

void Create(ITrackStorage& tracks, std::int64_t id, std::uint64_t size) {
    Protocol::TrackParameters wanted;
    wanted.set_id(static_cast<std::uint64_t>(id));
    wanted.set_size(size);
    Protocol::TrackParameters made;
    tracks.CreateTrack(wanted, made);
    AwaitCommands(tracks);
}

void SetProperty(ITrackStorage& tracks, std::int64_t track, const std::string& key,
                 const std::string& value, KnownTracks& known) {
    Protocol::PropertyList properties;
    auto& item = *properties.add_items();
    item.set_key(key);
    item.set_value(value);
    known.properties[{track, key}].insert(value);
    tracks.SetTrackProperties(track, properties);
}

void Append(ITrackWriter& writer, std::int64_t track, const Protocol::Chunk& chunk,
            StoredChunks& appended) {
    appended[{track, ValueOf(chunk.timecode())}] = chunk.SerializeAsString();
    writer.Append(chunk);
}

std::unique_ptr<ITrackWriter> WriterOf(Storage& storage, std::int64_t track) {
    const auto factory = storage.MakeWriterFactory(Tracks::ClientConnection());
    return std::unique_ptr<ITrackWriter>(factory->CreateTrackWriter(track));
}

std::unique_ptr<ITrackReader> ReaderOf(Storage& storage, std::int64_t track) {
    const auto factory = storage.MakeReaderFactory(Tracks::ClientConnection());
    return std::unique_ptr<ITrackReader>(factory->CreateTrackReader(track));
}

std::vector<std::int64_t> TracksOf(Storage& storage) {
    Protocol::TrackList list;
    storage.MakeTrackStorage()->ListTracks(list);
    return {list.trackids().begin(), list.trackids().end()};
}

// The chunk at a time point at which there is one: what it was, when that is known, or refused.
void ReadChunk(ITrackReader& reader, std::int64_t track, std::int64_t time,
               const KnownTracks* known) {
    Protocol::KeyList some;
    some.add_keys("thumbnail");
    Protocol::Chunk whole;
    Protocol::Chunk part;
    bool isWhole = false;
    bool isPart = false;
    Try([&] { reader.GetChunk(PointAt(time), {}, whole, isWhole); });
    Try([&] { reader.GetChunk(PointAt(time), some, part, isPart); });
    if (known != nullptr && (isWhole || isPart)) {
        const auto expected = known->chunks.find({track, time});
        Require(expected != known->chunks.end(), "no chunk is made up");
        Require(!isWhole || whole.SerializeAsString() == expected->second,
                "a chunk is what was appended");
        Require(!isPart ||
                    part.SerializeAsString() == OnlyThumbnail(expected->second).SerializeAsString(),
                "so is a part of it");
    }
}

void WalkForwards(ITrackReader& reader, std::int64_t track, const KnownTracks* known) {
    std::int64_t at = -1;
    for (std::size_t steps = 0;; ++steps) {
        Require(steps < mostSteps, "a walk comes to an end");
        Protocol::TimePoint next;
        bool isFound = false;
        if (!Try([&] { reader.NextTimePoint(PointAt(at), next, isFound); }) || !isFound) {
            return;
        }
        Require(ValueOf(next) > at, "the next one lies behind");
        at = ValueOf(next);
        ReadChunk(reader, track, at, known);
    }
}

void WalkBackwards(ITrackReader& reader) {
    std::int64_t at = largest;
    for (std::size_t steps = 0;; ++steps) {
        Require(steps < mostSteps, "a walk comes to an end");
        Protocol::TimePoint previous;
        bool isFound = false;
        if (!Try([&] { reader.PreviousTimePoint(PointAt(at), previous, isFound); }) || !isFound) {
            return;
        }
        Require(ValueOf(previous) < at, "the previous one lies before");
        at = ValueOf(previous);
        Protocol::Chunk chunk;
        Try([&] { reader.GetPreviousChunk(PointAt(at), {}, chunk, isFound); });
        Try([&] { reader.GetNextChunk(PointAt(at), {}, chunk, isFound); });
    }
}

void ReadProperties(ITrackStorage& tracks, std::int64_t track, const KnownTracks* known) {
    Protocol::PropertyList properties;
    if (Try([&] { tracks.GetTrackProperties(track, properties); }) && known != nullptr) {
        for (const auto& item : properties.items()) {
            // What a lost record is made up for with: nothing is recycled before somebody looked.
            const bool isMadeUp = item.key() == "storage.retention" && item.value() == "stop";
            const auto values = known->properties.find({track, item.key()});
            Require(isMadeUp || (values != known->properties.end() &&
                                 values->second.contains(item.value())),
                    "a property has a value that it was given");
        }
    }
}

void AskEverything(ITrackStorage& tracks, std::int64_t track) {
    long number = 0;
    Protocol::TimePoint point;
    Protocol::Ids ids;
    ids.add_ids(static_cast<std::uint64_t>(track));
    Protocol::TrackInfos infos;
    Try([&] { tracks.GetTrackSize(track, number); });
    Try([&] { tracks.GetBeginningOfTrack(track, point); });
    Try([&] { tracks.GetEndOfTrack(track, point); });
    Try([&] { tracks.GetTrackInfos(ids, infos); });
    Try([&] { tracks.GetNumberOfChunks(track, PointAt(0), PointAt(largest), number); });
    Try([&] { tracks.GetAccumulatedDuration(track, PointAt(15), PointAt(largest), point); });
}

}  // namespace

Tracks::StorageOptions SmallStorage() {
    Tracks::StorageOptions options;
    options.smallestSegmentBytes = 12'288;
    options.spareSegments = 3;
    options.durability.mode = Engine::Durability::Mode::Os;
    return options;
}

KnownTracks FillStorage(Engine::IEngine& engine, const std::function<void()>& whileOpen) {
    KnownTracks known;
    Storage storage(engine, SmallStorage());
    const auto tracks = storage.MakeTrackStorage();
    long protection = 0;
    Create(*tracks, 1, 12'000);
    Create(*tracks, 2, 8192);
    Create(*tracks, 3, 8192);
    Create(*tracks, 4, 8192);
    const auto first = WriterOf(storage, 1);
    for (std::int64_t time = 0; time < 180; time += 10) {
        Append(*first, 1, MakeChunk(time, 300 + static_cast<std::size_t>(time) * 7), known.chunks);
        if (time == 30) {
            tracks->Protect(1, PointAt(20), PointAt(11), protection);
        }
    }
    tracks->Protect(1, PointAt(1000), PointAt(5), protection);
    SetProperty(*tracks, 1, "title", "first", known);
    SetProperty(*tracks, 1, "title", "second", known);
    const auto second = WriterOf(storage, 2);
    Append(*second, 2, MakeChunk(5, 100), known.chunks);
    SetProperty(*tracks, 2, "storage.retention", "stop", known);
    Append(*second, 2, MakeChunk(15, 3000), known.chunks);
    Protocol::TrackParameters deleted;
    tracks->DeleteTrack(4, deleted);
    AwaitCommands(*tracks);
    whileOpen();
    return known;
}

void ReadStorage(Storage& storage, const KnownTracks* known) {
    const auto tracks = storage.MakeTrackStorage();
    Protocol::ProtectionInfos protections;
    long number = 0;
    Try([&] { tracks->ListProtections(protections); });
    Try([&] { tracks->GetRemainingSpace(number); });
    for (const std::int64_t track : TracksOf(storage)) {
        AskEverything(*tracks, track);
        ReadProperties(*tracks, track, known);
        std::unique_ptr<ITrackReader> reader;
        if (Try([&] { reader = ReaderOf(storage, track); })) {
            WalkForwards(*reader, track, known);
            WalkBackwards(*reader);
        }
    }
}

StoredChunks ChangeStorage(Storage& storage, KnownTracks& known) {
    const auto tracks = storage.MakeTrackStorage();
    StoredChunks taken;
    for (const std::int64_t track : TracksOf(storage)) {
        long protection = 0;
        Try([&] { tracks->Protect(track, PointAt(40), PointAt(20), protection); });
        Try([&] { SetProperty(*tracks, track, "title", "third", known); });
        std::unique_ptr<ITrackWriter> writer;
        Protocol::TimePoint end;
        const bool isOpen = Try([&] {
            writer = WriterOf(storage, track);
            tracks->GetEndOfTrack(track, end);
        });
        if (isOpen && ValueOf(end) < largest - 10'000) {
            const Protocol::Chunk chunk = MakeChunk(ValueOf(end) + 1000, 900);
            StoredChunks one;
            if (Try([&] { Append(*writer, track, chunk, one); })) {
                taken.merge(one);
            }
        }
    }
    known.chunks.insert(taken.begin(), taken.end());
    return taken;
}

void RequireChunks(Storage& storage, const StoredChunks& chunks) {
    for (const auto& [place, bytes] : chunks) {
        const auto& [track, time] = place;
        Protocol::Chunk chunk;
        bool isFound = false;
        ReaderOf(storage, track)->GetChunk(PointAt(time), {}, chunk, isFound);
        Require(isFound && chunk.SerializeAsString() == bytes, "what was appended since is there");
    }
}

}  // namespace Brantel::Tests
