// A client and a server in another process, over real sockets.
#include "Support/ChildProcess.h"
#include "Support/StorageProcess.h"
#include "Support/TemporaryFolder.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/StorageClientX.h>
#include <libServices/SocketDisconnected.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <vector>

namespace Brantel::ProtocolX {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;
using testing::StartsWith;
using Tests::ChildProcess;
using Tests::StorageProcess;
using Time::TimePoint;

enum class Transport { Unix, Tcp };

class StorageClientXServerTest : public testing::TestWithParam<Transport> {
  protected:
    std::unique_ptr<StorageClientX> Connect() const {
        auto connected = std::make_unique<StorageClientX>();
        const bool done = GetParam() == Transport::Unix
                              ? connected->ConnectToSlave(server.Path())
                              : connected->ConnectToSlave("127.0.0.1", server.Port(), 60000);
        if (!done) {
            throw std::runtime_error("not connected");
        }
        return connected;
    }

    StorageProcess server;
};

TEST_P(StorageClientXServerTest, AsksTheStorage) {
    const auto client = Connect();
    EXPECT_TRUE(client->Connected());
    EXPECT_EQ(client->GetTrackSize(7), 52);
    EXPECT_THAT(client->ListTracks(), ElementsAre(91, 92));
    EXPECT_EQ(client->GetEndOfTrack(7), TimePoint::Nanoseconds(76));
    EXPECT_EQ(client->CreateTrack({1, 2, 3}).commandId, 63);
}

TEST_P(StorageClientXServerTest, ReadsAndWritesChunksWithZeroBytes) {
    const auto client = Connect();
    DataChunk chunk;
    IStorageReaderX* reader = client->GetTrackReader(7, 1);
    EXPECT_TRUE(reader->GetNextChunk(chunk, reader->FirstTimePoint(), {"image"}));
    EXPECT_EQ(chunk.GetProperty("codec"), std::string("jp\0eg", 5));
    EXPECT_EQ(chunk.GetData("image"), std::string("\0\xFF"
                                                  "b",
                                                  3));
    IStorageWriterX* writer = client->GetTrackWriter(7);
    writer->Append(chunk);
    EXPECT_EQ(reader->GetTrackId(), 55);
    EXPECT_EQ(writer->GetTrackId(), 56);
}

TEST_P(StorageClientXServerTest, ReconnectsWithReadersAndWritersOpen) {
    const auto client = Connect();
    client->GetTrackReader(7, 1);
    client->GetTrackWriter(7);
    testing::internal::CaptureStdout();
    EXPECT_TRUE(client->ConnectToSlave(server.Path()));
    EXPECT_EQ(client->GetTrackReader(7, 1)->GetTrackId(), 0);
    client->CloseTrackReader(7, 1);
    EXPECT_EQ(client->GetTrackReader(7, 1)->GetTrackId(), 55);
    client->Disconnect();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_P(StorageClientXServerTest, EveryCallAfterTheServerDiedSaysSo) {
    const auto client = Connect();
    IStorageReaderX* reader = client->GetTrackReader(7, 1);
    IStorageWriterX* writer = client->GetTrackWriter(7);
    server.Kill();
    DataChunk chunk;
    EXPECT_THROW(client->ListTracks(), SocketDisconnected);
    EXPECT_THROW(client->ListTracks(), SocketDisconnected);
    EXPECT_THROW(reader->FirstTimePoint(), SocketDisconnected);
    EXPECT_THROW(reader->GetChunk(chunk, TimePoint(), {}), SocketDisconnected);
    EXPECT_THROW(writer->Append(chunk), SocketDisconnected);
    EXPECT_THROW(client->GetTrackReader(8, 1), SocketDisconnected);
    EXPECT_FALSE(client->IsReader(8, 1));
    EXPECT_TRUE(client->Connected());
    testing::internal::CaptureStdout();
    client->Disconnect();
    EXPECT_THAT(testing::internal::GetCapturedStdout(), StartsWith("Storage seems disconnected: "));
}

TEST_P(StorageClientXServerTest,
       DestroyingAClientWithThreeReadersAfterTheServerDiedPrintsThreeLines) {
    const Tests::TemporaryFolder folder;
    const std::string output = folder.File("output");
    ChildProcess application([&](int channel) {
        if (std::freopen(output.c_str(), "w", stdout) == nullptr) {
            return 1;
        }
        auto client = Connect();
        for (long readerId = 1; readerId <= 3; ++readerId) {
            client->GetTrackReader(7, readerId);
        }
        ChildProcess::Say(channel);
        ChildProcess::Hear(channel);
        client.reset();
        return 0;
    });
    ASSERT_TRUE(application.Hear());
    server.Kill();
    ASSERT_TRUE(application.Say());
    EXPECT_EQ(application.Wait(), 0);
    std::ifstream file(output);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    EXPECT_THAT(lines, SizeIs(3));
    EXPECT_THAT(lines, Each(StartsWith("Storage seems disconnected: ")));
}

INSTANTIATE_TEST_SUITE_P(Both, StorageClientXServerTest,
                         testing::Values(Transport::Unix, Transport::Tcp), [](const auto& test) {
                             return test.param == Transport::Unix ? "Unix" : "Tcp";
                         });

}  // namespace
}  // namespace Brantel::ProtocolX
