// What is left of clients and chunks when the system has nothing more to give.
#include "Support/FacadeConnection.h"
#include "Support/FailingSystem.h"
#include "Support/RecordFile.h"

#include <BrantelStorageApiMessages.pb.h>
#include <libProtocolX/DataChunk.h>
#include <libProtocolX/StorageClientX.h>
#include <libServices/IServiceConnection.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace Brantel::ProtocolX {
namespace {

using testing::ElementsAre;
using testing::StartsWith;
using Tests::FailsAfter;

TEST(StorageClientXFailureTest, AMutexThatCantBeMadeGivesFalseAndEndsTheNewConnection) {
    Tests::FacadePeer peer;
    StorageClientX client;
    {
        const Tests::FailingMutexes failing;
        EXPECT_FALSE(client.ConnectToSlave(peer.Connect()));
    }
    EXPECT_FALSE(client.Connected());
    EXPECT_THAT(peer.journal, ElementsAre("~"));
}

TEST(StorageClientXFailureTest, WithoutMemoryForTheClientItIsNotConnectedAndCanConnectLater) {
    Tests::FacadePeer peer;
    StorageClientX client;
    auto connection = peer.Connect();
    EXPECT_TRUE(FailsAfter(0, [&] { client.ConnectToSlave(std::move(connection)); }));
    EXPECT_FALSE(client.Connected());
    EXPECT_EQ(client.GetTrackSize(1), -1);
    EXPECT_TRUE(client.ConnectToSlave(peer.Connect()));
    EXPECT_THAT(peer.journal, ElementsAre("~"));
}

// The peer prints the requests; protobuf makes what printing needs once, and does not survive a
// failure there.
void PrintOnce() {
    static_cast<void>(BrantelStorageApi::Request().ShortDebugString());
}

TEST(StorageClientXFailureTest, AReaderIsRegisteredOnlyWhenNothingFailed) {
    PrintOnce();
    Tests::FacadePeer peer;
    StorageClientX client;
    client.ConnectToSlave(peer.Connect());
    int failures = 0;
    while (FailsAfter(failures, [&] { client.GetTrackReader(7, 1); })) {
        EXPECT_FALSE(client.IsReader(7, 1)) << failures;
        ++failures;
    }
    EXPECT_GT(failures, 3);
    EXPECT_TRUE(client.IsReader(7, 1));
    // The last thing that can fail is the entry itself, when the remote reader exists already.
    const std::string last = peer.journal.at(peer.journal.size() - 2);
    EXPECT_THAT(last, StartsWith("TrackReader_Destructor"));
}

TEST(StorageClientXFailureTest, AWriterIsRegisteredOnlyWhenNothingFailed) {
    PrintOnce();
    Tests::FacadePeer peer;
    StorageClientX client;
    client.ConnectToSlave(peer.Connect());
    int failures = 0;
    while (FailsAfter(failures, [&] { client.GetTrackWriter(7); })) {
        ++failures;
    }
    EXPECT_GT(failures, 3);
    const std::string last = peer.journal.at(peer.journal.size() - 2);
    EXPECT_THAT(last, StartsWith("TrackWriter_Destructor"));
}

TEST(StorageClientXFailureTest, AFailedCheckedReadWithoutMemoryLeavesTheChunk) {
    DataChunk source;
    source.SetData("image", std::string(1000, 'x'));
    source.SetProperty("codec", "a long enough name of a codec");
    std::vector<unsigned char> record(source.GetSizeOnFile());
    source.Write(record.data());
    DataChunk chunk;
    chunk.SetProperty("old", "value");
    int failures = 0;
    while (FailsAfter(failures, [&] { chunk.TryReadFrom(record.data(), record.size()); })) {
        EXPECT_EQ(chunk.GetProperty("old"), "value");
        ++failures;
    }
    EXPECT_GT(failures, 3);
    EXPECT_TRUE(chunk.IsEqual(source));
}

TEST(StorageClientXFailureTest, AFailedCheckedReadOfAFileWithoutMemoryLeavesChunkAndPosition) {
    DataChunk source;
    source.SetData("image", std::string(10'000, 'x'));
    source.SetProperty("codec", "a long enough name of a codec");
    std::string record(source.GetSizeOnFile(), '\0');
    source.Write(reinterpret_cast<unsigned char*>(record.data()));
    const Tests::RecordFile file("..." + record);
    file.Seek(3);
    DataChunk chunk;
    chunk.SetProperty("old", "value");
    int failures = 0;
    while (FailsAfter(failures, [&] { chunk.TryReadFrom(file.Get()); })) {
        EXPECT_EQ(chunk.GetProperty("old"), "value");
        EXPECT_EQ(file.Position(), 3);
        ++failures;
    }
    EXPECT_GT(failures, 3);
    EXPECT_TRUE(chunk.IsEqual(source));
}

TEST(StorageClientXFailureTest, IsEqualLetsExceptionsOfOtherTypesPass) {
    DataChunk chunk;
    chunk.SetProperty("a key that needs memory of its own", "value");
    const DataChunk copy(chunk);
    EXPECT_TRUE(FailsAfter(0, [&] { static_cast<void>(chunk.IsEqual(copy)); }));
    EXPECT_TRUE(chunk.IsEqual(copy));
}

}  // namespace
}  // namespace Brantel::ProtocolX
