#include "Support/FacadeConnection.h"
#include "Support/FlushedOutput.h"

#include <libProtocolX/Converter.h>
#include <libProtocolX/DataChunk.h>
#include <libProtocolX/StorageReaderX.h>
#include <libProtocolX/rpc/Client.h>
#include <libProtocolX/rpc/ClientTrackReader.h>
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

using Keys = std::set<std::string>;

// A reader over a stub, and the peer that answers it. The first handle is 1.
class StorageReaderXTest : public testing::Test {
  protected:
    StorageReaderXTest() : connection(peer.Connect()), client(*connection) {
        reader->SetReader(MakeStub());
        peer.journal.clear();
    }

    std::unique_ptr<BrantelStorageApi::ITrackReader> MakeStub() {
        return std::make_unique<BrantelStorageApi::ClientTrackReader>(*connection,
                                                                      client.GetMutex(), 7);
    }

    // What is printed while the reader is destroyed.
    std::string Destroy() {
        testing::internal::CaptureStdout();
        reader.reset();
        return testing::internal::GetCapturedStdout();
    }

    FacadePeer peer;
    std::unique_ptr<Services::IServiceConnection> connection;
    BrantelStorageApi::Client client;
    std::unique_ptr<StorageReaderX> reader = std::make_unique<StorageReaderX>();
    DataChunk chunk;
};

TEST_F(StorageReaderXTest, NextTimePointIsMinusOneWhenTheServerFindsNone) {
    peer.WillAnswer("TrackReader_NextTimePoint { nextTimePoint { nanoseconds: 5 } result: false }");
    EXPECT_EQ(reader->NextTimePoint(TimePoint::Nanoseconds(3)), TimePoint::Nanoseconds(-1));
}

TEST_F(StorageReaderXTest, WithoutAStubAsksNobodyAndAnswersDefaults) {
    StorageReaderX alone;
    chunk.SetProperty("k", "v");
    EXPECT_EQ(alone.FirstTimePoint(), TimePoint());
    EXPECT_EQ(alone.LastTimePoint(), TimePoint());
    EXPECT_EQ(alone.NextTimePoint(TimePoint::Nanoseconds(3)), TimePoint());
    EXPECT_EQ(alone.PreviousTimePoint(TimePoint::Nanoseconds(3)), TimePoint());
    EXPECT_EQ(alone.GetTrackId(), 0);
    EXPECT_FALSE(alone.GetChunk(chunk, TimePoint(), {}));
    EXPECT_FALSE(alone.GetNextChunk(chunk, TimePoint(), {}));
    EXPECT_FALSE(alone.GetPreviousChunk(chunk, TimePoint(), {}));
    EXPECT_EQ(chunk.GetProperty("k"), "v");
}

TEST_F(StorageReaderXTest, WithoutAStubItsDestructionMakesNoExchange) {
    testing::internal::CaptureStdout();
    { const StorageReaderX alone; }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_THAT(peer.journal, IsEmpty());
}

TEST_F(StorageReaderXTest, DestroyingAReaderWhoseConnectionIsGonePrintsOneLineAndDoesNotThrow) {
    peer.WillThrowOnReceive(SocketDisconnected("The connection is gone"));
    EXPECT_EQ(Destroy(), "Storage seems disconnected: The connection is gone\n");
}

TEST_F(StorageReaderXTest, TheLineOfALostConnectionIsFlushed) {
    peer.WillThrowOnReceive(SocketDisconnected("gone"));
    const Tests::FlushedOutput output;
    reader.reset();
    EXPECT_EQ(output.Get(), "Storage seems disconnected: gone\n");
}

TEST_F(StorageReaderXTest, DestroyingAReaderThatTheServerDoesNotKnowPrintsItsText) {
    peer.WillRefuse("Deleting an invalid remote object");
    EXPECT_EQ(Destroy(),
              "Exception from storage: Exception from server: Deleting an invalid remote "
              "object\n");
}

TEST_F(StorageReaderXTest, DestroyingAReaderSendsItsHandleOnceAndPrintsNothing) {
    EXPECT_EQ(Destroy(), "");
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_Destructor { object_handle: 1 }"));
}

TEST_F(StorageReaderXTest, DestroyingAReaderWhoseConnectionAnswersFalsePrintsNothing) {
    peer.WillFailToSend();
    EXPECT_EQ(Destroy(), "");
}

