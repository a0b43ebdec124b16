#include "Unit/Storage/libTracks/StorageTest.h"

#include "Support/TrackWalk.h"
#include "Support/Waiting.h"

#include <libProtocolX/rpc/IChunkTaker.h>

#include <exception>

namespace Brantel::Tracks {

Protocol::TimePoint At(std::int64_t nanoseconds) {
    Protocol::TimePoint message;
    message.set_nanoseconds(static_cast<std::uint64_t>(nanoseconds));
    return message;
}

Protocol::Chunk MakeChunk(std::int64_t timePoint, std::int64_t duration, const Blocks& data,
                          const Blocks& properties) {
    Protocol::Chunk chunk;
    *chunk.mutable_timecode() = At(timePoint);
    *chunk.mutable_duration() = At(duration);
    *chunk.mutable_properties() = Properties(properties);
    chunk.mutable_data();
    for (const auto& [key, value] : data) {
        auto& item = *chunk.mutable_data()->add_items();
        item.set_key(key);
        item.set_value(value);
    }
    return chunk;
}

Protocol::KeyList Keys(const std::vector<std::string>& keys) {
    Protocol::KeyList list;
    for (const std::string& key : keys) {
        list.add_keys(key);
    }
    return list;
}

Protocol::PropertyList Properties(const Blocks& items) {
    Protocol::PropertyList list;
    for (const auto& [key, value] : items) {
        auto& item = *list.add_items();
        item.set_key(key);
        item.set_value(value);
    }
    return list;
}

std::string Bytes(std::size_t size, unsigned seed) {
    std::string bytes(size, '\0');
    for (std::size_t index = 0; index < size; ++index) {
        bytes[index] = static_cast<char>(seed * 37 + index * 11 + (index >> 8U));
    }
    return bytes;
}

std::string ErrorOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no error";
}

void StorageTest::SetUp() {
    harness = GetParam().make(limit);
    Open();
}

void StorageTest::Open() {
    StorageOptions options = MakeOptions();
    options.log = [this](const std::string& text) {
        const std::lock_guard lock(loggedMutex);
        logged.push_back(text);
    };
    tracks = std::make_unique<Storage>(harness->GetEngine(), options);
    storage = tracks->MakeTrackStorage();
}

void StorageTest::Close() {
    storage.reset();
    tracks.reset();
}

void StorageTest::Restart() {
    Close();
    harness->Restart();
    Open();
}

void StorageTest::Crash() {
    harness->Crash();
    Close();
    Open();
}

StorageTest::Reader StorageTest::OpenReader(std::int64_t track,
                                            const ClientConnection& connection) {
    return Reader(tracks->MakeReaderFactory(connection)->CreateTrackReader(track));
}

StorageTest::Writer StorageTest::OpenWriter(std::int64_t track,
                                            const ClientConnection& connection) {
    return Writer(tracks->MakeWriterFactory(connection)->CreateTrackWriter(track));
}

Protocol::CommandInfo::Type StorageTest::StateOf(std::uint64_t commandId) {
    Protocol::CommandInfo info;
    storage->GetCommandInfo(static_cast<long>(commandId), info);
    return info.type();
}

Protocol::CommandInfo::Type StorageTest::Await(std::uint64_t commandId) {
    EXPECT_TRUE(Tests::Eventually([&] {
        const auto state = StateOf(commandId);
        return state != Protocol::CommandInfo::QUEUED && state != Protocol::CommandInfo::ONGOING;
    }));
    return StateOf(commandId);
}

void StorageTest::Create(std::int64_t track, std::int64_t size) {
    Protocol::TrackParameters in;
    Protocol::TrackParameters out;
    in.set_id(static_cast<std::uint64_t>(track));
    in.set_size(static_cast<std::uint64_t>(size));
    storage->CreateTrack(in, out);
    ASSERT_EQ(Await(out.commandid()), Protocol::CommandInfo::FINISHED);
}

void StorageTest::Grow(std::int64_t track, std::int64_t size) {
    Protocol::TrackParameters in;
    Protocol::TrackParameters out;
    in.set_id(static_cast<std::uint64_t>(track));
    in.set_size(static_cast<std::uint64_t>(size));
    storage->GrowTrack(in, out);
    ASSERT_EQ(Await(out.commandid()), Protocol::CommandInfo::FINISHED);
}

void StorageTest::Delete(std::int64_t track) {
    Protocol::TrackParameters out;
    storage->DeleteTrack(track, out);
    ASSERT_EQ(Await(out.commandid()), Protocol::CommandInfo::FINISHED);
}

