#include "Unit/Rpc/libProtocolX/rpc/StubFixture.h"

#include <libProtocolX/rpc/SpareChunk.h>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace BrantelStorageApi {
namespace {

using Brantel::Tests::FromText;
using Brantel::Tests::ToText;

class ClientTrackReaderTest : public StubFixture {
  protected:
    const Protocol::TimePoint timecode = FromText<Protocol::TimePoint>("nanoseconds: 1");
    Protocol::Chunk chunk = FromText<Protocol::Chunk>("timecode { nanoseconds: 42 }");
    bool result = true;
};

TEST_F(ClientTrackReaderTest, GetChunkAgainstResultFalseAndNoChunkLeavesAnEmptyChunk) {
    WillAnswer("is_success: true TrackReader_GetChunk { result: false }");
    stubs.reader->GetChunk(timecode, Protocol::KeyList(), chunk, result);
    EXPECT_FALSE(result);
    EXPECT_EQ(ToText(chunk), "");
}

TEST_F(ClientTrackReaderTest, AChunkIsCopiedWhateverTheResultSays) {
    WillAnswer(
        "is_success: true TrackReader_GetNextChunk "
        "{ chunk { duration { nanoseconds: 5 } } result: false }");
    stubs.reader->GetNextChunk(timecode, Protocol::KeyList(), chunk, result);
    EXPECT_FALSE(result);
    EXPECT_EQ(ToText(chunk), "duration { nanoseconds: 5 }");
}

TEST_F(ClientTrackReaderTest, NothingOfAnEarlierAnswerIsLeftInALaterOne) {
    for (int i = 0; i < 3; ++i) {
        WillAnswer(
            "is_success: true TrackReader_GetChunk { chunk { timecode { nanoseconds: 1 } "
            "properties { items { key: \"a\" value: \"b\" } } "
            "data { items { key: \"c\" value: \"d\" } items { key: \"e\" value: \"\" } } } result: "
            "true }");
        stubs.reader->GetChunk(timecode, Protocol::KeyList(), chunk, result);
        EXPECT_EQ(chunk.data().items_size(), 2);
        WillAnswer(
            "is_success: true TrackReader_GetNextChunk "
            "{ chunk { data { items { key: \"f\" value: \"g\" } } } result: true }");
        stubs.reader->GetNextChunk(timecode, Protocol::KeyList(), chunk, result);
        EXPECT_EQ(ToText(chunk), "data { items { key: \"f\" value: \"g\" } }");
    }
}

TEST_F(ClientTrackReaderTest, ReadingIntoOneChunkUsesItsMemoryAgain) {
    const auto read = [&] {
        WillAnswer(
            "is_success: true TrackReader_GetPreviousChunk { chunk { duration { nanoseconds: 5 } } "
            "result: true }");
        stubs.reader->GetPreviousChunk(timecode, Protocol::KeyList(), chunk, result);
        return &chunk.duration();
    };
    const Protocol::TimePoint* const first = read();
    const Protocol::TimePoint* const second = read();
    EXPECT_NE(first, second);
    EXPECT_EQ(read(), first);
    EXPECT_EQ(read(), second);
}

TEST(SpareChunkTest, AChunkIsKeptEmptyAndGivenToOne) {
    SpareChunk spare;
    EXPECT_EQ(spare.Take(), nullptr);
    auto chunk = std::make_unique<Protocol::Chunk>(
        FromText<Protocol::Chunk>("data { items { key: \"a\" value: \"b\" } }"));
    const Protocol::Chunk* const address = chunk.get();
    spare.Keep(std::move(chunk));
    const auto taken = spare.Take();
    EXPECT_EQ(taken.get(), address);
    EXPECT_EQ(ToText(*taken), "");
    EXPECT_EQ(spare.Take(), nullptr);
}

TEST(SpareChunkTest, AChunkThatWouldKeepTooMuchMemoryIsNotKept) {
    SpareChunk spare;
    auto chunk = std::make_unique<Protocol::Chunk>();
    chunk->mutable_data()->add_items()->set_value(std::string(SpareChunk::limit, 'x'));
    spare.Keep(std::move(chunk));
    EXPECT_EQ(spare.Take(), nullptr);
}

TEST(SpareChunkTest, OfTwoChunksTheLaterIsKept) {
    SpareChunk spare;
    spare.Keep(std::make_unique<Protocol::Chunk>());
    auto later = std::make_unique<Protocol::Chunk>();
    const Protocol::Chunk* const address = later.get();
    spare.Keep(std::move(later));
    EXPECT_EQ(spare.Take().get(), address);
}

TEST_F(ClientTrackReaderTest, WaitWithANegativeTimeOutSendsTheNegativeValueUnchanged) {
    WillAnswer("is_success: true");
    stubs.reader->Wait(timecode, -1, result);
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackReader_Wait TrackReader_Wait "
              "{ object_handle: 1 timecode { nanoseconds: 1 } timeout: -1 }");
}

TEST_F(ClientTrackReaderTest, TheConstructorKeepsTheHandleThatTheServerGaveIt) {
    WillAnswer("is_success: true TrackReader_Constructor { object_handle: 4294967295 }");
    stubs.MakeReader(-5);
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackReader_Constructor "
              "TrackReader_Constructor { trackId: -5 }");
    WillAnswer("is_success: true");
    long trackId = 0;
    stubs.reader->GetTrackId(trackId);
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackReader_GetTrackId "
              "TrackReader_GetTrackId { object_handle: 4294967295 }");
}

TEST_F(ClientTrackReaderTest, AConstructionThatFailedSilentlyLeavesHandle0) {
    connection.WillFailToReceive();
    stubs.MakeReader(5);
    WillAnswer("is_success: false exception: \"Accessing an invalid remote object\"");
    long trackId = 7;
    EXPECT_THROW(stubs.reader->GetTrackId(trackId), std::runtime_error);
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackReader_GetTrackId "
              "TrackReader_GetTrackId { object_handle: 0 }");
    EXPECT_EQ(trackId, 7);
}

TEST_F(ClientTrackReaderTest, AConstructionThatIsRefusedThrowsAndNothingMoreIsSent) {
    WillAnswer("is_success: false exception: \"no such track: 5\"");
    try {
        ClientTrackReader refused(connection, stubs.client.GetMutex(), 5);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Exception from server: no such track: 5");
    }
    EXPECT_EQ(connection.sent.size(), 1U);
}

TEST_F(ClientTrackReaderTest, AfterDestroyOnServerTheHandleIsSentAllTheSame) {
    WillAnswer("is_success: true");
    stubs.reader->DestroyOnServer();
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackReader_Destructor "
              "TrackReader_Destructor { object_handle: 1 }");
    WillAnswer("is_success: false exception: \"Accessing an invalid remote object\"");
    try {
        stubs.reader->NextTimePoint(timecode, *chunk.mutable_timecode(), result);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Exception from server: Accessing an invalid remote object");
    }
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackReader_NextTimePoint TrackReader_NextTimePoint "
              "{ object_handle: 1 timecode { nanoseconds: 1 } }");
}

TEST_F(ClientTrackReaderTest, DestroyingAClientTrackReaderSendsNothing) {
    stubs.reader.reset();
    EXPECT_TRUE(connection.sent.empty());
    EXPECT_EQ(connection.received, 0U);
}

}  // namespace
}  // namespace BrantelStorageApi
