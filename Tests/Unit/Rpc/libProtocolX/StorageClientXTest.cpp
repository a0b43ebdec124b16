#include "Support/FacadeConnection.h"
#include "Support/Refusal.h"
#include "Support/TemporaryFolder.h"
#include "Support/TestSockets.h"

#include <libProtocolX/StorageClientX.h>
#include <libServices/IServiceConnection.h>
#include <libServices/SocketDisconnected.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

namespace Brantel::ProtocolX {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Tests::FacadePeer;
using Tests::RefusalOf;
using Time::TimePoint;

// A connected client, and the peer that answers it.
class StorageClientXTest : public testing::Test {
  protected:
    StorageClientXTest() { EXPECT_TRUE(client.ConnectToSlave(peer.Connect())); }

    // An answer to GetEndOfTrack.
    void WillEndAt(long nanoseconds) {
        peer.WillAnswer("TrackStorage_GetEndOfTrack { timecode { nanoseconds: " +
                        std::to_string(static_cast<std::uint64_t>(nanoseconds)) + " } }");
    }

    FacadePeer peer;
    StorageClientX unconnected;
    StorageClientX client;
};

TEST_F(StorageClientXTest, GetVersionYieldsTwoOneFiveOnAnUnconnectedClient) {
    int major = 0;
    int minor = 0;
    int revision = 0;
    unconnected.GetVersion(major, minor, revision);
    EXPECT_EQ(std::vector({major, minor, revision}), std::vector({2, 1, 5}));
}

TEST_F(StorageClientXTest, TracksCreatedOfAnEmptyVectorReturnsZero) {
    EXPECT_EQ(client.TracksCreated({}), 0);
    EXPECT_THAT(peer.journal, ElementsAre("TrackStorage_ListTracks { }"));
}

TEST_F(StorageClientXTest, TracksCreatedReturnsTheSecondIdWhenTheStorageDoesNotKnowIt) {
    peer.WillAnswer("TrackStorage_ListTracks { list { trackIds: 9 trackIds: 7 } }");
    EXPECT_EQ(client.TracksCreated({7, 8, 10}), 8);
    EXPECT_THAT(peer.journal, ElementsAre("TrackStorage_ListTracks { }"));
}

TEST_F(StorageClientXTest, TracksCreatedReturnsZeroWhenAllAreThere) {
    peer.WillAnswer("TrackStorage_ListTracks { list { trackIds: 9 trackIds: 7 } }");
    EXPECT_EQ(client.TracksCreated({7, 9}), 0);
}

TEST_F(StorageClientXTest, TracksCreatedOnAnUnconnectedClientReturnsTheFirstIdGiven) {
    EXPECT_EQ(unconnected.TracksCreated({5, 6}), 5);
    EXPECT_EQ(unconnected.TracksCreated({}), 0);
}

TEST_F(StorageClientXTest, GetHighestTimePointOfAnEmptyVectorMakesNoExchange) {
    EXPECT_EQ(client.GetHighestTimePoint({}), TimePoint());
    EXPECT_THAT(peer.journal, IsEmpty());
}

TEST_F(StorageClientXTest, GetHighestTimePointAsksForEachTrackAndKeepsTheFirstOfEqualEnds) {
    WillEndAt(5);
    WillEndAt(9);
    WillEndAt(9);
    EXPECT_EQ(client.GetHighestTimePoint({1, 2, 3}), TimePoint::Nanoseconds(9));
    EXPECT_THAT(peer.journal, ElementsAre("TrackStorage_GetEndOfTrack { trackId: 1 }",
                                          "TrackStorage_GetEndOfTrack { trackId: 2 }",
                                          "TrackStorage_GetEndOfTrack { trackId: 3 }"));
}

TEST_F(StorageClientXTest, GetHighestTimePointIsNeverBelowZero) {
    WillEndAt(-1);
    EXPECT_EQ(client.GetHighestTimePoint({1}), TimePoint());
    EXPECT_EQ(unconnected.GetHighestTimePoint({1, 2}), TimePoint());
}

TEST_F(StorageClientXTest, SetTrackPropertiesWithAnEmptyKeyThrowsItsValueAndSendsNothing) {
    EXPECT_EQ(RefusalOf([&] {
                  client.SetTrackProperties(-7, {{"a", "b"}, {"", "x"}});
              }),
              "You cannot set an empty key for SetTrackProperties on track -7. For info, the value "
              "associated is: x");
    EXPECT_THAT(peer.journal, IsEmpty());
}

TEST_F(StorageClientXTest, RemoveTrackPropertiesWithAnEmptyKeyThrowsAndSendsNothing) {
    EXPECT_EQ(RefusalOf([&] {
                  client.RemoveTrackProperties(7, {{"a", "b"}, {"", "x"}});
              }),
              "You cannot set an empty key for RemoveTrackProperties on track 7");
    EXPECT_THAT(peer.journal, IsEmpty());
}

TEST_F(StorageClientXTest, AnEmptyKeyIsNoMatterOnAnUnconnectedClient) {
    EXPECT_NO_THROW(unconnected.SetTrackProperties(7, {{"", "x"}}));
    EXPECT_NO_THROW(unconnected.RemoveTrackProperties(7, {{"", "x"}}));
}

TEST_F(StorageClientXTest, RemoveTrackPropertiesSendsEveryKeyWithAnEmptyValue) {
    client.RemoveTrackProperties(7, {{"b", "2"}, {"a", "1"}});
    EXPECT_THAT(peer.journal,
                ElementsAre("TrackStorage_RemoveTrackProperties { trackId: 7 properties { items { "
                            "key: \"a\" value: \"\" } items { key: \"b\" value: \"\" } } }"));
}

TEST_F(StorageClientXTest, GetWorkerIdsPairsThreeWorkersAndTwoTracksToTwoPairs) {
    peer.WillAnswer(
        "TrackStorage_GetActiveWorkers { workerIds { ids: 1 ids: 2 ids: 3 } trackIds { "
        "ids: 11 ids: 12 } }");
    EXPECT_THAT(client.GetWorkerIds(), ElementsAre(Pair(1, 11), Pair(2, 12)));
}

TEST_F(StorageClientXTest, GetWorkerIdsPairsOneWorkerAndTwoTracksToOnePair) {
    peer.WillAnswer(
        "TrackStorage_GetActiveWorkers { workerIds { ids: 1 } trackIds { "
        "ids: 11 ids: 12 } }");
    EXPECT_THAT(client.GetWorkerIds(), ElementsAre(Pair(1, 11)));
}

TEST_F(StorageClientXTest, WorkersOfTypeNoneOrNoTypeYieldZeroAReaderOneAndAWriterTwo) {
    peer.WillAnswer(
        "TrackStorage_GetWorkerInfos { workerInfos { infos { type: NONE } infos { } "
        "infos { type: READER } infos { type: WRITER } } }");
    std::vector<int> types;
    for (const StorageClientX::WorkerInfo& info : client.GetWorkerInfos({})) {
        types.push_back(static_cast<int>(info.type));
    }
    EXPECT_THAT(types, ElementsAre(0, 0, 1, 2));
}

TEST_F(StorageClientXTest, CommandTypesAreRenumberedFromZero) {
    std::vector<int> types;
    for (const char* type : {"type: NOT_EXIST", "type: FINISHED", "type: CANCELED", "type: QUEUED",
                             "type: ONGOING", ""}) {
        peer.WillAnswer(std::string("TrackStorage_GetCommandInfo { commandInfo { ") + type +
                        " } }");
        types.push_back(static_cast<int>(client.GetCommandInfo(1).type));
    }
    EXPECT_THAT(types, ElementsAre(0, 1, 2, 3, 4, 0));
}

TEST_F(StorageClientXTest, TheEnumerationsAreThirtyTwoBitsWide) {
    EXPECT_EQ(sizeof(StorageClientX::WorkerType), 4U);
    EXPECT_EQ(sizeof(StorageClientX::CommandType), 4U);
}

TEST_F(StorageClientXTest, ProtectSendsTheDurationAndNotTheEnd) {
    client.Protect(7, TimePoint::Nanoseconds(100), TimePoint::Nanoseconds(130));
    EXPECT_THAT(peer.journal,
                ElementsAre("TrackStorage_Protect { trackId: 7 timecode { nanoseconds: 100 } "
                            "duration { nanoseconds: 30 } }"));
}

TEST_F(StorageClientXTest, ASecondConnectDestroysReadersAndWritersButLeavesTheirKeys) {
    client.GetTrackReader(7, 1);
    client.GetTrackWriter(8);
    peer.journal.clear();
    EXPECT_TRUE(client.ConnectToSlave(peer.Connect()));
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_Destructor { object_handle: 1 }",
                                          "TrackWriter_Destructor { object_handle: 2 }",
                                          "CLOSE_CONNECTION", "~"));
    EXPECT_TRUE(client.IsReader(7, 1));
    EXPECT_EQ(client.GetMaxReaderId(7), 1);
}

