// Stores that are damaged on the disk: what the check says of them, what a recovery saves, and what
// a server still serves.

#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"

#include <libProtocolX/DataChunk.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::StorageClientX;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Time::TimePoint;

constexpr int clean = 0;
constexpr int failed = 1;
constexpr int damaged = 3;

class StoreJobTest : public testing::Test {
  protected:
    void Start(const std::string& store) {
        server.emplace(folder.File("storage.sock"), ServerProcess::OnFolder(store));
        client = server->ConnectOverUnix();
    }
    void Start() { Start(data); }
    void Stop() {
        client.reset();
        ASSERT_EQ(server->Stop(), 0) << server->Process().Errors();
    }
    // A track with a chunk at each time point, whose data begin with "chunk <time point>;".
    long Record(const std::vector<long>& timePoints, std::size_t size = 5000) {
        const long track = CreateTrack(*client);
        Append(track, timePoints, size);
        return track;
    }
    void Append(long track, const std::vector<long>& timePoints, std::size_t size = 5000) {
        for (const long timePoint : timePoints) {
            AppendChunk(*client, track, timePoint, TextOf(timePoint, size));
        }
    }
    static std::string MarkOf(long timePoint) { return "chunk " + std::to_string(timePoint) + ";"; }
    static std::string TextOf(long timePoint, std::size_t size = 5000) {
        return MarkOf(timePoint) + std::string(size, static_cast<char>(timePoint));
    }
    // Its exit code.
    int Job(const std::vector<std::string>& arguments) {
        std::vector<std::string> command = {ServerProcess::Program()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ProgramRun run(command);
        const int code = run.Wait();
        said = run.Output();
        errors = run.Errors();
        return code;
    }
    int Check() { return Job({"check", data}); }
    int Recover() { return Job({"recover", data, recovered}); }

    static std::string ReadFile(const std::string& path) {
        std::string bytes(std::filesystem::file_size(path), '\0');
        std::ifstream(path, std::ios::binary)
            .read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return bytes;
    }
    // The segment file in which the mark lies, and the place of it there.
    std::pair<std::string, std::size_t> Find(const std::string& mark) const {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(data + "/tracks")) {
            if (entry.is_regular_file()) {
                const std::size_t place = ReadFile(entry.path().string()).find(mark);
                if (place != std::string::npos) {
                    return {entry.path().string(), place};
                }
            }
        }
        throw std::runtime_error("no file holds " + mark);
    }
    // Flips one bit in the data of a chunk; its file.
    std::string Damage(long timePoint) const {
        const auto [path, place] = Find(MarkOf(timePoint));
        Overwrite(path, place, std::string(1, 'C'));
        return path;
    }
    static void Overwrite(const std::string& path, std::size_t place, const std::string& bytes) {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(place));
        file << bytes;
        if (!file.flush()) {
            throw std::runtime_error("can't write " + path);
        }
    }
    void RemoveCatalogue(bool withCopy) const {
        for (const char* name : {"/catalogue.sqlite", "/catalogue.sqlite-wal"}) {
            std::filesystem::remove(data + name);
        }
        if (withCopy) {
            std::filesystem::remove(data + "/catalogue.copy.sqlite");
        }
    }
    std::map<std::string, std::string> Contents() const {
        std::map<std::string, std::string> contents;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(data)) {
            contents[entry.path().string()] =
                entry.is_regular_file() ? ReadFile(entry.path().string()) : "folder";
        }
        return contents;
    }

    TemporaryFolder folder;
    const std::string data = folder.File("store");
    const std::string recovered = folder.File("recovered");
    std::optional<ServerProcess> server;
    std::unique_ptr<StorageClientX> client;
    std::string said;
    std::string errors;
};

TEST_F(StoreJobTest, AWholeStoreIsClean) {
    Start();
    Record({10, 20, 30});
    CreateTrack(*client);
    Stop();
    EXPECT_EQ(Check(), clean) << said << errors;
    EXPECT_EQ(said, data + ": 2 tracks, 1 segments, 3 chunks: all is whole\n");
    EXPECT_EQ(errors, "");
}

TEST_F(StoreJobTest, TheStoreOfAKilledServerIsClean) {
    Start();
    Record({10, 20, 30});
    client.reset();
    server->Process().Signal(SIGKILL);
    server->Process().Wait();
    EXPECT_EQ(Check(), clean) << said << errors;
    EXPECT_THAT(said, EndsWith(" 3 chunks: all is whole\n"));
}

