#include "Support/FaultyEngine.h"
#include "Support/MemoryHarness.h"
#include "Support/Waiting.h"
#include "Unit/Storage/libTracks/StorageTest.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Tracks {

namespace {

using Type = Protocol::CommandInfo;
using Ids = std::vector<std::uint64_t>;

Protocol::TrackParameters Parameters(std::int64_t track, std::int64_t size) {
    Protocol::TrackParameters parameters;
    parameters.set_id(static_cast<std::uint64_t>(track));
    parameters.set_size(static_cast<std::uint64_t>(size));
    return parameters;
}

}  // namespace

TEST_P(StorageTest, ACreatedTrackIsListedAndEmpty) {
    Create(7);
    EXPECT_EQ(ListTracks(), (std::vector<std::int64_t>{7}));
    EXPECT_TRUE(TimesOf(7).empty());
}

TEST_P(StorageTest, TheAnswerNamesTheTrackItsSizeAndItsCommand) {
    Protocol::TrackParameters out;
    storage->CreateTrack(Parameters(7, 5000), out);
    EXPECT_EQ(out.id(), 7U);
    EXPECT_EQ(out.size(), 8192U);
    EXPECT_GT(out.commandid(), 0U);
    EXPECT_EQ(Await(out.commandid()), Type::FINISHED);
}

TEST_P(StorageTest, IdentifierZeroAsksForTheSmallestFreeOne) {
    Create(1);
    Create(3);
    Protocol::TrackParameters out;
    storage->CreateTrack(Parameters(0, 4096), out);
    EXPECT_EQ(out.id(), 2U);
    storage->CreateTrack(Parameters(0, 4096), out);
    EXPECT_EQ(out.id(), 4U);
}

TEST_P(StorageTest, ABadCreationIsRefusedAndTakesNothing) {
    Create(7);
    long before = 0;
    long after = 0;
    storage->GetRemainingSpace(before);
    Protocol::TrackParameters out;
    EXPECT_EQ(ErrorOf([&] { storage->CreateTrack(Parameters(-3, 4096), out); }),
              "Track -3: the identifier of a track is not below 0");
    EXPECT_EQ(ErrorOf([&] { storage->CreateTrack(Parameters(7, 4096), out); }),
              "Track 7 already exists");
    EXPECT_EQ(ErrorOf([&] { storage->CreateTrack(Parameters(8, 100), out); }),
              "Track 8: size 100 is below that of the smallest chunk, 160 bytes");
    EXPECT_EQ(ErrorOf([&] { storage->CreateTrack(Parameters(8, -1), out); }),
              "Track 8: size -1 is below that of the smallest chunk, 160 bytes");
    EXPECT_EQ(ErrorOf([&] { storage->CreateTrack(Parameters(8, INT64_MAX), out); }),
              "Track 8: size 9223372036854775807 is more than the remaining space, " +
                  std::to_string(before) + " bytes");
    storage->GetRemainingSpace(after);
    EXPECT_EQ(after, before);
    EXPECT_EQ(ListTracks(), (std::vector<std::int64_t>{7}));
}

TEST_P(StorageTest, TracksSurviveARestart) {
    Create(7, 5000);
    Create(8);
    Restart();
    EXPECT_EQ(ListTracks(), (std::vector<std::int64_t>{7, 8}));
    EXPECT_EQ(InfoOf(7).capacity(), 8192U);
}

TEST_P(StorageTest, InfosLeaveUnknownTracksOut) {
    Create(7);
    Create(8);
    Protocol::Ids ids;
    Protocol::TrackInfos infos;
    for (const std::uint64_t id : Ids{8, 9, 7}) {
        ids.add_ids(id);
    }
    storage->GetTrackInfos(ids, infos);
    ASSERT_EQ(infos.infos_size(), 2);
    EXPECT_EQ(infos.infos(0).trackid(), 8U);
    EXPECT_EQ(infos.infos(1).trackid(), 7U);
}