TEST_F(StorageClientXTest, AConnectionThatCantBeMadeGivesFalseAndNotConnected) {
    const Tests::TemporaryFolder folder;
    EXPECT_FALSE(unconnected.ConnectToSlave(folder.File("nobody")));
    EXPECT_FALSE(unconnected.Connected());
    EXPECT_FALSE(client.ConnectToSlave(folder.File("nobody")));
    EXPECT_FALSE(client.Connected());
    EXPECT_THAT(peer.journal, ElementsAre("CLOSE_CONNECTION", "~"));
}

TEST_F(StorageClientXTest, ATcpPortWhereNobodyListensGivesFalseAndNotConnected) {
    Tests::PlainTcpListener listener("127.0.0.1");
    listener.Close();
    EXPECT_FALSE(client.ConnectToSlave("127.0.0.1", static_cast<short>(listener.Port()), 0));
    EXPECT_FALSE(client.Connected());
    EXPECT_EQ(client.GetTrackSize(1), -1);
}

TEST_F(StorageClientXTest, APortAbove32767IsGivenAsTheNegativeNumberOfTheSameBits) {
    constexpr unsigned short highestPositive = 32767;
    std::vector<std::unique_ptr<Tests::PlainTcpListener>> listeners;
    do {
        listeners.push_back(std::make_unique<Tests::PlainTcpListener>("127.0.0.1"));
    } while (listeners.back()->Port() <= highestPositive && listeners.size() < 1000);
    const auto port = static_cast<short>(listeners.back()->Port());
    if (port > 0) {
        GTEST_SKIP() << "This machine gives no port above 32767";
    }
    EXPECT_TRUE(client.ConnectToSlave("127.0.0.1", port, 60'000));
    EXPECT_TRUE(client.Connected());
}

// A connection whose end sees whether somebody has already connected to a listener.
class WatchingConnection : public Services::IServiceConnection {
  public:
    WatchingConnection(const Tests::PlainTcpListener& listener, int& connected)
        : listener(listener), connected(connected) {}
    WatchingConnection(const WatchingConnection&) = delete;
    WatchingConnection& operator=(const WatchingConnection&) = delete;
    ~WatchingConnection() override { connected = Waiting(listener); }

    static int Waiting(const Tests::PlainTcpListener& listener) {
        pollfd queue{listener.Get(), POLLIN, 0};
        return poll(&queue, 1, 0);
    }
    void Close() override {}
    bool Send(const google::protobuf::Message& /*message*/) override { return true; }
    bool Receive(google::protobuf::Message& /*message*/) override { return false; }

  private:
    const Tests::PlainTcpListener& listener;
    int& connected;
};

TEST_F(StorageClientXTest, TheOldConnectionIsEndedBeforeTheNewOneIsTried) {
    const Tests::PlainTcpListener listener("127.0.0.1");
    int connectedAtTheEnd = -1;
    client.ConnectToSlave(std::make_unique<WatchingConnection>(listener, connectedAtTheEnd));
    EXPECT_TRUE(client.ConnectToSlave("127.0.0.1", static_cast<short>(listener.Port()), 60'000));
    EXPECT_EQ(connectedAtTheEnd, 0);
    EXPECT_EQ(WatchingConnection::Waiting(listener), 1);
}

TEST_F(StorageClientXTest, NoConnectionGivenGivesFalseAndNotConnected) {
    EXPECT_FALSE(client.ConnectToSlave(std::unique_ptr<Services::IServiceConnection>()));
    EXPECT_FALSE(client.Connected());
    EXPECT_THAT(peer.journal, ElementsAre("CLOSE_CONNECTION", "~"));
}

TEST_F(StorageClientXTest, ANewClientIsNotConnectedAndItsEndIsSilent) {
    testing::internal::CaptureStdout();
    { EXPECT_FALSE(StorageClientX().Connected()); }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(StorageClientXTest, ConnectingSendsNothing) {
    EXPECT_TRUE(client.Connected());
    EXPECT_THAT(peer.journal, IsEmpty());
}

TEST_F(StorageClientXTest, ConnectedDoesNotNoticeALostConnection) {
    peer.WillThrowOnReceive(SocketDisconnected("gone"));
    EXPECT_THROW(client.ListTracks(), SocketDisconnected);
    EXPECT_TRUE(client.Connected());
}

TEST_F(StorageClientXTest, DisconnectEndsTheConnectionAndCanBeRepeated) {
    client.Disconnect();
    EXPECT_FALSE(client.Connected());
    client.Disconnect();
    EXPECT_THAT(peer.journal, ElementsAre("CLOSE_CONNECTION", "~"));
    EXPECT_EQ(client.GetTrackSize(1), -1);
    EXPECT_TRUE(client.ConnectToSlave(peer.Connect()));
}

TEST_F(StorageClientXTest, DisconnectDestroysReadersAndWritersButLeavesTheirKeys) {
    IStorageReaderX* reader = client.GetTrackReader(7, 1);
    IStorageWriterX* writer = client.GetTrackWriter(8);
    peer.journal.clear();
    client.Disconnect();
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_Destructor { object_handle: 1 }",
                                          "TrackWriter_Destructor { object_handle: 2 }",
                                          "CLOSE_CONNECTION", "~"));
    EXPECT_TRUE(client.IsReader(7, 1));
    EXPECT_EQ(reader->GetTrackId(), 0);
    EXPECT_EQ(writer->GetTrackId(), 0);
    client.CloseTrackReader(7, 1);
    client.CloseTrackWriter(8);
    EXPECT_EQ(peer.journal.size(), 4U);
}

TEST_F(StorageClientXTest, ItsEndDestroysReadersThenWritersInKeyOrderThenTheConnection) {
    auto ending = std::make_unique<StorageClientX>();
    ending->ConnectToSlave(peer.Connect());
    ending->GetTrackWriter(20);      // 1
    ending->GetTrackReader(9, 1);    // 2
    ending->GetTrackReader(-1, 5);   // 3
    ending->GetTrackWriter(-20);     // 4
    ending->GetTrackReader(9, -3);   // 5
    ending->GetTrackReader(4, 100);  // 6
    peer.journal.clear();
    ending.reset();
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_Destructor { object_handle: 3 }",
                                          "TrackReader_Destructor { object_handle: 6 }",
                                          "TrackReader_Destructor { object_handle: 5 }",
                                          "TrackReader_Destructor { object_handle: 2 }",
                                          "TrackWriter_Destructor { object_handle: 4 }",
                                          "TrackWriter_Destructor { object_handle: 1 }",
                                          "CLOSE_CONNECTION", "~"));
}

}  // namespace
}  // namespace Brantel::ProtocolX
