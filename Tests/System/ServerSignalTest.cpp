// Signals that come while a server is busy with something else than serving.

#include "HeldFile.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using ProtocolX::StorageClientX;
using testing::HasSubstr;

// A server that waits in the middle of opening a store with one chunk, until Release.
class ServerSignalTest : public testing::Test {
  protected:
    // False: this file system can't make it wait.
    bool StartOpening(const std::vector<std::pair<std::string, std::string>>& environment = {}) {
        {
            const ServerProcess first(socketPath, onFolder);
            const auto client = first.ConnectOverUnix();
            AppendChunk(*client, CreateTrack(*client), 1, "kept");
        }
        held = std::make_unique<HeldFile>(folder.File("store/FORMAT"));
        std::ofstream(settings).close();
        std::vector<std::string> command = {
            ServerProcess::Program(), "--config", settings, "--http", "127.0.0.1:0", "--listen",
            "unix:" + socketPath};
        command.insert(command.end(), onFolder.begin(), onFolder.end());
        server = std::make_unique<ProgramRun>(command, environment);
        return held->IsHeld() && Says("Health and metrics");
    }
    bool Says(const std::string& text) const {
        return Eventually([&] { return server->Errors().find(text) != std::string::npos; });
    }

    TemporaryFolder folder;
    const std::string socketPath = folder.File("storage.sock");
    const std::string settings = folder.File("storage.toml");
    const std::vector<std::string> onFolder = ServerProcess::OnFolder(folder.File("store"));
    std::unique_ptr<HeldFile> held;
    std::unique_ptr<ProgramRun> server;
};

TEST_F(ServerSignalTest, WhileTheStoreIsOpenedTheEndComesAtOnce) {
    for (const int signal : {SIGTERM, SIGINT}) {
        if (!StartOpening()) {
            GTEST_SKIP() << "SKIPPED: the file system of the temporary folder has no leases";
        }
        server->Signal(signal);
        EXPECT_EQ(server->Wait(ServerProcess::endLimit), 0) << server->Errors();
        EXPECT_THAT(server->Errors(), HasSubstr("info: Stopped before the tracks were open\n"));
        held.reset();
        const ServerProcess again(socketPath, onFolder);
        EXPECT_EQ(ReadChunk(*again.ConnectOverUnix(), 1, 1), "kept");
        std::filesystem::remove_all(folder.File("store"));
    }
}

TEST_F(ServerSignalTest, SettingsThatAreReadAgainWhileTheStoreIsOpenedAreTakenOverAfterwards) {
    if (!StartOpening()) {
        GTEST_SKIP() << "SKIPPED: the file system of the temporary folder has no leases";
    }
    std::ofstream(settings) << "log-level = 'debug'\n";
    server->Signal(SIGHUP);
    held.reset();
    EXPECT_TRUE(Says("log-level is now \"debug\", was \"info\"")) << server->Errors();
    StorageClientX client;
    ASSERT_TRUE(client.ConnectToSlave(socketPath));
    EXPECT_EQ(ReadChunk(client, 1, 1), "kept");
}

TEST_F(ServerSignalTest, WhatHangsWhenTheEndIsAskedForIsLeftAsItIs) {
    const std::string file = folder.File("settings");
    std::ofstream(file).close();
    ServerProcess hanging(socketPath, {"--config", file});
    const auto client = hanging.ConnectOverUnix();
    CreateTrack(*client);
    ASSERT_EQ(unlink(file.c_str()) + mkfifo(file.c_str(), 0600), 0);
    hanging.Process().Signal(SIGHUP);
    // Reading the settings has begun when the pipe can be written to; nothing ever comes.
    int pipe = -1;
    ASSERT_TRUE(Eventually([&] {
        pipe = open(file.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        return pipe >= 0;
    }));
    EXPECT_EQ(client->ListTracks().size(), 1U);
    EXPECT_EQ(hanging.Stop(), 1);
    EXPECT_THAT(hanging.Process().Errors(), HasSubstr("error: Not everything has ended in time"));
    close(pipe);
}

}  // namespace
}  // namespace Brantel::Tests