TEST_P(StorageTest, AGrowthBelowThePresentCapacityIsRefused) {
    Create(7, 8192);
    Protocol::TrackParameters out;
    EXPECT_EQ(ErrorOf([&] { storage->GrowTrack(Parameters(7, 8191), out); }),
              "Track 7: size 8191 is below its capacity, 8192 bytes");
    EXPECT_EQ(ErrorOf([&] { storage->GrowTrack(Parameters(7, -1), out); }),
              "Track 7: size -1 is below its capacity, 8192 bytes");
    Grow(7, 8192);
    EXPECT_EQ(InfoOf(7).capacity(), 8192U);
}

TEST_P(StorageTest, AGrowthOverTheRemainingSpaceIsRefused) {
    Create(7);
    Protocol::TrackParameters out;
    const std::string error = ErrorOf([&] { storage->GrowTrack(Parameters(7, 1 << 30), out); });
    EXPECT_EQ(error.find("Track 7: size 1073741824 takes "), 0U) << error;
    EXPECT_EQ(InfoOf(7).capacity(), 1U << 20U);
}

TEST_P(StorageTest, AGrownTrackHoldsMore) {
    Create(7, 4096);
    Fill(7, {1, 2, 3, 4}, 1024 - CostOf(0));
    Grow(7, 8000);
    EXPECT_EQ(InfoOf(7).capacity(), 8192U);
    Fill(7, {5, 6, 7, 8}, 1024 - CostOf(0));
    EXPECT_EQ(CountOf(7, 0, 100), 8);
}

TEST_P(StorageTest, ADeletedTrackIsGoneAndItsIdentifierFree) {
    Create(7);
    Fill(7, {1, 2, 3}, 1000);
    SetProperty(7, "name", "old");
    Delete(7);
    EXPECT_TRUE(ListTracks().empty());
    EXPECT_EQ(ErrorOf([&] { EndOf(7); }), "Track 7 does not exist");
    Create(7);
    EXPECT_TRUE(TimesOf(7).empty());
    EXPECT_TRUE(PropertiesOf(7).empty());
    Fill(7, {2}, 1000);
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{2}));
}

TEST_P(StorageTest, ADeletedTrackIsStillGoneAfterARestartAndACrash) {
    for (const bool crashes : {false, true}) {
        Create(7);
        SetProperty(7, "name", "old");
        Delete(7);
        crashes ? Crash() : Restart();
        EXPECT_TRUE(ListTracks().empty());
        Create(7);
        EXPECT_TRUE(PropertiesOf(7).empty());
        Delete(7);
    }
}

TEST_P(StorageTest, ATrackWithOpenWorkersIsNotDeleted) {
    Create(7);
    Protocol::TrackParameters out;
    Reader reader = OpenReader(7);
    Writer writer = OpenWriter(7);
    EXPECT_EQ(ErrorOf([&] { storage->DeleteTrack(7, out); }),
              "Track 7: it has 2 open workers and can't be deleted");
    reader.reset();
    writer.reset();
    Delete(7);
}

TEST_P(StorageTest, EachChangeOfATrackIsACommandThatEndsFinished) {
    Protocol::TrackParameters out;
    storage->CreateTrack(Parameters(7, 4096), out);
    const std::uint64_t created = out.commandid();
    EXPECT_EQ(Await(created), Type::FINISHED);
    storage->GrowTrack(Parameters(7, 8192), out);
    EXPECT_GT(out.commandid(), created);
    EXPECT_EQ(Await(out.commandid()), Type::FINISHED);
    storage->DeleteTrack(7, out);
    EXPECT_EQ(Await(out.commandid()), Type::FINISHED);
    Protocol::CommandInfo info;
    storage->GetCommandInfo(static_cast<long>(created), info);
    EXPECT_EQ(info.progression(), 100U);
    Protocol::Ids ongoing;
    storage->GetOngoingCommands(ongoing);
    EXPECT_EQ(ongoing.ids_size(), 0);
}

TEST_P(StorageTest, AnUnknownCommandDoesNotExist) {
    EXPECT_EQ(StateOf(12345), Type::NOT_EXIST);
    EXPECT_EQ(StateOf(static_cast<std::uint64_t>(-1)), Type::NOT_EXIST);
}

