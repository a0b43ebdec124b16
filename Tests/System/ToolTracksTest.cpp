// Looking at tracks, making, changing and deleting them from the command line.

#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"
#include "ToolRun.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libTime/TimePoint.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using Time::TimePoint;

constexpr long second = 1'000'000'000;

class ToolTracksTest : public testing::Test {
  protected:
    ToolRun Run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--server", "unix:" + socketPath});
        return ToolRun(arguments);
    }
    // What it printed; it must have ended well.
    std::string OutputOf(const std::vector<std::string>& arguments) const {
        const ToolRun run = Run(arguments);
        EXPECT_EQ(run.ExitCode(), 0) << run.Errors();
        return run.Output();
    }
    // What it said; it must have ended with this code and printed nothing.
    std::string RefusalOf(const std::vector<std::string>& arguments, int exitCode = 1) const {
        const ToolRun run = Run(arguments);
        EXPECT_EQ(run.ExitCode(), exitCode) << run.Errors();
        EXPECT_EQ(run.Output(), "");
        return run.Errors();
    }
    // Chunks of one second at 1 s, 2 s, ... but none at 3 s.
    void AppendThreeChunks(long track) const {
        for (const long time : {1, 2, 4}) {
            DataChunk chunk;
            chunk.SetTimePoint(TimePoint::Nanoseconds(time * second));
            chunk.SetDuration(TimePoint::Nanoseconds(second));
            chunk.SetData("block", std::string(1000, 'x'));
            client->GetTrackWriter(track)->Append(chunk);
        }
        client->CloseTrackWriter(track);
    }

    TemporaryFolder folder;
    const std::string socketPath = folder.File("storage.sock");
    const ServerProcess server{socketPath};
    const std::unique_ptr<StorageClientX> client = server.ConnectOverUnix();
};

using ToolLsTest = ToolTracksTest;

TEST_F(ToolLsTest, WithoutTracksItSaysHowToMakeOne) {
    const ToolRun run = Run({"ls"});
    EXPECT_EQ(run.ExitCode(), 0);
    EXPECT_EQ(run.Output(), "");
    EXPECT_THAT(run.Errors(), HasSubstr("brantel track create"));
}

TEST_F(ToolLsTest, ATrackIsARow) {
    AppendThreeChunks(CreateTrack(*client));
    EXPECT_THAT(
        OutputOf({"ls"}),
        AllOf(StartsWith("track "), ContainsRegex("\n +1 +[0-9.]+ KiB +16.0 MiB .* 1\\.0+ +"
                                                  "5\\.0+ +3 +[0-9.]+ kbit/s +1\\.00 s +- +-\n")));
}

TEST_F(ToolLsTest, AWriterIsShownWithItsThroughput) {
    const long track = CreateTrack(*client);
    client->GetTrackWriter(track);
    EXPECT_THAT(OutputOf({"ls", "-j"}), ContainsRegex("\"writer\":\\{\"worker\":[0-9]+"));
    EXPECT_THAT(OutputOf({"ls"}), ContainsRegex("0 B/s\n"));
}

TEST_F(ToolLsTest, JsonHasOneTrackALine) {
    AppendThreeChunks(CreateTrack(*client));
    CreateTrack(*client);
    EXPECT_THAT(OutputOf({"ls", "-j"}),
                MatchesRegex(
                    "\\{\"track\":1,\"size\":[0-9]+,\"capacity\":16777216,\"from\":\"1.000000000\","
                    "\"to\":\"5.000000000\",\"chunks\":3,\"coveredNanoseconds\":3000000000,"
                    "\"gapNanoseconds\":1000000000,.*\\}\n\\{\"track\":2,.*\\}\n"));
}

TEST_F(ToolLsTest, TheFormatOfTimesIsChosen) {
    AppendThreeChunks(CreateTrack(*client));
    EXPECT_THAT(OutputOf({"ls", "--time-format", "rfc3339"}), HasSubstr("1970-01-01T00:00:01Z"));
    EXPECT_THAT(OutputOf({"ls", "-j", "--time-format", "nanoseconds"}),
                HasSubstr("\"from\":1000000000,"));
}

