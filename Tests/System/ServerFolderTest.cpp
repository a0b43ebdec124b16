// A server whose tracks lie in a folder: what is there after a restart, and which folders it
// refuses.

#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::StorageClientX;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using Time::TimePoint;

class ServerFolderTest : public testing::Test {
  protected:
    void Start(const std::string& preparation = "allocate") {
        server.emplace(folder.File("storage.sock"), ServerProcess::OnFolder(data, preparation));
        client = server->ConnectOverUnix();
    }
    void Restart() {
        client.reset();
        ASSERT_EQ(server->Stop(), 0) << server->Process().Errors();
        Start();
    }
    void Kill() {
        server->Process().Signal(SIGKILL);
        server->Process().Wait();
        client.reset();
    }
    // What a server on this folder says when it ends at once.
    std::string RefusalOf(const std::string& path) const {
        ProgramRun run({ServerProcess::Program(), "--data", path, "--listen",
                        "unix:" + folder.File("refused.sock")});
        EXPECT_EQ(run.Wait(), 1) << run.Errors();
        EXPECT_EQ(run.Output(), "");
        return run.Errors();
    }
    static void WriteFile(const std::string& path, const std::string& text) {
        std::ofstream(path) << text;
    }
    static std::string ReadFile(const std::string& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    TemporaryFolder folder;
    const std::string data = folder.File("store");
    std::optional<ServerProcess> server;
    std::unique_ptr<StorageClientX> client;
};

TEST_F(ServerFolderTest, ChunksAreThereAfterARestart) {
    Start();
    const long track = CreateTrack(*client);
    AppendChunk(*client, track, 5, "five");
    AppendChunk(*client, track, 9, std::string(100'000, 'n'));
    Restart();
    EXPECT_EQ(ReadChunk(*client, track, 5), "five");
    EXPECT_EQ(ReadChunk(*client, track, 9), std::string(100'000, 'n'));
    EXPECT_EQ(ReadChunk(*client, track, 6), "not found");
    AppendChunk(*client, track, 10, "ten");
    EXPECT_EQ(ReadChunk(*client, track, 10), "ten");
}

TEST_F(ServerFolderTest, PropertiesAndProtectionsAreThereAfterARestart) {
    Start();
    const long track = CreateTrack(*client);
    AppendChunk(*client, track, 5, "five");
    const StorageClientX::Properties properties{{"camera", "north"}, {"storage.durability", "os"}};
    client->SetTrackProperties(track, properties);
    const long protection = client->Protect(track, TimePoint::Nanoseconds(5),  //
                                            TimePoint::Nanoseconds(8));
    Restart();
    EXPECT_EQ(client->GetTrackProperties(track), properties);
    const auto protections = client->ListProtections();
    ASSERT_EQ(protections.size(), 1U);
    EXPECT_EQ(protections.at(0).handle, protection);
    EXPECT_EQ(protections.at(0).tcIn, TimePoint::Nanoseconds(5));
    EXPECT_EQ(protections.at(0).tcOut, TimePoint::Nanoseconds(8));
    EXPECT_GT(client->Protect(track, TimePoint::Nanoseconds(1), TimePoint::Nanoseconds(9)),
              protection);
}

TEST_F(ServerFolderTest, EndedCommandsAndDeletedTracksAreRememberedAfterARestart) {
    Start();
    const long kept = CreateTrack(*client);
    const auto deletion = client->DeleteTrack(CreateTrack(*client));
    ASSERT_TRUE(Eventually([&] {
        return client->GetCommandInfo(deletion.commandId).type == StorageClientX::FINISHED;
    }));
    Restart();
    EXPECT_EQ(client->GetCommandInfo(deletion.commandId).type, StorageClientX::FINISHED);
    EXPECT_THAT(client->ListTracks(), ElementsAre(kept));
}

TEST_F(ServerFolderTest, ATrackThatIsBeingCreatedAtTheEndIsUndone) {
    // Large enough, and written, to be still in the making when the end is asked for.
    Start("write");
    const long kept = CreateTrack(*client);
    StorageClientX::TrackParameters wanted;
    wanted.size = 2L << 30U;
    const auto created = client->CreateTrack(wanted);
    Restart();
    EXPECT_EQ(client->GetCommandInfo(created.commandId).type, StorageClientX::CANCELED);
    EXPECT_THAT(client->ListTracks(), ElementsAre(kept));
}

TEST_F(ServerFolderTest, WhatWasAnsweredSurvivesTheKillOfTheServerInEveryMode) {
    Start();
    std::vector<long> tracks;
    for (const std::string mode : {"always", "interval:1000ms", "os"}) {
        tracks.push_back(CreateTrack(*client));
        client->SetTrackProperties(tracks.back(), {{"storage.durability", mode}});
        AppendChunk(*client, tracks.back(), 1, mode);
    }
    Kill();
    Start();
    EXPECT_EQ(ReadChunk(*client, tracks.at(0), 1), "always");
    EXPECT_EQ(ReadChunk(*client, tracks.at(1), 1), "interval:1000ms");
    EXPECT_EQ(ReadChunk(*client, tracks.at(2), 1), "os");
}

TEST_F(ServerFolderTest, TheFolderIsMadeForItsOwnerAlone) {
    Start();
    EXPECT_EQ(std::filesystem::status(data).permissions(), std::filesystem::perms::owner_all);
}

TEST_F(ServerFolderTest, ASecondServerOnTheFolderIsRefusedAndTheFirstGoesOn) {
    Start();
    const long track = CreateTrack(*client);
    EXPECT_THAT(RefusalOf(data), HasSubstr(data + ": is in use by another server, process " +
                                           std::to_string(server->Process().Id())));
    AppendChunk(*client, track, 1, "still served");
    EXPECT_EQ(ReadChunk(*client, track, 1), "still served");
}

TEST_F(ServerFolderTest, TheFolderOfAKilledServerIsTakenOver) {
    Start();
    Kill();
    Start();
    EXPECT_EQ(CreateTrack(*client), 1);
}

TEST_F(ServerFolderTest, AFolderWhoseParentIsMissingIsRefused) {
    const std::string path = folder.File("nowhere/store");
    EXPECT_THAT(RefusalOf(path), AllOf(HasSubstr(path), HasSubstr("No such file or directory")));
}

TEST_F(ServerFolderTest, AFolderThatHoldsSomethingElseIsRefusedAndLeftAsItIs) {
    std::filesystem::create_directory(data);
    WriteFile(data + "/letter.txt", "precious");
    EXPECT_THAT(RefusalOf(data), HasSubstr("is neither empty nor a store: it holds letter.txt"));
    EXPECT_EQ(ReadFile(data + "/letter.txt"), "precious");
    EXPECT_FALSE(std::filesystem::exists(data + "/tracks"));
}

TEST_F(ServerFolderTest, AFileInPlaceOfTheFolderIsRefused) {
    WriteFile(data, "precious");
    EXPECT_THAT(RefusalOf(data), HasSubstr(data + ": is not a folder"));
    EXPECT_EQ(ReadFile(data), "precious");
}

TEST_F(ServerFolderTest, ASymbolicLinkInPlaceOfTheFolderIsRefused) {
    Start();
    ASSERT_EQ(server->Stop(), 0);
    const std::string link = folder.File("link");
    std::filesystem::create_directory_symlink(data, link);
    EXPECT_THAT(RefusalOf(link), HasSubstr(link + ": is a symbolic link; name the store itself"));
}

TEST_F(ServerFolderTest, AStoreOfANewerVersionIsRefusedAndLeftAsItIs) {
    Start();
    ASSERT_EQ(server->Stop(), 0);
    // Where an SQLite database has its user_version, big-endian.
    constexpr std::streamoff place = 60;
    const std::string path = data + "/catalogue.sqlite";
    {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(place);
        file.write("\0\0\0\2", 4);
    }
    const std::string before = ReadFile(path);
    EXPECT_THAT(RefusalOf(data), HasSubstr(path + ": has format version 2, this program knows up "
                                                  "to 1"));
    EXPECT_EQ(ReadFile(path), before);
}

TEST_F(ServerFolderTest, AFolderOfSomebodyElseIsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "SKIPPED: only root can give a folder to somebody else";
    }
    Start();
    ASSERT_EQ(server->Stop(), 0);
    constexpr uid_t other = 4711;
    ASSERT_EQ(chown(data.c_str(), other, static_cast<gid_t>(-1)), 0);
    EXPECT_THAT(RefusalOf(data), HasSubstr(data + ": belongs to user 4711, this server runs as "
                                                  "user 0"));
}

TEST_F(ServerFolderTest, AFolderThatCannotBeWrittenIsRefused) {
    EXPECT_THAT(RefusalOf("/proc/store"), HasSubstr("/proc/store: making the folder failed"));
}

}  // namespace
}  // namespace Brantel::Tests