using StorageReaderXDeathTest = StorageReaderXTest;

TEST_F(StorageReaderXDeathTest, AnExceptionOfAnotherTypeInTheDestructorEndsTheProcess) {
    EXPECT_DEATH(
        {
            peer.WillThrowOnReceive(std::bad_alloc());
            reader.reset();
        },
        "terminate called");
}

TEST_F(StorageReaderXTest, SetReaderDestroysTheFormerStubWithoutAWord) {
    reader->SetReader(MakeStub());
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_Constructor { trackId: 7 }"));
    reader->SetReader(nullptr);
    EXPECT_EQ(reader->GetTrackId(), 0);
    EXPECT_EQ(Destroy(), "");
    EXPECT_EQ(peer.journal.size(), 1U);
}

TEST_F(StorageReaderXTest, GetTrackIdAsksTheServer) {
    peer.WillAnswer("TrackReader_GetTrackId { result: -7 }");
    EXPECT_EQ(reader->GetTrackId(), -7);
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_GetTrackId { object_handle: 1 }"));
}

TEST_F(StorageReaderXTest, NextTimePointConvertsBothWays) {
    peer.WillAnswer("TrackReader_NextTimePoint { nextTimePoint { nanoseconds: 5 } result: true }");
    EXPECT_EQ(reader->NextTimePoint(TimePoint::Nanoseconds(3)), TimePoint::Nanoseconds(5));
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_NextTimePoint { object_handle: 1 timecode { "
                                          "nanoseconds: 3 } }"));
}

TEST_F(StorageReaderXTest, PreviousTimePointConvertsBothWays) {
    peer.WillAnswer(
        "TrackReader_PreviousTimePoint { previousTimePoint { nanoseconds: 2 } result: true }");
    EXPECT_EQ(reader->PreviousTimePoint(TimePoint::Nanoseconds(3)), TimePoint::Nanoseconds(2));
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_PreviousTimePoint { object_handle: 1 "
                                          "timecode { nanoseconds: 3 } }"));
}

TEST_F(StorageReaderXTest, PreviousTimePointIsMinusOneWhenTheServerFindsNone) {
    peer.WillAnswer(
        "TrackReader_PreviousTimePoint { previousTimePoint { nanoseconds: 2 } result: false }");
    EXPECT_EQ(reader->PreviousTimePoint(TimePoint::Nanoseconds(3)), TimePoint::Nanoseconds(-1));
}

TEST_F(StorageReaderXTest, FirstTimePointIsTheNextOneAfterMinusOne) {
    peer.WillAnswer("TrackReader_NextTimePoint { nextTimePoint { nanoseconds: 5 } result: true }");
    EXPECT_EQ(reader->FirstTimePoint(), TimePoint::Nanoseconds(5));
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_NextTimePoint { object_handle: 1 timecode { "
                                          "nanoseconds: 18446744073709551615 } }"));
}

TEST_F(StorageReaderXTest, LastTimePointIsThePreviousOneBeforeTheHighest) {
    peer.WillAnswer(
        "TrackReader_PreviousTimePoint { previousTimePoint { nanoseconds: 9 } result: true }");
    EXPECT_EQ(reader->LastTimePoint(), TimePoint::Nanoseconds(9));
    EXPECT_THAT(peer.journal, ElementsAre("TrackReader_PreviousTimePoint { object_handle: 1 "
                                          "timecode { nanoseconds: 9223372036854775807 } }"));
}

TEST_F(StorageReaderXTest, FirstAndLastTimePointGoThroughWhatADerivedClassOverrides) {
    class Shifted : public StorageReaderX {
      public:
        TimePoint NextTimePoint(TimePoint timePoint) override {
            return timePoint + TimePoint::Nanoseconds(100);
        }
        TimePoint PreviousTimePoint(TimePoint timePoint) override {
            return timePoint - TimePoint::Nanoseconds(100);
        }
    };
    Shifted shifted;
    EXPECT_EQ(shifted.FirstTimePoint(), TimePoint::Nanoseconds(99));
    EXPECT_EQ(shifted.LastTimePoint(),
              TimePoint::GetHighestTimePoint() - TimePoint::Nanoseconds(100));
}