TEST_F(ToolLsTest, TracksAreChosenByNumber) {
    CreateTrack(*client);
    CreateTrack(*client);
    EXPECT_THAT(OutputOf({"ls", "-j", "2"}), StartsWith("{\"track\":2,"));
    EXPECT_EQ(RefusalOf({"ls", "3"}), "brantel: Track 3 does not exist\n");
    EXPECT_THAT(RefusalOf({"ls", "x"}, 2), HasSubstr("x is not a whole number"));
}

TEST_F(ToolLsTest, ColorsComeWhenTheyAreAskedFor) {
    CreateTrack(*client);
    EXPECT_THAT(OutputOf({"ls", "--color", "always"}), HasSubstr("\x1b[1m"));
    EXPECT_THAT(OutputOf({"ls"}), Not(HasSubstr("\x1b")));
}

TEST_F(ToolLsTest, WatchingGoesOnUntilItIsInterrupted) {
    CreateTrack(*client);
    ProgramRun run(
        {ToolRun::Program(), "--server", "unix:" + socketPath, "ls", "-j", "-w", "-i", "1ms"});
    ASSERT_TRUE(Eventually([&] {
        const std::string text = run.Output();
        return std::count(text.begin(), text.end(), '\n') >= 3;
    }));
    run.Signal(SIGINT);
    EXPECT_EQ(run.Wait(), 0) << run.Errors();
}

using ToolInfoTest = ToolTracksTest;

TEST_F(ToolInfoTest, ATrackIsDescribed) {
    const long track = CreateTrack(*client);
    AppendThreeChunks(track);
    client->SetTrackProperties(track, {{"camera", "north"}, {"storage.retention", "stop"}});
    client->Protect(track, TimePoint::Nanoseconds(0), TimePoint::Nanoseconds(2 * second));
    EXPECT_THAT(OutputOf({"info", "1"}),
                AllOf(StartsWith("Track 1\n"), HasSubstr("duration     4s\n"),
                      HasSubstr("gaps         1s\n"), HasSubstr("retention    stop\n"),
                      HasSubstr("property     camera=north\n"),
                      ContainsRegex("protection   [0-9]+: 0\\.000000000\\.\\.2\\.000000000\n")));
}

TEST_F(ToolInfoTest, JsonHasProperties) {
    const long track = CreateTrack(*client);
    client->SetTrackProperties(track, {{"bytes", "\xff"}, {"camera", "north"}});
    EXPECT_THAT(OutputOf({"info", "-j", "1"}),
                HasSubstr("\"properties\":{\"bytesBase64\":\"/w==\",\"camera\":\"north\"}"));
}

TEST_F(ToolInfoTest, WhatWasPrintedBeforeAFailureStands) {
    CreateTrack(*client);
    const ToolRun run = Run({"info", "1", "7"});
    EXPECT_EQ(run.ExitCode(), 1);
    EXPECT_THAT(run.Output(), StartsWith("Track 1\n"));
    EXPECT_EQ(run.Errors(), "brantel: Track 7 does not exist\n");
}

TEST_F(ToolInfoTest, AnUnknownTrackIsAFailure) {
    EXPECT_EQ(RefusalOf({"info", "7"}), "brantel: Track 7 does not exist\n");
    EXPECT_THAT(RefusalOf({"info"}, 2), HasSubstr("TRACK is required"));
}

using ToolCreateTest = ToolTracksTest;

TEST_F(ToolCreateTest, ATrackIsMadeAndWhatFitsIsSaid) {
    EXPECT_EQ(OutputOf({"track", "create", "64MiB", "--rate", "8Mbit/s"}),
              "Track 1 created, 64.0 MiB: 1 min 7 s at 8.00 Mbit/s\n");
    EXPECT_EQ(client->GetTrackSize(1), 64L << 20U);
}

TEST_F(ToolCreateTest, QuietPrintsTheNumberAlone) {
    EXPECT_EQ(OutputOf({"track", "create", "1M", "-q", "--id", "9"}), "9\n");
}

TEST_F(ToolCreateTest, JsonSaysTrackCapacityAndCommand) {
    EXPECT_THAT(
        OutputOf({"track", "create", "1MiB", "-j"}),
        MatchesRegex(
            "\\{\"track\":1,\"capacity\":1048576,\"command\":[0-9]+,\"state\":\"finished\"\\}\n"));
}

