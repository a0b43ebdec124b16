#include "Support/FacadeConnection.h"
#include "Support/FlushedOutput.h"

#include <libProtocolX/Converter.h>
#include <libProtocolX/DataChunk.h>
#include <libProtocolX/StorageWriterX.h>
#include <libProtocolX/rpc/Client.h>
#include <libProtocolX/rpc/ClientTrackWriter.h>
#include <libServices/IServiceConnection.h>
#include <libServices/SocketDisconnected.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

namespace Brantel::ProtocolX {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Tests::FacadePeer;
using Time::TimePoint;

// A writer over a stub, and the peer that answers it. The first handle is 1.
class StorageWriterXTest : public testing::Test {
  protected:
    StorageWriterXTest() : connection(peer.Connect()), client(*connection) {
        writer->SetWriter(MakeStub());
        peer.journal.clear();
    }

    std::unique_ptr<BrantelStorageApi::ITrackWriter> MakeStub() {
        return std::make_unique<BrantelStorageApi::ClientTrackWriter>(*connection,
                                                                      client.GetMutex(), 7);
    }

    // What is printed while the writer is destroyed.
    std::string Destroy() {
        testing::internal::CaptureStdout();
        writer.reset();
        return testing::internal::GetCapturedStdout();
    }

    FacadePeer peer;
    std::unique_ptr<Services::IServiceConnection> connection;
    BrantelStorageApi::Client client;
    std::unique_ptr<StorageWriterX> writer = std::make_unique<StorageWriterX>();
    DataChunk chunk;
};

TEST_F(StorageWriterXTest, AppendSendsTheChunkAsItIs) {
    chunk.SetTimePoint(TimePoint::Nanoseconds(4));
    chunk.GetData("k");
    writer->Append(chunk);
    EXPECT_THAT(peer.journal,
                ElementsAre("TrackWriter_Append { object_handle: 1 chunk { timecode { nanoseconds: "
                            "4 } data { items { key: \"k\" value: \"\" } } } }"));
}

TEST_F(StorageWriterXTest, AppendSendsTheMessageThatTheChunkReferences) {
    Protocol::Chunk message;
    message.mutable_timecode()->set_nanoseconds(4);
    DataChunk referencing;
    Converter::ReferenceFrom(referencing, message);
    writer->Append(referencing);
    EXPECT_THAT(peer.journal, ElementsAre("TrackWriter_Append { object_handle: 1 chunk { timecode "
                                          "{ nanoseconds: 4 } } }"));
    EXPECT_EQ(message.timecode().nanoseconds(), 4U);
}

TEST_F(StorageWriterXTest, AppendThrowsWhatTheServerRefuses) {
    peer.WillRefuse("The track is full");
    try {
        writer->Append(chunk);
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Exception from server: The track is full");
    }
}

TEST_F(StorageWriterXTest, GetTrackIdAsksTheServer) {
    peer.WillAnswer("TrackWriter_GetTrackId { result: 7 }");
    EXPECT_EQ(writer->GetTrackId(), 7);
    EXPECT_THAT(peer.journal, ElementsAre("TrackWriter_GetTrackId { object_handle: 1 }"));
}

TEST_F(StorageWriterXTest, AFailedExchangeGivesTheTrackZeroAndNoSignOfTheLostChunk) {
    peer.WillFailToSend();
    EXPECT_EQ(writer->GetTrackId(), 0);
    peer.WillFailToReceive();
    EXPECT_EQ(writer->GetTrackId(), 0);
    peer.WillFailToSend();
    EXPECT_NO_THROW(writer->Append(chunk));
}

TEST_F(StorageWriterXTest, WithoutAStubAsksNobody) {
    testing::internal::CaptureStdout();
    {
        StorageWriterX alone;
        EXPECT_EQ(alone.GetTrackId(), 0);
        alone.Append(chunk);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_THAT(peer.journal, IsEmpty());
}

TEST_F(StorageWriterXTest, SetWriterDestroysTheFormerStubWithoutAWord) {
    writer->SetWriter(MakeStub());
    EXPECT_THAT(peer.journal, ElementsAre("TrackWriter_Constructor { trackId: 7 }"));
    writer->SetWriter(nullptr);
    EXPECT_EQ(Destroy(), "");
    EXPECT_EQ(peer.journal.size(), 1U);
}

TEST_F(StorageWriterXTest, DestroyingAWriterSendsItsHandleOnceAndPrintsNothing) {
    EXPECT_EQ(Destroy(), "");
    EXPECT_THAT(peer.journal, ElementsAre("TrackWriter_Destructor { object_handle: 1 }"));
}

TEST_F(StorageWriterXTest, DestroyingAWriterWhoseConnectionIsGonePrintsOneLine) {
    peer.WillThrowOnSend(SocketDisconnected("The connection is gone"));
    EXPECT_EQ(Destroy(), "Storage seems disconnected: The connection is gone\n");
}

TEST_F(StorageWriterXTest, TheLineOfALostConnectionIsFlushed) {
    peer.WillThrowOnReceive(SocketDisconnected("gone"));
    const Tests::FlushedOutput output;
    writer.reset();
    EXPECT_EQ(output.Get(), "Storage seems disconnected: gone\n");
}

TEST_F(StorageWriterXTest, DestroyingAWriterThatTheServerDoesNotKnowPrintsItsText) {
    peer.WillRefuse("Deleting an invalid remote object");
    EXPECT_EQ(Destroy(),
              "Exception from storage: Exception from server: Deleting an invalid remote "
              "object\n");
}

using StorageWriterXDeathTest = StorageWriterXTest;

TEST_F(StorageWriterXDeathTest, AnExceptionOfAnotherTypeInTheDestructorEndsTheProcess) {
    EXPECT_DEATH(
        {
            peer.WillThrowOnReceive(std::bad_alloc());
            writer.reset();
        },
        "terminate called");
}

}  // namespace
}  // namespace Brantel::ProtocolX