TEST_F(StorageReaderXTest, AFailedExchangeFindsNoTimePoint) {
    peer.WillFailToSend();
    peer.WillFailToReceive();
    EXPECT_EQ(reader->NextTimePoint(TimePoint()), TimePoint::Nanoseconds(-1));
    EXPECT_EQ(reader->PreviousTimePoint(TimePoint()), TimePoint::Nanoseconds(-1));
}

TEST_F(StorageReaderXTest, AFailedExchangeGivesTheTrackZero) {
    peer.WillFailToSend();
    EXPECT_EQ(reader->GetTrackId(), 0);
    peer.WillFailToReceive();
    EXPECT_EQ(reader->GetTrackId(), 0);
}

TEST_F(StorageReaderXTest, WhatTheServerRefusesReachesTheCaller) {
    peer.WillRefuse("The track is gone");
    try {
        reader->GetTrackId();
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Exception from server: The track is gone");
    }
}

// The three chunk operations are alike.
struct ChunkOperation {
    const char* name;
    bool (IStorageReaderX::*call)(DataChunk&, TimePoint, const Keys&);
};

class StorageReaderXChunkTest : public StorageReaderXTest,
                                public testing::WithParamInterface<ChunkOperation> {
  protected:
    bool Read(const Keys& keys = {}) {
        return ((*reader).*GetParam().call)(chunk, TimePoint::Nanoseconds(3), keys);
    }

    static std::string Part(const std::string& fields) {
        return std::string("TrackReader_") + GetParam().name + " { " + fields + " }";
    }
};

TEST_P(StorageReaderXChunkTest, SendsTimePointAndKeysInOrderAndFillsTheChunk) {
    peer.WillAnswer(Part("chunk { timecode { nanoseconds: 4 } } result: true"));
    EXPECT_TRUE(Read({"thumbnail", "image"}));
    EXPECT_EQ(chunk.GetTimePoint(), TimePoint::Nanoseconds(4));
    EXPECT_THAT(peer.journal,
                ElementsAre(Part("object_handle: 1 timecode { nanoseconds: 3 } keys { keys: "
                                 "\"image\" keys: \"thumbnail\" }")));
}

TEST_P(StorageReaderXChunkTest, AnEmptySetOfKeysIsAnEmptyList) {
    Read();
    EXPECT_THAT(peer.journal,
                ElementsAre(Part("object_handle: 1 timecode { nanoseconds: 3 } keys { }")));
}

TEST_P(StorageReaderXChunkTest, WithoutAResultTheChunkIsReplacedAllTheSame) {
    chunk.SetProperty("old", "value");
    EXPECT_FALSE(Read());
    EXPECT_EQ(chunk.GetPropertySize(), 0U);
}

TEST_P(StorageReaderXChunkTest, FillsTheMessageThatTheChunkReferences) {
    Protocol::Chunk message;
    DataChunk referencing;
    Converter::ReferenceFrom(referencing, message);
    peer.WillAnswer(Part("chunk { timecode { nanoseconds: 4 } } result: true"));
    EXPECT_TRUE(((*reader).*GetParam().call)(referencing, TimePoint(), {}));
    EXPECT_EQ(message.timecode().nanoseconds(), 4U);
}

TEST_P(StorageReaderXChunkTest, AFailedExchangeGivesFalseAndLeavesTheChunk) {
    chunk.SetProperty("old", "value");
    peer.WillFailToSend();
    EXPECT_FALSE(Read());
    peer.WillFailToReceive();
    EXPECT_FALSE(Read());
    EXPECT_EQ(chunk.GetProperty("old"), "value");
}

TEST_P(StorageReaderXChunkTest, WhatTheServerRefusesIsThrownAndLeavesTheChunk) {
    chunk.SetProperty("old", "value");
    peer.WillRefuse("no");
    EXPECT_THROW(Read(), std::runtime_error);
    EXPECT_EQ(chunk.GetProperty("old"), "value");
}

INSTANTIATE_TEST_SUITE_P(
    Every, StorageReaderXChunkTest,
    testing::Values(ChunkOperation{"GetChunk", &IStorageReaderX::GetChunk},
                    ChunkOperation{"GetNextChunk", &IStorageReaderX::GetNextChunk},
                    ChunkOperation{"GetPreviousChunk", &IStorageReaderX::GetPreviousChunk}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace Brantel::ProtocolX