void StorageTest::Append(std::int64_t track, const Protocol::Chunk& chunk) {
    OpenWriter(track)->Append(chunk);
}

void StorageTest::AppendTaking(std::int64_t track, Protocol::Chunk& chunk) {
    const Writer writer = OpenWriter(track);
    dynamic_cast<BrantelStorageApi::IChunkTaker&>(*writer).AppendTaking(chunk);
}

void StorageTest::Fill(std::int64_t track, const std::vector<std::int64_t>& timePoints,
                       std::size_t size) {
    const Writer writer = OpenWriter(track);
    for (const std::int64_t timePoint : timePoints) {
        writer->Append(
            MakeChunk(timePoint, 10, {{"data", Bytes(size, static_cast<unsigned>(timePoint))}}));
    }
}

std::optional<Protocol::Chunk> StorageTest::Get(std::int64_t track, std::int64_t timePoint,
                                                const std::vector<std::string>& keys) {
    Protocol::Chunk chunk;
    bool found = false;
    OpenReader(track)->GetChunk(At(timePoint), Keys(keys), chunk, found);
    return found ? std::optional(chunk) : std::nullopt;
}

std::optional<Protocol::Chunk> StorageTest::Next(std::int64_t track, std::int64_t timePoint) {
    Protocol::Chunk chunk;
    bool found = false;
    OpenReader(track)->GetNextChunk(At(timePoint), {}, chunk, found);
    return found ? std::optional(chunk) : std::nullopt;
}

std::optional<Protocol::Chunk> StorageTest::Previous(std::int64_t track, std::int64_t timePoint) {
    Protocol::Chunk chunk;
    bool found = false;
    OpenReader(track)->GetPreviousChunk(At(timePoint), {}, chunk, found);
    return found ? std::optional(chunk) : std::nullopt;
}

std::vector<std::int64_t> StorageTest::TimesOf(std::int64_t track) {
    return Tests::WalkTrack(*OpenReader(track));
}

std::int64_t StorageTest::BeginningOf(std::int64_t track) {
    Protocol::TimePoint time;
    storage->GetBeginningOfTrack(track, time);
    return static_cast<std::int64_t>(time.nanoseconds());
}

std::int64_t StorageTest::EndOf(std::int64_t track) {
    Protocol::TimePoint time;
    storage->GetEndOfTrack(track, time);
    return static_cast<std::int64_t>(time.nanoseconds());
}

long StorageTest::CountOf(std::int64_t track, std::int64_t in, std::int64_t out) {
    long count = -1;
    storage->GetNumberOfChunks(track, At(in), At(out), count);
    return count;
}

std::int64_t StorageTest::DurationOf(std::int64_t track, std::int64_t in, std::int64_t out) {
    Protocol::TimePoint duration;
    storage->GetAccumulatedDuration(track, At(in), At(out), duration);
    return static_cast<std::int64_t>(duration.nanoseconds());
}

Protocol::TrackInfo StorageTest::InfoOf(std::int64_t track) {
    Protocol::Ids ids;
    Protocol::TrackInfos infos;
    ids.add_ids(static_cast<std::uint64_t>(track));
    storage->GetTrackInfos(ids, infos);
    EXPECT_EQ(infos.infos_size(), 1);
    return infos.infos_size() == 1 ? infos.infos(0) : Protocol::TrackInfo();
}

std::vector<std::int64_t> StorageTest::ListTracks() {
    Protocol::TrackList list;
    storage->ListTracks(list);
    return {list.trackids().begin(), list.trackids().end()};
}

long StorageTest::Protect(std::int64_t track, std::int64_t timePoint, std::int64_t duration) {
    long id = -1;
    storage->Protect(track, At(timePoint), At(duration), id);
    return id;
}

void StorageTest::SetProperty(std::int64_t track, const std::string& key,
                              const std::string& value) {
    storage->SetTrackProperties(track, Properties({{key, value}}));
}

Blocks StorageTest::PropertiesOf(std::int64_t track) {
    Protocol::PropertyList list;
    storage->GetTrackProperties(track, list);
    Blocks items;
    for (const auto& item : list.items()) {
        items.emplace_back(item.key(), item.value());
    }
    return items;
}

std::uint64_t StorageTest::CostOf(std::size_t size) {
    // head, two parts, first part with one key, data, rounded up to 8; index entry
    const std::uint64_t length = 80 + 2 * 16 + (1 + 4 + 4 + 4 + 4) + size;
    return (length + 7) / 8 * 8 + 48;
}

}  // namespace Brantel::Tracks
