// Readers and writers as their client makes, keeps and closes them.
#include "Support/FacadeConnection.h"
#include "Support/Refusal.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/StorageClientX.h>
#include <libServices/IServiceConnection.h>
#include <libServices/SocketDisconnected.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace Brantel::ProtocolX {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Tests::FacadePeer;
using Tests::RefusalOf;
using Time::TimePoint;

class StorageRegistryTest : public testing::Test {
  protected:
    StorageRegistryTest() { client.ConnectToSlave(peer.Connect()); }

    void Reconnect() {
        EXPECT_TRUE(client.ConnectToSlave(peer.Connect()));
        peer.journal.clear();
    }

    FacadePeer peer;
    StorageClientX client;
};

TEST_F(StorageRegistryTest, TheSameReaderTwiceIsOneRemoteReaderAndAnotherIdIsASecond) {
    IStorageReaderX* reader = client.GetTrackReader(7, 1);
    EXPECT_EQ(client.GetTrackReader(7, 1), reader);
    EXPECT_EQ(peer.journal.size(), 1U);
    EXPECT_NE(client.GetTrackReader(7, 2), reader);
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_Constructor { trackId: 7 }",
                                          "TrackReader_Constructor { trackId: 7 }"));
}

TEST_F(StorageRegistryTest, TheSameWriterTwiceIsTheSameWriter) {
    IStorageWriterX* writer = client.GetTrackWriter(7);
    EXPECT_EQ(client.GetTrackWriter(7), writer);
    EXPECT_NE(client.GetTrackWriter(8), writer);
    EXPECT_THAT(peer.journal, ElementsAre("TrackWriter_Constructor { trackId: 7 }",
                                          "TrackWriter_Constructor { trackId: 8 }"));
}

TEST_F(StorageRegistryTest, GetMaxReaderIdIsTheLargestOfTheTrackButNeverBelowZero) {
    client.GetTrackReader(5, 3);
    client.GetTrackReader(5, 7);
    client.GetTrackReader(6, 9);
    EXPECT_EQ(client.GetMaxReaderId(5), 7);
    EXPECT_EQ(client.GetMaxReaderId(6), 9);
    EXPECT_EQ(client.GetMaxReaderId(4), 0);
}

TEST_F(StorageRegistryTest, GetMaxReaderIdWithOnlyANegativeIdIsZero) {
    client.GetTrackReader(5, -2);
    EXPECT_EQ(client.GetMaxReaderId(5), 0);
    EXPECT_TRUE(client.IsReader(5, -2));
}

TEST_F(StorageRegistryTest, AClosedReaderIsUnknownAndIsMadeAnew) {
    client.GetTrackReader(5, 3);
    client.CloseTrackReader(5, 3);
    EXPECT_FALSE(client.IsReader(5, 3));
    client.GetTrackReader(5, 3);
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_Constructor { trackId: 5 }",
                                          "TrackReader_Destructor { object_handle: 1 }",
                                          "TrackReader_Constructor { trackId: 5 }"));
}

TEST_F(StorageRegistryTest, ClosingAWriterThatIsNotThereDoesNothing) {
    client.CloseTrackWriter(5);
    client.CloseTrackReader(5, 3);
    EXPECT_THAT(peer.journal, IsEmpty());
}

TEST_F(StorageRegistryTest, AClosedWriterIsMadeAnew) {
    client.GetTrackWriter(5);
    client.CloseTrackWriter(5);
    client.GetTrackWriter(5);
    EXPECT_THAT(peer.journal, ElementsAre("TrackWriter_Constructor { trackId: 5 }",
                                          "TrackWriter_Destructor { object_handle: 1 }",
                                          "TrackWriter_Constructor { trackId: 5 }"));
}

TEST_F(StorageRegistryTest, WithoutAConnectionNothingIsMade) {
    client.Disconnect();
    EXPECT_EQ(RefusalOf([&] { client.GetTrackReader(7, 1); }),
              "Client not connected to create a reader");
    EXPECT_EQ(RefusalOf([&] { client.GetTrackWriter(7); }),
              "Client not connected to create a writer");
    EXPECT_FALSE(client.IsReader(7, 1));
}

TEST_F(StorageRegistryTest, AReaderThatTheServerRefusesIsNotRegisteredAndNotDestroyed) {
    peer.WillRefuse("no such track");
    EXPECT_EQ(RefusalOf([&] { client.GetTrackReader(7, 1); }),
              "Exception from server: no such track");
    EXPECT_FALSE(client.IsReader(7, 1));
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_Constructor { trackId: 7 }"));
    EXPECT_NE(client.GetTrackReader(7, 1), nullptr);
}

TEST_F(StorageRegistryTest, AWriterThatTheServerRefusesIsNotRegisteredAndNotDestroyed) {
    peer.WillRefuse("the track has a writer");
    EXPECT_EQ(RefusalOf([&] { client.GetTrackWriter(7); }),
              "Exception from server: the track has a writer");
    EXPECT_THAT(peer.journal, ElementsAre("TrackWriter_Constructor { trackId: 7 }"));
    EXPECT_NE(client.GetTrackWriter(7), nullptr);
}

TEST_F(StorageRegistryTest, AReaderWhoseConstructionFailedSilentlyIsRegisteredWithTheHandleZero) {
    peer.WillFailToReceive();
    IStorageReaderX* reader = client.GetTrackReader(7, 1);
    ASSERT_NE(reader, nullptr);
    EXPECT_TRUE(client.IsReader(7, 1));
    peer.journal.clear();
    reader->GetTrackId();
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_GetTrackId { object_handle: 0 }"));
}