TEST_P(StorageTest, EndedCommandsStayKnownAcrossRestartsUpToTheLimit) {
    Close();
    StorageOptions options;
    options.commandHistory = 3;
    tracks = std::make_unique<Storage>(GetEngine(), options);
    storage = tracks->MakeTrackStorage();
    Ids ids;
    for (std::int64_t track = 1; track <= 5; ++track) {
        Protocol::TrackParameters out;
        storage->CreateTrack(Parameters(track, 4096), out);
        ids.push_back(out.commandid());
        Await(out.commandid());
    }
    EXPECT_EQ(StateOf(ids[1]), Type::NOT_EXIST);
    EXPECT_EQ(StateOf(ids[2]), Type::FINISHED);
    Restart();
    EXPECT_EQ(StateOf(ids[1]), Type::NOT_EXIST);
    EXPECT_EQ(StateOf(ids[2]), Type::FINISHED);
    EXPECT_EQ(StateOf(ids[4]), Type::FINISHED);
}

TEST_P(StorageTest, CommandIdentifiersAreNeverUsedAgain) {
    Protocol::TrackParameters out;
    storage->CreateTrack(Parameters(1, 4096), out);
    const std::uint64_t first = out.commandid();
    Await(first);
    Restart();
    storage->CreateTrack(Parameters(2, 4096), out);
    EXPECT_EQ(out.commandid(), first + 1);
    Await(out.commandid());
    Crash();
    storage->CreateTrack(Parameters(3, 4096), out);
    EXPECT_GT(out.commandid(), first + 1);
}

// An engine whose reserving and releasing a test can hold up or fail.
class StorageCommandsTest : public StorageTest {
  protected:
    Engine::FaultyEngine& GetFaulty() {
        return dynamic_cast<Engine::FaultyMemoryHarness&>(*harness).GetFaulty();
    }
    // Holds the next commands up when they are about to reserve or release.
    void Hold(Engine::Call call) {
        GetFaulty().SetHook(call, [this] {
            entered.Open();
            ASSERT_TRUE(go.Wait());
        });
    }

    Tests::Gate entered;
    Tests::Gate go;
};

INSTANTIATE_TEST_SUITE_P(Memory, StorageCommandsTest,
                         testing::Values(Engine::FaultyMemoryHarnessFactory()),
                         testing::PrintToStringParamName());

TEST_P(StorageCommandsTest, ATrackIsNeitherListedNorUsableBeforeItsCommandIsFinished) {
    Hold(Engine::Call::Reserve);
    Protocol::TrackParameters out;
    storage->CreateTrack(Parameters(7, 4096), out);
    ASSERT_TRUE(entered.Wait());
    EXPECT_EQ(StateOf(out.commandid()), Type::ONGOING);
    EXPECT_TRUE(ListTracks().empty());
    EXPECT_EQ(ErrorOf([&] { EndOf(7); }), "Track 7 is being created");
    EXPECT_EQ(ErrorOf([&] { OpenReader(7); }), "Track 7 is being created");
    EXPECT_EQ(ErrorOf([&] { storage->DeleteTrack(7, out); }), "Track 7 is being created");
    EXPECT_EQ(ErrorOf([&] { storage->CreateTrack(Parameters(7, 4096), out); }),
              "Track 7 already exists");
    go.Open();
    EXPECT_EQ(Await(out.commandid()), Type::FINISHED);
    EXPECT_EQ(EndOf(7), -1);
}

TEST_P(StorageCommandsTest, AnOngoingCommandShowsItsProgressInPercent) {
    class Slow : public Engine::FaultyEngine {
      public:
        using Engine::FaultyEngine::FaultyEngine;
        void Reserve(const Engine::Reservation& reservation, Engine::IProgress& progress) override {
            FaultyEngine::Reserve(reservation, progress);
            for (std::uint64_t done = 0; done <= 4; ++done) {
                progress.Report(done, 4);
                look();
            }
        }
        std::function<void()> look;
    };
    Close();
    Slow slow(GetEngine());
    std::vector<std::uint64_t> seen;
    slow.look = [&] {
        Protocol::Ids ongoing;
        Protocol::CommandInfo info;
        storage->GetOngoingCommands(ongoing);
        storage->GetCommandInfo(static_cast<long>(ongoing.ids(0)), info);
        EXPECT_EQ(info.type(), Type::ONGOING);
        seen.push_back(info.progression());
    };
    tracks = std::make_unique<Storage>(slow, StorageOptions());
    storage = tracks->MakeTrackStorage();
    Create(7, 4096);
    Close();
    EXPECT_EQ(seen, (Ids{0, 24, 49, 74, 99}));
}