TEST_F(ToolCreateTest, PropertiesAndSettingsAreGiven) {
    OutputOf({"track", "create", "1M", "-p", "a=b=c", "-p", "d=", "--retention", "stop",
              "--durability", "os"});
    const StorageClientX::Properties properties = client->GetTrackProperties(1);
    EXPECT_EQ(properties.at("a"), "b=c");
    EXPECT_EQ(properties.at("storage.retention"), "stop");
    EXPECT_EQ(properties.at("storage.durability"), "os");
}

TEST_F(ToolCreateTest, WithoutWaitingTheCommandIsPrintedAndCanBeWatched) {
    const std::string command = OutputOf({"track", "create", "1M", "--no-wait", "-q"});
    EXPECT_THAT(command, MatchesRegex("[0-9]+\n"));
    OutputOf({"command", "watch", command.substr(0, command.size() - 1)});
    EXPECT_THAT(client->ListTracks(), SizeIs(1));
}

TEST_F(ToolCreateTest, ADryRunChangesNothing) {
    EXPECT_THAT(OutputOf({"track", "create", "1M", "--dry-run"}),
                StartsWith("Would create a track of"));
    EXPECT_THAT(client->ListTracks(), IsEmpty());
}

TEST_F(ToolCreateTest, WhatCannotBeMadeIsRefused) {
    CreateTrack(*client);
    EXPECT_THAT(RefusalOf({"track", "create", "1M", "--id", "1"}), HasSubstr("rack 1"));
    EXPECT_THAT(RefusalOf({"track", "create", "1EB"}), HasSubstr("1000000000000000000"));
    EXPECT_THAT(RefusalOf({"track", "create", "1EB", "--dry-run"}), HasSubstr("left"));
    EXPECT_THAT(RefusalOf({"track", "create", "1M", "--id", "1", "--dry-run"}),
                HasSubstr("exists"));
    EXPECT_THAT(client->ListTracks(), SizeIs(1));
}

TEST_F(ToolCreateTest, WrongArgumentsAreMisuse) {
    for (const std::vector<std::string>& wrong :
         std::vector<std::vector<std::string>>{{},
                                               {"much"},
                                               {"0"},
                                               {"1M", "2M"},
                                               {"1M", "--rate", "fast"},
                                               {"1M", "--rate", "0bit"},
                                               {"1M", "--id", "0"},
                                               {"1M", "-p", "x"},
                                               {"1M", "-p", "=x"},
                                               {"1M", "-p", "a=1", "-p", "a=2"},
                                               {"1M", "--retention", "none"},
                                               {"1M", "--no-wait", "-p", "a=b"}}) {
        std::vector<std::string> arguments{"track", "create"};
        arguments.insert(arguments.end(), wrong.begin(), wrong.end());
        EXPECT_THAT(RefusalOf(arguments, 2), HasSubstr("Try: brantel track create --help"));
    }
    EXPECT_THAT(client->ListTracks(), IsEmpty());
}

TEST_F(ToolCreateTest, ATrackWhosePropertiesAreRefusedIsDeletedAgain) {
    EXPECT_THAT(RefusalOf({"track", "create", "1M", "-p", "storage.nonsense=1", "-p", "a=b"}),
                AllOf(HasSubstr("storage.nonsense"), HasSubstr("; the track was deleted again\n")));
    EXPECT_THAT(client->ListTracks(), IsEmpty());
}

using ToolGrowTest = ToolTracksTest;

TEST_F(ToolGrowTest, ATrackGrowsToASizeOrByOne) {
    CreateTrack(*client, 1 << 20);
    OutputOf({"track", "grow", "1", "2MiB"});
    EXPECT_EQ(client->GetTrackSize(1), 2 << 20);
    OutputOf({"track", "grow", "1", "+2MiB"});
    EXPECT_EQ(client->GetTrackSize(1), 4 << 20);
}

TEST_F(ToolGrowTest, WhatCannotGrowStays) {
    CreateTrack(*client, 1 << 20);
    EXPECT_THAT(RefusalOf({"track", "grow", "1", "1k"}), HasSubstr("cannot shrink"));
    EXPECT_THAT(RefusalOf({"track", "grow", "2", "1M"}), HasSubstr("Track 2 does not exist"));
    EXPECT_THAT(RefusalOf({"track", "grow", "1", "+9223372036854775807"}, 2),
                HasSubstr("more than"));
    EXPECT_THAT(RefusalOf({"track", "grow", "1"}, 2), HasSubstr("SIZE is required"));
    EXPECT_THAT(OutputOf({"track", "grow", "1", "2M", "--dry-run"}), StartsWith("Would grow"));
    EXPECT_EQ(client->GetTrackSize(1), 1 << 20);
}

