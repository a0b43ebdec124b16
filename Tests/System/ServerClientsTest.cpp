// What clients of a running server get, beside each other and when one of them vanishes.

#include "Support/ChildProcess.h"
#include "Support/Refusal.h"
#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "Support/Waiting.h"

#include <libProtocolX/IStorageReaderX.h>
#include <libServices/SocketDisconnected.h>
#include <libServices/UnixDomainConnection.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/socket.h>

#include <stdexcept>
#include <string>
#include <thread>

namespace Brantel::Tests {
namespace {

using ProtocolX::StorageClientX;
using testing::HasSubstr;

class ServerClientsTest : public testing::Test {
  protected:
    static std::string TextOf(long chunk) {
        return "chunk " + std::to_string(chunk) + std::string(1000, static_cast<char>(chunk));
    }
    static void Write(StorageClientX& client, long track, long count) {
        for (long i = 0; i < count; ++i) {
            AppendChunk(client, track, i, TextOf(i));
        }
    }
    static long CountEqual(StorageClientX& client, long track, long count) {
        long equal = 0;
        for (long i = 0; i < count; ++i) {
            equal += ReadChunk(client, track, i) == TextOf(i) ? 1 : 0;
        }
        return equal;
    }

    TemporaryFolder folder;
    const std::string socketPath = folder.File("storage.sock");
};

TEST_F(ServerClientsTest, WhatIsWrittenOverOneTransportIsReadOverTheOther) {
    const ServerProcess server(socketPath);
    const auto writing = server.ConnectOverUnix();
    const auto reading = server.ConnectOverTcp();
    const long track = CreateTrack(*writing);
    for (long i = 0; i < 20; ++i) {
        AppendChunk(*writing, track, i, TextOf(i));
        EXPECT_EQ(ReadChunk(*reading, track, i), TextOf(i));
    }
}

TEST_F(ServerClientsTest, ClientsOnBothTransportsWorkAtOnce) {
    constexpr long count = 200;
    const ServerProcess server(socketPath);
    long equalOverUnix = 0;
    long equalOverTcp = 0;
    const auto writeAndRead = [](StorageClientX& client, long& equal) {
        const long track = CreateTrack(client);
        Write(client, track, count);
        equal = CountEqual(client, track, count);
    };
    std::thread other([&] { writeAndRead(*server.ConnectOverUnix(), equalOverUnix); });
    writeAndRead(*server.ConnectOverTcp(), equalOverTcp);
    other.join();
    EXPECT_EQ(equalOverUnix, count);
    EXPECT_EQ(equalOverTcp, count);
}

TEST_F(ServerClientsTest, AWorkerKnowsItsConnectionAndItsAddress) {
    const ServerProcess server(socketPath);
    const auto overUnix = server.ConnectOverUnix();
    const auto overTcp = server.ConnectOverTcp();
    const long track = CreateTrack(*overUnix);
    AppendChunk(*overUnix, track, 1, "a");
    ReadChunk(*overTcp, track, 1);
    const auto workers = overTcp->GetWorkerIds();
    ASSERT_EQ(workers.size(), 2U);
    const auto infos = overTcp->GetWorkerInfos({workers.at(0).first, workers.at(1).first});
    EXPECT_EQ(infos.at(0).type, StorageClientX::WRITER);
    EXPECT_EQ(infos.at(0).clientIpV4Address, "");
    EXPECT_EQ(infos.at(1).type, StorageClientX::READER);
    EXPECT_EQ(infos.at(1).clientIpV4Address, "127.0.0.1");
    EXPECT_NE(infos.at(0).connectionId, infos.at(1).connectionId);
}

TEST_F(ServerClientsTest, AKilledClientGivesItsWriterAndItsWorkersBack) {
    // Forked before this process has a thread; it is told the track by being the first to create
    // one.
    ChildProcess client([this](int channel) {
        ChildProcess::Hear(channel);
        StorageClientX storage;
        storage.ConnectToSlave(socketPath);
        const long track = CreateTrack(storage);
        AppendChunk(storage, track, 1, "from the client that is killed");
        ReadChunk(storage, track, 1);
        ChildProcess::Say(channel);
        ChildProcess::Hear(channel);
        return 0;
    });
    const ServerProcess server(socketPath);
    ASSERT_TRUE(client.Say() && client.Hear());
    const auto other = server.ConnectOverTcp();
    ASSERT_EQ(other->GetWorkerIds().size(), 2U);
    EXPECT_THAT(RefusalOf([&] { other->GetTrackWriter(1); }),
                HasSubstr("Track 1 already has a writer"));
    ASSERT_EQ(kill(client.Id(), SIGKILL), 0);
    EXPECT_TRUE(Eventually([&] { return other->GetWorkerIds().empty(); }));
    AppendChunk(*other, 1, 2, "after it");
    EXPECT_EQ(ReadChunk(*other, 1, 1), "from the client that is killed");
}

TEST_F(ServerClientsTest, AStoppedClientDelaysNobody) {
    ChildProcess client([this](int channel) {
        ChildProcess::Hear(channel);
        StorageClientX storage;
        storage.ConnectToSlave(socketPath);
        AppendChunk(storage, CreateTrack(storage), 1, "a");
        ChildProcess::Say(channel);
        ChildProcess::Hear(channel);
        return 0;
    });
    ServerProcess server(socketPath);
    ASSERT_TRUE(client.Say() && client.Hear() && client.Stop());
    const auto other = server.ConnectOverUnix();
    EXPECT_EQ(ReadChunk(*other, 1, 1), "a");
    EXPECT_EQ(server.Stop(), 0) << server.Process().Errors();
}

TEST_F(ServerClientsTest, OneConnectionMoreThanTheLimitIsClosed) {
    const ServerProcess server(socketPath, {"--max-connections", "1"});
    const auto first = server.ConnectOverUnix();
    EXPECT_TRUE(first->ListTracks().empty());
    EXPECT_THROW(server.ConnectOverUnix()->ListTracks(), SocketDisconnected);
    EXPECT_TRUE(first->ListTracks().empty());
}

TEST_F(ServerClientsTest, AMessageOverTheLimitEndsItsConnectionAlone) {
    constexpr std::size_t tooMuch = 70'000;
    const ServerProcess server(socketPath, {"--message-limit", "65536"});
    const auto client = server.ConnectOverUnix();
    const auto other = server.ConnectOverUnix();
    const long track = CreateTrack(*client);
    EXPECT_THROW(AppendChunk(*client, track, 1, std::string(tooMuch, 'a')), SocketDisconnected);
    EXPECT_EQ(ReadChunk(*other, track, 1), "not found");
}

TEST_F(ServerClientsTest, TheCapacityBoundsTheTracksTogether) {
    constexpr long mebibyte = 1L << 20U;
    const ServerProcess server(socketPath, {"--capacity", "60MiB"});
    const auto client = server.ConnectOverUnix();
    EXPECT_LE(client->GetRemainingSpace(), 60 * mebibyte);
    CreateTrack(*client);
    CreateTrack(*client);
    EXPECT_THAT(RefusalOf([&] { CreateTrack(*client); }), HasSubstr("Exception from server: "));
    EXPECT_EQ(client->ListTracks().size(), 2U);
}

TEST_F(ServerClientsTest, AClientThatSendsRubbishIsDroppedAndTheOthersAreServed) {
    const ServerProcess server(socketPath);
    ProgramRun rubbish({"/bin/bash", "-c",
                        "head -c 100000 /dev/zero | tr '\\0' '\\377' >/dev/tcp/127.0.0.1/" +
                            std::to_string(server.Port())});
    rubbish.Wait();
    EXPECT_EQ(CreateTrack(*server.ConnectOverTcp()), 1);
}

// A client that leaves in the middle of a request.
class HalfClient : public Services::UnixDomainConnection {
  public:
    using UnixDomainConnection::UnixDomainConnection;
    bool SendHalf() const { return send(Descriptor(), "\x05\x08", 2, MSG_NOSIGNAL) == 2; }
};

TEST_F(ServerClientsTest, AClientThatVanishesInTheMiddleOfARequestIsInTheLog) {
    ServerProcess server(socketPath);
    { EXPECT_TRUE(HalfClient(socketPath).SendHalf()); }
    const std::string text =
        ": lost: Connection closed by the other side after 1 of 5 bytes of a message";
    EXPECT_TRUE(Eventually([&] {
        return server.Process().Errors().find(text) != std::string::npos;
    })) << server.Process().Errors();
    EXPECT_EQ(CreateTrack(*server.ConnectOverUnix()), 1);
}

TEST_F(ServerClientsTest, AClientThatSaysGoodbyeIsNot) {
    ServerProcess server(socketPath);
    CreateTrack(*server.ConnectOverUnix());
    ASSERT_EQ(server.Stop(), 0);
    EXPECT_EQ(server.Process().Errors().find("lost"), std::string::npos)
        << server.Process().Errors();
}

}  // namespace
}  // namespace Brantel::Tests