TEST_F(StorageRegistryTest, AskingForKeysMakesNoExchangeAndUnknownOnesAreNoError) {
    EXPECT_FALSE(client.IsReader(4, 1));
    EXPECT_EQ(client.GetMaxReaderId(4), 0);
    client.CloseTrackReader(4, 1);
    client.Disconnect();
    EXPECT_FALSE(client.IsReader(4, 1));
    EXPECT_EQ(client.GetMaxReaderId(4), 0);
    EXPECT_THAT(peer.journal, ElementsAre("CLOSE_CONNECTION", "~"));
}

TEST_F(StorageRegistryTest, AReaderOfAnotherTrackWithTheSameIdIsAnotherReader) {
    client.GetTrackReader(1, 5);
    EXPECT_FALSE(client.IsReader(5, 1));
    EXPECT_FALSE(client.IsReader(2, 5));
    EXPECT_TRUE(client.IsReader(1, 5));
}

// After the next connect the old keys and addresses stay; nothing of them reaches either
// connection.

TEST_F(StorageRegistryTest, AfterReconnectingAnOldKeyGivesTheSameAddressAndAsksNobody) {
    IStorageReaderX* reader = client.GetTrackReader(7, 1);
    IStorageWriterX* writer = client.GetTrackWriter(7);
    Reconnect();
    EXPECT_EQ(client.GetTrackReader(7, 1), reader);
    EXPECT_EQ(client.GetTrackWriter(7), writer);
    EXPECT_EQ(client.GetMaxReaderId(7), 1);
    EXPECT_THAT(peer.journal, IsEmpty());
}

TEST_F(StorageRegistryTest, AfterReconnectingOldPointersAnswerWithoutARemoteObject) {
    IStorageReaderX* reader = client.GetTrackReader(7, 1);
    IStorageWriterX* writer = client.GetTrackWriter(7);
    Reconnect();
    DataChunk chunk;
    EXPECT_EQ(reader->GetTrackId(), 0);
    EXPECT_EQ(reader->FirstTimePoint(), TimePoint());
    EXPECT_FALSE(reader->GetChunk(chunk, TimePoint(), {}));
    EXPECT_EQ(writer->GetTrackId(), 0);
    writer->Append(chunk);
    EXPECT_THAT(peer.journal, IsEmpty());
}

TEST_F(StorageRegistryTest, AfterReconnectingClosingAnOldKeyJustRemovesIt) {
    client.GetTrackReader(7, 1);
    client.GetTrackWriter(7);
    Reconnect();
    client.CloseTrackReader(7, 1);
    client.CloseTrackWriter(7);
    EXPECT_THAT(peer.journal, IsEmpty());
    EXPECT_FALSE(client.IsReader(7, 1));
    client.GetTrackReader(7, 1);
    client.GetTrackWriter(7);
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_Constructor { trackId: 7 }",
                                          "TrackWriter_Constructor { trackId: 7 }"));
}

TEST_F(StorageRegistryTest, ConnectingAgainAndAgainDestroysEachRemoteObjectOnce) {
    client.GetTrackReader(7, 1);
    client.GetTrackWriter(7);
    Reconnect();
    testing::internal::CaptureStdout();
    client.ConnectToSlave(peer.Connect());
    client.Disconnect();
    EXPECT_THAT(peer.journal, ElementsAre("CLOSE_CONNECTION", "~", "CLOSE_CONNECTION", "~"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(StorageRegistryTest, TheEndAfterReconnectingIsSilentAboutOldReadersAndWriters) {
    auto ending = std::make_unique<StorageClientX>();
    ending->ConnectToSlave(peer.Connect());
    ending->GetTrackReader(7, 1);
    ending->GetTrackWriter(7);
    ending->ConnectToSlave(peer.Connect());
    peer.journal.clear();
    testing::internal::CaptureStdout();
    ending.reset();
    EXPECT_THAT(peer.journal, ElementsAre("CLOSE_CONNECTION", "~"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(StorageRegistryTest, AFailedConnectLeavesTheKeysAndTheOldObjectsUsable) {
    IStorageReaderX* reader = client.GetTrackReader(7, 1);
    EXPECT_FALSE(client.ConnectToSlave(std::string()));
    EXPECT_TRUE(client.IsReader(7, 1));
    EXPECT_EQ(reader->GetTrackId(), 0);
    EXPECT_EQ(RefusalOf([&] { client.GetTrackReader(7, 1); }),
              "Client not connected to create a reader");
}

TEST_F(StorageRegistryTest, ConnectingAgainReportsWhatTheOldConnectionSaysInTheEnd) {
    client.GetTrackReader(7, 1);
    client.GetTrackReader(7, 2);
    client.GetTrackWriter(7);
    peer.WillThrowOnReceive(SocketDisconnected("gone"));
    peer.WillThrowOnSend(SocketDisconnected("gone too"));
    peer.WillRefuse("unknown");
    testing::internal::CaptureStdout();
    EXPECT_TRUE(client.ConnectToSlave(peer.Connect()));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Storage seems disconnected: gone\nStorage seems disconnected: gone too\n"
              "Exception from storage: Exception from server: unknown\n");
}

TEST_F(StorageRegistryTest, ReadersMadeAfterReconnectingWorkBesideTheOldOnes) {
    client.GetTrackReader(7, 1);
    Reconnect();
    IStorageReaderX* fresh = client.GetTrackReader(7, 2);
    peer.WillAnswer("TrackReader_GetTrackId { result: 7 }");
    EXPECT_EQ(fresh->GetTrackId(), 7);
    EXPECT_EQ(client.GetMaxReaderId(7), 2);
}

}  // namespace
}  // namespace Brantel::ProtocolX