TEST_P(StorageCommandsTest, TheLastThousandEndedCommandsStayKnownAcrossRestarts) {
    Create(7, 4096);
    Protocol::TrackParameters out;
    Ids ids;
    for (int command = 0; command < 1002; ++command) {
        storage->GrowTrack(Parameters(7, 4096), out);
        ids.push_back(out.commandid());
        ASSERT_EQ(Await(out.commandid()), Type::FINISHED);
    }
    for (int start = 0; start < 2; ++start) {
        EXPECT_EQ(StateOf(ids[1]), Type::NOT_EXIST);
        EXPECT_EQ(StateOf(ids[2]), Type::FINISHED);
        EXPECT_EQ(StateOf(ids[1001]), Type::FINISHED);
        Restart();
    }
}

TEST_P(StorageCommandsTest, CommandsWaitInOrderAndAreListedAsOngoing) {
    Hold(Engine::Call::Reserve);
    Protocol::TrackParameters first;
    Protocol::TrackParameters second;
    storage->CreateTrack(Parameters(7, 4096), first);
    storage->CreateTrack(Parameters(8, 4096), second);
    ASSERT_TRUE(entered.Wait());
    EXPECT_EQ(StateOf(first.commandid()), Type::ONGOING);
    EXPECT_EQ(StateOf(second.commandid()), Type::QUEUED);
    Protocol::Ids ongoing;
    storage->GetOngoingCommands(ongoing);
    EXPECT_EQ(Ids(ongoing.ids().begin(), ongoing.ids().end()),
              (Ids{first.commandid(), second.commandid()}));
    go.Open();
    EXPECT_EQ(Await(second.commandid()), Type::FINISHED);
}

TEST_P(StorageCommandsTest, SpaceIsPromisedBeforeItIsReserved) {
    long before = 0;
    long during = 0;
    storage->GetRemainingSpace(before);
    Hold(Engine::Call::Reserve);
    Protocol::TrackParameters out;
    storage->CreateTrack(Parameters(7, before), out);
    storage->GetRemainingSpace(during);
    EXPECT_LT(during, 5 << 20);
    EXPECT_NE(ErrorOf([&] { storage->CreateTrack(Parameters(8, before), out); }), "no error");
    go.Open();
    EXPECT_EQ(Await(out.commandid()), Type::FINISHED);
}

TEST_P(StorageCommandsTest, ATrackStaysUsableWhileItGrows) {
    Create(7, 4096);
    Hold(Engine::Call::Reserve);
    Protocol::TrackParameters out;
    storage->GrowTrack(Parameters(7, 8192), out);
    ASSERT_TRUE(entered.Wait());
    Fill(7, {1, 2, 3, 4, 5}, 1024 - CostOf(0));
    EXPECT_EQ(CountOf(7, 0, 100), 4);
    EXPECT_EQ(InfoOf(7).capacity(), 4096U);
    go.Open();
    EXPECT_EQ(Await(out.commandid()), Type::FINISHED);
    EXPECT_EQ(InfoOf(7).capacity(), 8192U);
}

TEST_P(StorageCommandsTest, ATrackThatIsBeingDeletedIsOfNoUse) {
    Create(7);
    Hold(Engine::Call::Release);
    Protocol::TrackParameters out;
    storage->DeleteTrack(7, out);
    ASSERT_TRUE(entered.Wait());
    EXPECT_EQ(ErrorOf([&] { OpenWriter(7); }), "Track 7 is being deleted");
    EXPECT_TRUE(ListTracks().empty());
    go.Open();
    EXPECT_EQ(Await(out.commandid()), Type::FINISHED);
    EXPECT_EQ(ErrorOf([&] { OpenWriter(7); }), "Track 7 does not exist");
}