using ToolClearTest = ToolTracksTest;

TEST_F(ToolClearTest, ATrackIsEmptiedButForWhatIsProtected) {
    const long track = CreateTrack(*client);
    AppendThreeChunks(track);
    client->Protect(track, TimePoint::Nanoseconds(4 * second), TimePoint::Nanoseconds(5 * second));
    EXPECT_EQ(OutputOf({"track", "clear", "-y", "1"}),
              "Track 1 cleared; 1 chunks are protected and stay\n");
}

TEST_F(ToolClearTest, NothingHappensWithoutAgreement) {
    const long track = CreateTrack(*client);
    AppendThreeChunks(track);
    EXPECT_THAT(RefusalOf({"track", "clear", "1"}, 2), HasSubstr("give -y to agree"));
    EXPECT_THAT(RefusalOf({"track", "clear", "-y", "1", "2"}), HasSubstr("Track 2 does not exist"));
    EXPECT_THAT(OutputOf({"track", "clear", "--dry-run", "1"}),
                StartsWith("Would clear Track 1 (3 chunks"));
    EXPECT_EQ(client->GetBeginningOfTrack(track).ToNanoseconds(), second);
}

using ToolDeleteTest = ToolTracksTest;

TEST_F(ToolDeleteTest, TracksAreDeleted) {
    CreateTrack(*client);
    CreateTrack(*client);
    EXPECT_EQ(OutputOf({"track", "delete", "-y", "1", "2"}), "Track 1 deleted\nTrack 2 deleted\n");
    EXPECT_THAT(client->ListTracks(), IsEmpty());
}

TEST_F(ToolDeleteTest, NothingHappensWithoutAgreementOrWhileItIsHeld) {
    const long track = CreateTrack(*client);
    client->Protect(track, TimePoint::Nanoseconds(0), TimePoint::Nanoseconds(1));
    CreateTrack(*client);
    EXPECT_THAT(RefusalOf({"track", "delete", "2"}, 2), HasSubstr("give -y to agree"));
    EXPECT_THAT(RefusalOf({"track", "delete", "2", "5", "-y"}),
                HasSubstr("Track 5 does not exist"));
    EXPECT_THAT(OutputOf({"track", "delete", "2", "--dry-run"}),
                StartsWith("Would delete Track 2"));
    for (const char* const option : {"-y", "--dry-run"}) {
        EXPECT_EQ(RefusalOf({"track", "delete", "2", "1", option}),
                  "brantel: Track 1 has 1 protections and 0 open workers: nothing was deleted\n");
    }
    EXPECT_THAT(client->ListTracks(), SizeIs(2));
}

using ToolPropTest = ToolTracksTest;

TEST_F(ToolPropTest, PropertiesAreSetReadAndRemoved) {
    CreateTrack(*client);
    OutputOf({"prop", "set", "1", "camera=north", "info=a=b"});
    EXPECT_EQ(OutputOf({"prop", "get", "1", "info"}), "a=b\n");
    EXPECT_EQ(OutputOf({"prop", "get", "1"}), "key     value\ncamera  north\ninfo    a=b\n");
    OutputOf({"prop", "rm", "1", "info"});
    EXPECT_THAT(client->GetTrackProperties(1), SizeIs(1));
}

TEST_F(ToolPropTest, AValueIsPrintedByteForByte) {
    CreateTrack(*client);
    client->SetTrackProperties(1, {{"key", "\x1b\xff\n"}});
    EXPECT_EQ(OutputOf({"prop", "get", "1", "key"}), "\x1b\xff\n\n");
    EXPECT_EQ(OutputOf({"prop", "get", "1", "key", "-j"}),
              "{\"track\":1,\"key\":\"key\",\"valueBase64\":\"G/8K\"}\n");
    EXPECT_EQ(OutputOf({"prop", "get", "1"}), "key  value\nkey  \\x1b\\xff\\n\n");
}