TEST_F(StoreJobTest, ADamagedChunkIsListedByTrackTimePointFileAndOffset) {
    Start();
    const long track = Record({10, 20, 30});
    Stop();
    const std::string path = Damage(10);
    EXPECT_EQ(Check(), damaged) << errors;
    EXPECT_THAT(said, AllOf(StartsWith("Track " + std::to_string(track) +
                                       ": the chunk at time point 10 is damaged: " + path),
                            HasSubstr(": chunk at 4096: the checksum of part 1, 5009 bytes, is "
                                      "wrong\n"),
                            EndsWith(" 3 chunks: 1 findings\n")));
}

TEST_F(StoreJobTest, EveryDamagedChunkIsListed) {
    Start();
    const long first = Record({1, 2, 3});
    const long second = Record({4, 5, 6});
    Stop();
    Damage(2);
    Damage(4);
    Damage(6);
    EXPECT_EQ(Check(), damaged) << errors;
    EXPECT_THAT(said, HasSubstr("Track " + std::to_string(first) + ": the chunk at time point 2 "));
    EXPECT_THAT(said,
                HasSubstr("Track " + std::to_string(second) + ": the chunk at time point 4 "));
    EXPECT_THAT(said,
                HasSubstr("Track " + std::to_string(second) + ": the chunk at time point 6 "));
    EXPECT_THAT(said, EndsWith(" 6 chunks: 3 findings\n"));
}