TEST_P(StorageCommandsTest, ACommandThatFailsIsUndoneAndReadsCanceled) {
    GetFaulty().Inject(Engine::Call::Reserve, Engine::FaultyEngine::Fault::FailBefore);
    Protocol::TrackParameters out;
    storage->CreateTrack(Parameters(7, 4096), out);
    EXPECT_EQ(Await(out.commandid()), Type::CANCELED);
    EXPECT_EQ(ErrorOf([&] { EndOf(7); }), "Track 7 does not exist");
    EXPECT_EQ(GetEngine().GetSpace().reserved, 0U);
    Create(7);

    GetFaulty().Inject(Engine::Call::Reserve, Engine::FaultyEngine::Fault::FailAfter);
    storage->GrowTrack(Parameters(7, 8 << 20), out);
    EXPECT_EQ(Await(out.commandid()), Type::CANCELED);
    EXPECT_EQ(InfoOf(7).capacity(), 1U << 20U);
    EXPECT_EQ(GetEngine().ListReservations()[0].segmentCount, 6U);
    EXPECT_FALSE(logged.empty());
}

TEST_P(StorageCommandsTest, TheEndOfTheServerCancelsWhatWaitsAndRuns) {
    Create(6);
    Hold(Engine::Call::Reserve);
    Protocol::TrackParameters first;
    Protocol::TrackParameters second;
    Protocol::TrackParameters third;
    storage->CreateTrack(Parameters(7, 4096), first);
    storage->CreateTrack(Parameters(8, 4096), second);
    storage->GrowTrack(Parameters(6, 8 << 20), third);
    ASSERT_TRUE(entered.Wait());
    std::thread stopper([this] { tracks->Stop(); });
    // Refused from the moment that the end has begun, before the running one has heard of it.
    Protocol::TrackParameters out;
    EXPECT_TRUE(Tests::Eventually([&] {
        return ErrorOf([&] { storage->DeleteTrack(99, out); }) != "no error" &&
               ErrorOf([&] { storage->CreateTrack(Parameters(0, 4096), out); }) ==
                   "Track 0: the server stops";
    }));
    go.Open();
    stopper.join();
    Restart();
    EXPECT_EQ(StateOf(first.commandid()), Type::CANCELED);
    EXPECT_EQ(StateOf(second.commandid()), Type::CANCELED);
    EXPECT_EQ(StateOf(third.commandid()), Type::CANCELED);
    EXPECT_EQ(ListTracks(), (std::vector<std::int64_t>{6}));
    EXPECT_EQ(GetEngine().ListReservations().size(), 1U);
    EXPECT_EQ(InfoOf(6).capacity(), 1U << 20U);
}

TEST_P(StorageCommandsTest, ACommandThatACrashCutsOffIsUndoneAtTheNextStart) {
    Create(6);
    Hold(Engine::Call::Reserve);
    Protocol::TrackParameters created;
    Protocol::TrackParameters grown;
    storage->CreateTrack(Parameters(7, 4096), created);
    storage->GrowTrack(Parameters(6, 8 << 20), grown);
    ASSERT_TRUE(entered.Wait());
    harness->Crash();
    go.Open();
    Close();
    Open();
    EXPECT_EQ(StateOf(created.commandid()), Type::CANCELED);
    EXPECT_EQ(StateOf(grown.commandid()), Type::CANCELED);
    EXPECT_EQ(ListTracks(), (std::vector<std::int64_t>{6}));
    EXPECT_EQ(InfoOf(6).capacity(), 1U << 20U);
    EXPECT_EQ(GetEngine().ListReservations().size(), 1U);
    Create(7);
}

TEST_P(StorageCommandsTest, ADeletionThatACrashCutsOffIsFinishedAtTheNextStart) {
    Create(7);
    Fill(7, {1, 2, 3});
    Hold(Engine::Call::Release);
    Protocol::TrackParameters out;
    storage->DeleteTrack(7, out);
    ASSERT_TRUE(entered.Wait());
    harness->Crash();
    go.Open();
    Close();
    Open();
    EXPECT_EQ(Await(out.commandid()), Type::FINISHED);
    EXPECT_TRUE(ListTracks().empty());
    EXPECT_TRUE(GetEngine().ListReservations().empty());
    Create(7);
    EXPECT_TRUE(TimesOf(7).empty());
}

}  // namespace Brantel::Tracks