TEST_F(ToolPropTest, WhatIsNotThereIsNamedAndNothingChanges) {
    CreateTrack(*client);
    client->SetTrackProperties(1, {{"a", "b"}});
    EXPECT_EQ(RefusalOf({"prop", "get", "1", "x"}), "brantel: Track 1 has no property x\n");
    EXPECT_EQ(RefusalOf({"prop", "rm", "1", "a", "x"}), "brantel: Track 1 has no property x\n");
    EXPECT_THAT(RefusalOf({"prop", "set", "1", "c=d", "storage.nonsense=1"}),
                HasSubstr("nonsense"));
    EXPECT_THAT(RefusalOf({"prop", "set", "1", "c"}, 2), HasSubstr("KEY=VALUE"));
    EXPECT_THAT(RefusalOf({"prop", "set", "1"}, 2), HasSubstr("required"));
    EXPECT_THAT(RefusalOf({"prop", "get", "2"}), HasSubstr("Track 2 does not exist"));
    EXPECT_THAT(RefusalOf({"prop"}, 2), HasSubstr("Try: brantel prop --help"));
    EXPECT_EQ(OutputOf({"prop", "set", "1", "a=c", "n=m", "--dry-run"}),
              "Would replace a\nWould add n\n");
    EXPECT_EQ(OutputOf({"prop", "rm", "1", "a", "--dry-run"}), "Would remove a\n");
    EXPECT_EQ(client->GetTrackProperties(1), (StorageClientX::Properties{{"a", "b"}}));
}

using ToolProtectTest = ToolTracksTest;

TEST_F(ToolProtectTest, ARangeIsProtectedListedAndReleased) {
    AppendThreeChunks(CreateTrack(*client));
    const ToolRun run = Run({"protect", "add", "1", "start..4s"});
    EXPECT_EQ(run.Errors(), "Range 1.000000000..4.000000000 (3s)\n");
    EXPECT_THAT(run.Output(), MatchesRegex("Protection [0-9]+\n"));
    const long id = client->ListProtections().at(0).handle;
    EXPECT_EQ(OutputOf({"protect", "ls", "-j"}),
              "{\"protection\":" + std::to_string(id) +
                  ",\"track\":1,\"from\":\"1.000000000\",\"to\":\"4.000000000\"}\n");
    OutputOf({"protect", "rm", "-y", std::to_string(id)});
    EXPECT_THAT(client->ListProtections(), IsEmpty());
}

TEST_F(ToolProtectTest, NothingIsReleasedWithoutAgreement) {
    CreateTrack(*client);
    const std::string id =
        std::to_string(client->Protect(1, TimePoint::Nanoseconds(0), TimePoint::Nanoseconds(9)));
    EXPECT_THAT(RefusalOf({"protect", "rm", id}, 2), HasSubstr("give -y to agree"));
    EXPECT_THAT(RefusalOf({"protect", "rm", "-y", id, "99"}),
                HasSubstr("Protection 99 does not exist"));
    EXPECT_THAT(OutputOf({"protect", "rm", "--dry-run", id}),
                StartsWith("Would remove protection"));
    EXPECT_THAT(client->ListProtections(), SizeIs(1));
}

TEST_F(ToolProtectTest, WrongRangesProtectNothing) {
    CreateTrack(*client);
    EXPECT_THAT(RefusalOf({"protect", "add", "1", "soon"}, 2), HasSubstr("Range soon"));
    EXPECT_THAT(RefusalOf({"protect", "add", "1", "start..end"}), HasSubstr("track is empty"));
    EXPECT_THAT(RefusalOf({"protect", "add", "1", "2s..1s"}, 2), HasSubstr("before it begins"));
    EXPECT_THAT(RefusalOf({"protect", "add", "1", "1969-01-01..1s"}, 2), HasSubstr("before zero"));
    EXPECT_THAT(RefusalOf({"protect", "add", "2", "1s..2s"}), HasSubstr("Track 2 does not exist"));
    EXPECT_THAT(OutputOf({"protect", "add", "1", "1s..2s", "--dry-run"}),
                StartsWith("Would protect"));
    EXPECT_THAT(client->ListProtections(), IsEmpty());
}