TEST_F(StoreJobTest, AChunkThatWasRecycledIsNobodysLoss) {
    Start();
    const long track = CreateTrack(*client, 20'000);  // three of the chunks
    Append(track, {1, 2, 3, 4});
    ASSERT_EQ(TimesOf(*client, track), (std::vector<long>{2, 3, 4}));
    Stop();
    Damage(1);
    EXPECT_EQ(Check(), clean) << said << errors;
}

TEST_F(StoreJobTest, AFileThatIsMissingIsNoticed) {
    Start();
    const long track = CreateTrack(*client);
    std::vector<long> times;
    for (long time = 1; time <= 40; ++time) {
        times.push_back(time);
    }
    Append(track, times, 100'000);
    Stop();
    std::filesystem::remove(Find(MarkOf(15)).first);
    EXPECT_EQ(Check(), damaged) << errors;
    EXPECT_THAT(said, HasSubstr("/tracks/1: 1 of "));
    EXPECT_THAT(said, HasSubstr(" segment files are missing\n"));
    EXPECT_THAT(said, HasSubstr(" chunks are missing after " + data));
}

TEST_F(StoreJobTest, TheCheckChangesNothing) {
    Start();
    Record({10, 20, 30});
    client.reset();
    server->Process().Signal(SIGKILL);
    server->Process().Wait();
    Damage(20);
    Overwrite(data + "/catalogue.sqlite", 0, "rubbish");
    const auto before = Contents();
    EXPECT_EQ(Check(), damaged) << said << errors;
    EXPECT_THAT(said, HasSubstr(data + "/catalogue.sqlite: "));
    EXPECT_EQ(Contents(), before);
}

TEST_F(StoreJobTest, ADamagedCopyOfTheCatalogueIsNoticed) {
    Start();
    Record({10});
    Stop();
    Overwrite(data + "/catalogue.copy.sqlite", 0, "rubbish");
    EXPECT_EQ(Check(), damaged) << errors;
    EXPECT_THAT(said, HasSubstr(data + "/catalogue.copy.sqlite: "));
}

TEST_F(StoreJobTest, AStoreThatIsServedIsRefused) {
    Start();
    const std::string holder =
        "in use by another server, process " + std::to_string(server->Process().Id());
    EXPECT_EQ(Check(), failed);
    EXPECT_THAT(errors, HasSubstr(data + ": is " + holder));
    EXPECT_EQ(Recover(), failed);
    EXPECT_THAT(errors, HasSubstr(holder));
    EXPECT_FALSE(std::filesystem::exists(recovered));
}

TEST_F(StoreJobTest, WhatIsNoStoreIsRefusedAndLeftAsItIs) {
    EXPECT_EQ(Check(), failed);
    EXPECT_THAT(errors, HasSubstr(data + ": does not exist"));
    std::filesystem::create_directory(data);
    EXPECT_EQ(Check(), failed);
    EXPECT_THAT(errors, HasSubstr(data + ": is no store"));
    EXPECT_TRUE(std::filesystem::is_empty(data));
}

TEST_F(StoreJobTest, ARecoveryCopiesEverythingThatIsWhole) {
    Start();
    const long track = Record({10, 20, 30});
    const StorageClientX::Properties properties{{"camera", "north"},
                                                {"storage.durability", "interval:50ms"}};
    client->SetTrackProperties(track, properties);
    const long protection =
        client->Protect(track, TimePoint::Nanoseconds(30), TimePoint::Nanoseconds(35));
    const long size = client->GetTrackSize(track);
    Stop();
    Damage(20);
    const auto before = Contents();
    EXPECT_EQ(Recover(), damaged) << said << errors;
    EXPECT_THAT(said, HasSubstr("Track 1: the chunk at 20 is damaged, in " + data));
    EXPECT_THAT(said, HasSubstr(": 2 chunks of 1 tracks, 10018 bytes, copied to " + recovered +
                                "; 1 left out: 1 findings\n"));
    EXPECT_EQ(Contents(), before);

    Start(recovered);
    EXPECT_EQ(TimesOf(*client, track), (std::vector<long>{10, 30}));
    EXPECT_EQ(ReadChunk(*client, track, 10), TextOf(10));
    EXPECT_EQ(ReadChunk(*client, track, 30), TextOf(30));
    EXPECT_EQ(client->GetTrackProperties(track), properties);
    EXPECT_EQ(client->GetTrackSize(track), size);
    ASSERT_EQ(client->ListProtections().size(), 1U);
    EXPECT_EQ(client->ListProtections().at(0).handle, protection);
    Append(track, {40});
    EXPECT_EQ(ReadChunk(*client, track, 40), TextOf(40));
    Stop();
    EXPECT_THAT(
        server->Process().Errors(),
        AllOf(HasSubstr(" info: "), Not(HasSubstr(" warning: ")), Not(HasSubstr(" error: "))));
}

TEST_F(StoreJobTest, ARecoveredStoreIsClean) {
    Start();
    Record({10, 20, 30});
    CreateTrack(*client);
    Stop();
    Damage(10);
    ASSERT_EQ(Recover(), damaged) << errors;
    EXPECT_EQ(Job({"check", recovered}), clean) << said << errors;
    EXPECT_THAT(said, HasSubstr(": 2 tracks, "));
    EXPECT_THAT(said, EndsWith(" 2 chunks: all is whole\n"));
}

TEST_F(StoreJobTest, ATrackThatIsFullIsRecoveredWhole) {
    Start();
    const long track = CreateTrack(*client);
    std::vector<long> times;
    for (long time = 1; time <= 60; ++time) {
        times.push_back(time);
    }
    Append(track, times, 450'000);
    client->Protect(track, TimePoint::Nanoseconds(30), TimePoint::Nanoseconds(33));
    for (long& time : times) {
        time += 60;
    }
    Append(track, times, 450'000);
    const std::vector<long> held = TimesOf(*client, track);
    ASSERT_EQ(held.front(), 30);
    Stop();
    EXPECT_EQ(Recover(), clean) << said << errors;
    Start(recovered);
    EXPECT_EQ(TimesOf(*client, track), held);
    for (const long time : held) {
        ASSERT_EQ(ReadChunk(*client, track, time), TextOf(time, 450'000)) << time;
    }
    Append(track, {1000, 1001, 1002}, 450'000);
    EXPECT_EQ(TimesOf(*client, track).front(), 30);
}

TEST_F(StoreJobTest, ARecoveryIntoAFolderThatHoldsSomethingIsRefused) {
    Start();
    Record({10});
    Stop();
    std::filesystem::create_directory(recovered);
    std::ofstream(recovered + "/letter.txt") << "precious";
    EXPECT_EQ(Recover(), failed);
    EXPECT_THAT(errors, HasSubstr(recovered + ": is not empty"));
    EXPECT_EQ(ReadFile(recovered + "/letter.txt"), "precious");
    EXPECT_EQ(Job({"recover", data, data}), failed);
    EXPECT_EQ(Job({"recover", data, data + "/tracks/new"}), failed);
    EXPECT_THAT(errors, HasSubstr("lies within the store"));
}

TEST_F(StoreJobTest, AnEmptyFolderTakesARecovery) {
    Start();
    const long track = Record({10});
    Stop();
    std::filesystem::create_directory(recovered);
    EXPECT_EQ(Recover(), clean) << said << errors;
    Start(recovered);
    EXPECT_EQ(TimesOf(*client, track), (std::vector<long>{10}));
}

TEST_F(StoreJobTest, ALostCatalogueIsRestoredFromItsCopyAndServed) {
    Start();
    const long track = Record({10, 20});
    client->SetTrackProperties(track, {{"camera", "north"}});
    Stop();
    RemoveCatalogue(false);
    EXPECT_EQ(Check(), damaged) << errors;
    EXPECT_THAT(said, HasSubstr(data + "/catalogue.sqlite: is missing\n"));
    Start();
    EXPECT_EQ(TimesOf(*client, track), (std::vector<long>{10, 20}));
    EXPECT_EQ(client->GetTrackProperties(track).at("camera"), "north");
    EXPECT_THAT(server->Process().Errors(),
                HasSubstr("restored from " + data + "/catalogue.copy.sqlite"));
    Append(track, {30});
    EXPECT_EQ(ReadChunk(*client, track, 30), TextOf(30));
}

TEST_F(StoreJobTest, ACatalogueOlderThanTheTracksIsStillServed) {
    Start();
    const long track = Record({10});
    Stop();
    std::filesystem::copy(data + "/catalogue.copy.sqlite", folder.File("old.sqlite"));
    for (long time = 20; time < 50; time += 10) {
        Start();
        Append(track, {time});
        Stop();
    }
    RemoveCatalogue(true);
    std::filesystem::copy(folder.File("old.sqlite"), data + "/catalogue.copy.sqlite");
    Start();
    EXPECT_EQ(TimesOf(*client, track), (std::vector<long>{10, 20, 30, 40}));
    Append(track, {50});
    EXPECT_EQ(ReadChunk(*client, track, 50), TextOf(50));
}

TEST_F(StoreJobTest, WithoutAnyCatalogueTheTracksAreFoundInTheirSegmentsAndWhatIsLostIsNamed) {
    Start();
    const long track = Record({10, 20});
    const long size = client->GetTrackSize(track);
    client->SetTrackProperties(track, {{"camera", "north"}});
    Stop();
    RemoveCatalogue(true);
    Start();
    EXPECT_EQ(TimesOf(*client, track), (std::vector<long>{10, 20}));
    EXPECT_EQ(ReadChunk(*client, track, 20), TextOf(20));
    EXPECT_GE(client->GetTrackSize(track), size);
    const StorageClientX::Properties standIn{{"storage.retention", "stop"}};
    EXPECT_EQ(client->GetTrackProperties(track), standIn);
    const std::string log = server->Process().Errors();
    EXPECT_THAT(log, HasSubstr("begins empty, all records are lost"));
    EXPECT_THAT(log, HasSubstr("Track 1: its record is lost and was made again"));
    EXPECT_THAT(log, HasSubstr("Track 1: its properties are lost"));
    Append(track, {30});
    EXPECT_GT(client->Protect(track, TimePoint::Nanoseconds(1), TimePoint::Nanoseconds(50)), 1000);
    EXPECT_NE(CreateTrack(*client), track);
}

TEST_F(StoreJobTest, WithoutAnyCatalogueWhatWasHeldStaysHeld) {
    Start();
    const long track = CreateTrack(*client);
    std::vector<long> times;
    for (long time = 1; time <= 60; ++time) {
        times.push_back(time);
    }
    Append(track, {times.begin(), times.begin() + 10}, 450'000);
    client->Protect(track, TimePoint::Nanoseconds(3), TimePoint::Nanoseconds(5));
    Append(track, {times.begin() + 10, times.end()}, 450'000);
    ASSERT_EQ(TimesOf(*client, track).at(0), 3);
    Stop();
    RemoveCatalogue(true);
    ASSERT_EQ(Recover(), damaged) << errors;
    EXPECT_THAT(said, HasSubstr("stands in for lost ones, whose chunks lie from 3 to 5"));
    Start(recovered);
    client->SetTrackProperties(track, {{"storage.retention", "loop"}});
    for (long& time : times) {
        time += 100;
    }
    Append(track, times, 450'000);
    EXPECT_EQ(TimesOf(*client, track).at(0), 3);
    EXPECT_EQ(ReadChunk(*client, track, 4), TextOf(4, 450'000));
}

}  // namespace
}  // namespace Brantel::Tests
