#include "Support/EngineList.h"
#include "Support/FaultyEngine.h"
#include "Support/MemoryHarness.h"
#include "Support/Waiting.h"
#include "Unit/Storage/libTracks/StorageTest.h"

#include <libTracks/StorageStatus.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>

namespace Brantel::Tracks {

// What the storage tells those who watch over it.
class StorageStatusTest : public StorageTest {
  protected:
    StorageOptions MakeOptions() override {
        StorageOptions options;
        options.clock = [this] { return now; };
        return options;
    }
    TrackStatus StatusOf(std::int64_t track) {
        for (const TrackStatus& status : tracks->GetStatus().tracks) {
            if (status.id == track) {
                return status;
            }
        }
        ADD_FAILURE() << "no track " << track;
        return {};
    }
    void Damage(std::int64_t track, std::size_t chunk) {
        const Engine::SegmentId segment{track, Engine::LogKind::Ring, 1};
        harness->DamageChunk(segment, GetEngine().ReadEntries(segment).at(chunk), 1);
    }

    std::chrono::steady_clock::time_point now{std::chrono::hours(1)};
};

INSTANTIATE_TEST_SUITE_P(Every, StorageStatusTest, testing::ValuesIn(Engine::EveryEngine()),
                         testing::PrintToStringParamName());

TEST_P(StorageStatusTest, AnEmptyStorageHasNothingButRoom) {
    const StorageStatus status = tracks->GetStatus();
    EXPECT_TRUE(status.tracks.empty());
    EXPECT_TRUE(status.workers.empty());
    EXPECT_TRUE(status.commands.empty());
    EXPECT_GT(status.remainingSpace.value_or(0), 0);
    EXPECT_EQ(status.space.reserved, 0U);
}

TEST_P(StorageStatusTest, ATrackTellsWhatItHolds) {
    Create(7, 1 << 20);
    Fill(7, {10, 20, 40}, 100);
    const TrackStatus status = StatusOf(7);
    EXPECT_EQ(status.state, TrackStatus::State::Ready);
    EXPECT_EQ(status.capacity, 1U << 20U);
    EXPECT_EQ(status.used, 3 * CostOf(100));
    EXPECT_EQ(status.held, 0U);
    EXPECT_EQ(status.begin, 10);
    EXPECT_EQ(status.last, 40);
    EXPECT_EQ(status.end, 50);
    EXPECT_EQ(status.chunks, 3U);
    EXPECT_EQ(status.appendedChunks, 3U);
    EXPECT_EQ(status.appendedBytes, 300U);
    EXPECT_EQ(status.recycledChunks, 0U);
}

TEST_P(StorageStatusTest, AnEmptyTrackHasNoTimes) {
    Create(7);
    const TrackStatus status = StatusOf(7);
    EXPECT_EQ(status.begin, -1);
    EXPECT_EQ(status.last, -1);
    EXPECT_EQ(status.end, -1);
    EXPECT_EQ(status.chunks, 0U);
}

TEST_P(StorageStatusTest, RecycledChunksAreCountedAndClearedOnesAreNot) {
    Create(7, 4096);
    Fill(7, {10, 20, 30, 40}, 1024 - CostOf(0));
    EXPECT_EQ(StatusOf(7).recycledChunks, 0U);
    Fill(7, {50, 60, 70}, 1024 - CostOf(0));
    EXPECT_EQ(StatusOf(7).recycledChunks, 3U);
    EXPECT_EQ(StatusOf(7).chunks, 4U);
    storage->ClearTrack(7);
    EXPECT_EQ(StatusOf(7).recycledChunks, 3U);
    EXPECT_EQ(StatusOf(7).chunks, 0U);
}

TEST_P(StorageStatusTest, AHeldChunkThatLeavesTheRingIsNotRecycled) {
    Create(7, 4096);
    Fill(7, {10, 20, 30, 40}, 1024 - CostOf(0));
    Protect(7, 20, 5);
    Fill(7, {50, 60}, 1024 - CostOf(0));
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{20, 40, 50, 60}));
    EXPECT_EQ(StatusOf(7).recycledChunks, 2U);
    EXPECT_EQ(StatusOf(7).chunks, 4U);
}

TEST_P(StorageStatusTest, WhatProtectionsHoldIsTold) {
    Create(7, 1 << 20);
    Fill(7, {0, 10, 20, 30}, 1000);
    const long part = Protect(7, 0, 20);
    EXPECT_EQ(StatusOf(7).held, 2 * CostOf(1000));
    EXPECT_EQ(StatusOf(7).protections, 1U);
    Protect(7, 0, 1000);
    EXPECT_EQ(StatusOf(7).held, 4 * CostOf(1000));
    Unprotect(part);
    EXPECT_EQ(StatusOf(7).protections, 1U);
}

TEST_P(StorageStatusTest, TheSettingsInForceAreTold) {
    Create(7);
    EXPECT_EQ(StatusOf(7).durability.mode, Engine::Durability::Mode::Always);
    EXPECT_TRUE(StatusOf(7).isLoop);
    SetProperty(7, "storage.durability", "interval:200ms");
    SetProperty(7, "storage.retention", "stop");
    EXPECT_EQ(StatusOf(7).durability.interval, std::chrono::milliseconds(200));
    EXPECT_FALSE(StatusOf(7).isLoop);
}

