#include "Support/ForgetfulEngine.h"

#include <libEngine/EngineError.h>
#include <libProtocolX/rpc/ITrackReader.h>
#include <libProtocolX/rpc/ITrackReaderFactory.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriter.h>
#include <libProtocolX/rpc/ITrackWriterFactory.h>
#include <libTracks/ClientConnection.h>
#include <libTracks/ReadIndex.h>
#include <libTracks/Storage.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Brantel::Tracks {
namespace {

using Engine::ChunkEntry;
using Engine::EngineError;

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

ChunkEntry EntryAt(std::int64_t timePoint, std::int64_t duration) {
    ChunkEntry entry;
    entry.timePoint = timePoint;
    entry.duration = duration;
    return entry;
}

TEST(ReadIndexTest, AnEntryWhoseTimesCanNotBeIsDamage) {
    EXPECT_THROW(CheckTimes(EntryAt(-1, 0)), EngineError);
    EXPECT_THROW(CheckTimes(EntryAt(5, -1)), EngineError);
    EXPECT_THROW(CheckTimes(EntryAt(5, largest)), EngineError);
    EXPECT_NO_THROW(CheckTimes(EntryAt(5, largest - 5)));
}

TEST(ReadIndexTest, ARunThatAnIndexDoesNotHoldIsDamage) {
    EXPECT_NO_THROW(CheckRun(0, 2, 2));
    EXPECT_THROW(CheckRun(0, 3, 2), EngineError);
    EXPECT_THROW(CheckRun(1, 1, 2), EngineError);
}

// A full segment and an open one, and a server that was started again.
class ReadIndexStorageTest : public testing::Test {
  protected:
    ReadIndexStorageTest() {
        options.smallestSegmentBytes = 12'288;
        Storage storage(engine, options);
        const auto tracks = storage.MakeTrackStorage();
        Protocol::TrackParameters parameters;
        parameters.set_id(7);
        parameters.set_size(100'000);
        Protocol::TrackParameters made;
        tracks->CreateTrack(parameters, made);
        for (Protocol::Ids ongoing; tracks->GetOngoingCommands(ongoing), ongoing.ids_size() > 0;
             ongoing.Clear()) {
            std::this_thread::yield();
        }
        const ClientConnection connection;
        const auto factory = storage.MakeWriterFactory(connection);
        const std::unique_ptr<BrantelStorageApi::ITrackWriter> writer(
            factory->CreateTrackWriter(7));
        for (std::uint64_t time = 10; time <= 50; time += 10) {
            Protocol::Chunk chunk;
            chunk.mutable_timecode()->set_nanoseconds(time);
            auto& item = *chunk.mutable_data()->add_items();
            item.set_key("image");
            item.set_value(std::string(1000, 'i'));
            writer->Append(chunk);
        }
    }

    // What reading at a time point answers or throws.
    static std::string Read(Storage& storage, std::uint64_t time, bool next) {
        const std::unique_ptr<BrantelStorageApi::ITrackReader> reader(
            storage.MakeReaderFactory({})->CreateTrackReader(7));
        Protocol::TimePoint at;
        at.set_nanoseconds(time);
        Protocol::TimePoint found;
        bool isFound = false;
        try {
            if (next) {
                reader->NextTimePoint(at, found, isFound);
            } else {
                reader->PreviousTimePoint(at, found, isFound);
            }
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return std::to_string(found.nanoseconds());
    }

    Engine::ForgetfulEngine engine{std::uint64_t{4} << 20U};
    StorageOptions options;
};

constexpr const char* damaged =
    "Track 7: the index of segment 1 of the ring log is not what it was";

TEST_F(ReadIndexStorageTest, AnIndexThatHasFewerEntriesThanItHadIsAnError) {
    Storage storage(engine, options);
    engine.lost = 1;
    EXPECT_EQ(damaged, Read(storage, 10, true));
    EXPECT_EQ("50", Read(storage, 40, true));
}

TEST_F(ReadIndexStorageTest, AnIndexWithOtherTimesThanItHadIsAnError) {
    Storage storage(engine, options);
    engine.late = 5;
    EXPECT_EQ(damaged, Read(storage, 12, false));
}

TEST_F(ReadIndexStorageTest, AnIndexWithEarlierTimesThanItHadIsAnError) {
    Storage storage(engine, options);
    engine.late = -9;
    EXPECT_EQ(damaged, Read(storage, 29, true));
}

}  // namespace
}  // namespace Brantel::Tracks