// Each object says that nothing was done, and what would be.
TEST_F(ToolTracksTest, ADryRunSpeaksJson) {
    AppendThreeChunks(CreateTrack(*client));
    client->SetTrackProperties(1, {{"a", "b"}});
    CreateTrack(*client);
    const std::string id =
        std::to_string(client->Protect(2, TimePoint::Nanoseconds(0), TimePoint::Nanoseconds(9)));
    const std::vector<std::pair<std::vector<std::string>, std::string>> expected{
        {{"track", "create", "1MiB"}, "{\"track\":0,\"capacity\":1048576,"},
        {{"track", "grow", "1", "1GiB"}, "{\"track\":1,\"capacity\":1073741824,"},
        {{"track", "clear", "1"}, "{\"track\":1,\"chunks\":3,\"size\":[0-9]+,"},
        {{"track", "delete", "1"}, "{\"track\":1,\"chunks\":3,\"size\":[0-9]+,"},
        {{"prop", "set", "1", "c=d"}, "{\"track\":1,\"key\":\"c\","},
        {{"prop", "rm", "1", "a"}, "{\"track\":1,\"key\":\"a\","},
        {{"protect", "add", "1", "1s..2s"},
         "{\"track\":1,\"from\":\"1.000000000\",\"to\":\"2.000000000\","},
        {{"protect", "rm", id}, "{\"protection\":" + id + ","}};
    for (auto [arguments, begin] : expected) {
        arguments.insert(arguments.end(), {"--dry-run", "-j"});
        begin.replace(0, 1, "\\{");
        EXPECT_THAT(OutputOf(arguments),
                    MatchesRegex(begin + "\"dryRun\":true,\"would\":\"[a-z]+ [^\n]+\"\\}\n"));
    }
    EXPECT_THAT(client->ListTracks(), SizeIs(2));
    EXPECT_EQ(client->GetTrackProperties(1), (StorageClientX::Properties{{"a", "b"}}));
    EXPECT_THAT(client->ListProtections(), SizeIs(1));
}

using ToolWorkerTest = ToolTracksTest;

TEST_F(ToolWorkerTest, ReadersAndWritersAreListed) {
    const long track = CreateTrack(*client);
    client->GetTrackWriter(track);
    server.ConnectOverTcp();
    client->GetTrackReader(track, 1);
    EXPECT_THAT(OutputOf({"worker", "ls", "-j"}),
                AllOf(HasSubstr("\"type\":\"writer\",\"track\":1"),
                      HasSubstr("\"type\":\"reader\",\"track\":1")));
    EXPECT_THAT(OutputOf({"worker", "ls"}), ContainsRegex("writer +1 "));
}

TEST_F(ToolWorkerTest, NobodyIsSaidInWords) {
    const ToolRun run = Run({"worker", "ls"});
    EXPECT_EQ(run.Output(), "");
    EXPECT_EQ(run.Errors(), "Nobody reads or writes\n");
    EXPECT_THAT(RefusalOf({"worker", "ls", "more"}, 2), HasSubstr("Try: brantel worker ls --help"));
}

using ToolFinishedCommandTest = ToolTracksTest;

TEST_F(ToolFinishedCommandTest, AFinishedCommandIsWatchedToItsEnd) {
    StorageClientX::TrackParameters wanted;
    wanted.size = 1 << 20;
    const std::string id = std::to_string(client->CreateTrack(wanted).commandId);
    EXPECT_EQ(OutputOf({"command", "watch", id}), "Command " + id + " finished\n");
    EXPECT_EQ(OutputOf({"command", "watch", id, "-j"}),
              "{\"command\":" + id + ",\"state\":\"finished\"}\n");
}

TEST_F(ToolFinishedCommandTest, AnUnknownCommandIsAFailure) {
    EXPECT_EQ(RefusalOf({"command", "watch", "99"}), "brantel: Command 99 does not exist\n");
    EXPECT_THAT(RefusalOf({"command", "watch", "x"}, 2), HasSubstr("x is not a whole number"));
}

TEST_F(ToolFinishedCommandTest, NothingUnderWayIsSaidInWords) {
    EXPECT_EQ(Run({"command", "ls"}).Errors(), "The server works on no command\n");
    EXPECT_EQ(Run({"command", "watch"}).Errors(), "The server works on no command\n");
}

}  // namespace
}  // namespace Brantel::Tests