TEST_P(StorageStatusTest, ADamagedChunkIsCountedAndLoggedOnceHoweverOftenItIsRead) {
    Create(7);
    Fill(7, {10, 20, 30}, 100);
    Damage(7, 1);
    EXPECT_EQ(tracks->GetStatus().damagedChunks, 0U);
    EXPECT_NE(ErrorOf([&] { Get(7, 20); }), "no error");
    EXPECT_NE(ErrorOf([&] { Get(7, 20); }), "no error");
    EXPECT_EQ(StatusOf(7).damagedChunks, 1U);
    EXPECT_EQ(logged.size(), 1U);
    Damage(7, 0);
    EXPECT_NE(ErrorOf([&] { Get(7, 10); }), "no error");
    EXPECT_EQ(StatusOf(7).damagedChunks, 2U);
    EXPECT_EQ(logged.size(), 2U);
}

TEST_P(StorageStatusTest, DamageOfATrackThatIsGoneStaysCounted) {
    Create(7);
    Fill(7, {10}, 100);
    Damage(7, 0);
    EXPECT_NE(ErrorOf([&] { Get(7, 10); }), "no error");
    Delete(7);
    EXPECT_TRUE(tracks->GetStatus().tracks.empty());
    EXPECT_EQ(tracks->GetStatus().damagedChunks, 1U);
}

TEST_P(StorageStatusTest, OpenReadersAndWritersAreTold) {
    Create(7);
    ClientConnection connection;
    connection.id = 42;
    connection.clientIpV4Address = "192.0.2.17";
    const Writer writer = OpenWriter(7, connection);
    const Reader reader = OpenReader(7);
    const StorageStatus status = tracks->GetStatus();
    ASSERT_EQ(status.workers.size(), 2U);
    EXPECT_TRUE(status.workers[0].isWriter);
    EXPECT_EQ(status.workers[0].track, 7);
    EXPECT_EQ(status.workers[0].connection, 42);
    EXPECT_EQ(status.workers[0].clientIpV4Address, "192.0.2.17");
    EXPECT_FALSE(status.workers[1].isWriter);
    EXPECT_EQ(status.tracks[0].readers, 1U);
    EXPECT_TRUE(status.tracks[0].hasWriter);
}

TEST_P(StorageStatusTest, AReaderTellsHowFarItIsBehindAndHowLongItHasDoneNothing) {
    Create(7);
    Fill(7, {100, 200, 500}, 10);
    const Reader reader = OpenReader(7);
    EXPECT_EQ(tracks->GetStatus().workers[0].position, -1);
    EXPECT_EQ(tracks->GetStatus().workers[0].lag, -1);
    Protocol::Chunk chunk;
    bool found = false;
    reader->GetNextChunk(At(100), {}, chunk, found);
    now += std::chrono::seconds(3);
    const WorkerStatus status = tracks->GetStatus().workers[0];
    EXPECT_EQ(status.position, 200);
    EXPECT_EQ(status.lag, 300);
    EXPECT_EQ(status.idle, std::chrono::seconds(3));
    Protocol::TimePoint next;
    reader->NextTimePoint(At(200), next, found);
    EXPECT_EQ(tracks->GetStatus().workers[0].lag, 0);
    EXPECT_EQ(tracks->GetStatus().workers[0].idle, std::chrono::seconds(0));
}

TEST_P(StorageStatusTest, AWriterIsWhereItsLastChunkIs) {
    Create(7);
    const Writer writer = OpenWriter(7);
    writer->Append(MakeChunk(1000, 10));
    EXPECT_EQ(tracks->GetStatus().workers[0].position, 1000);
    EXPECT_EQ(tracks->GetStatus().workers[0].lag, 0);
}

TEST_P(StorageStatusTest, EndedCommandsAreCounted) {
    Create(7);
    Delete(7);
    const StorageStatus status = tracks->GetStatus();
    EXPECT_EQ(status.commandCounts.finished, 2U);
    EXPECT_EQ(status.commandCounts.canceled, 0U);
    EXPECT_EQ(status.commandCounts.queued + status.commandCounts.ongoing, 0U);
}

// A command that is held up while it runs.
class StorageCommandStatusTest : public StorageStatusTest {};

INSTANTIATE_TEST_SUITE_P(Memory, StorageCommandStatusTest,
                         testing::Values(Engine::FaultyMemoryHarnessFactory()),
                         testing::PrintToStringParamName());

TEST_P(StorageCommandStatusTest, WaitingAndRunningCommandsAreTold) {
    auto& faulty = dynamic_cast<Engine::FaultyMemoryHarness&>(*harness).GetFaulty();
    Tests::Gate proceed;
    faulty.SetHook(Engine::Call::Reserve, [&] { proceed.Wait(); });
    Protocol::TrackParameters first;
    first.set_id(7);
    first.set_size(1 << 20);
    Protocol::TrackParameters second = first;
    second.set_id(8);
    storage->CreateTrack(first, first);
    storage->CreateTrack(second, second);
    const StorageStatus status = tracks->GetStatus();
    ASSERT_EQ(status.commands.size(), 2U);
    EXPECT_EQ(status.commands[0].id, static_cast<std::int64_t>(first.commandid()));
    EXPECT_EQ(status.commands[0].kind, CommandStatus::Kind::Create);
    EXPECT_EQ(status.commands[1].track, 8);
    EXPECT_EQ(status.commands[1].capacity, 1U << 20U);
    EXPECT_EQ(status.commandCounts.queued + status.commandCounts.ongoing, 2U);
    EXPECT_EQ(status.tracks[0].state, TrackStatus::State::Creating);
    proceed.Open();
    EXPECT_EQ(Await(second.commandid()), Protocol::CommandInfo::FINISHED);
}

}  // namespace Brantel::Tracks
