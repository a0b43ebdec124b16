#include "Unit/Rpc/libProtocolX/rpc/StubFixture.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/MessageNotSendable.h>

#include <google/protobuf/arena.h>
#include <gtest/gtest.h>

#include <sys/socket.h>

#include <stdexcept>
#include <string>

namespace BrantelStorageApi {
namespace {

using Brantel::Tests::FromText;
using Brantel::Tests::ToText;

// Messages go out and come in without a copy; what the caller sees is as if they were copied.
class ExchangeLoanTest : public StubFixture {
  protected:
    static constexpr const char* chunkText =
        R"(timecode { nanoseconds: 1 } data { items { key: "image" value: "0123456789abcdef!" } })";
    Protocol::Chunk chunk = FromText<Protocol::Chunk>(chunkText);
    Protocol::TimePoint timePoint = FromText<Protocol::TimePoint>("nanoseconds: 1");
    bool result = false;
};

TEST_F(ExchangeLoanTest, AnAppendedChunkIsSentAsItLiesInTheCallersMemory) {
    const void* sent = nullptr;
    connection.OnSend([&](const auto& message) {
        sent = &dynamic_cast<const Request&>(message).trackwriter_append().chunk();
        return true;
    });
    WillAnswer("is_success: true");
    stubs.writer->Append(chunk);
    EXPECT_EQ(sent, &chunk);
    EXPECT_EQ(ToText(chunk), chunkText);
}

TEST_F(ExchangeLoanTest, AReceivedChunkIsHandedOverWithItsMemory) {
    const char* received = nullptr;
    connection.OnReceive([&](auto& message) {
        auto& response = dynamic_cast<Response&>(message);
        response.set_is_success(true);
        auto& answer = *response.mutable_trackreader_getchunk()->mutable_chunk();
        answer = chunk;
        received = answer.data().items(0).value().data();
        return true;
    });
    Protocol::Chunk out;
    stubs.reader->GetChunk(timePoint, Protocol::KeyList(), out, result);
    EXPECT_EQ(out.data().items(0).value().data(), received);
}

TEST_F(ExchangeLoanTest, AMessageStaysTheCallersWhenTheSendThrows) {
    connection.WillThrowOnSend(std::runtime_error("lost"));
    EXPECT_THROW(stubs.writer->Append(chunk), std::runtime_error);
    EXPECT_EQ(ToText(chunk), chunkText);
}

TEST_F(ExchangeLoanTest, AMessageStaysTheCallersWhenTheServerRefuses) {
    WillAnswer("is_success: false");
    EXPECT_THROW(stubs.writer->Append(chunk), std::runtime_error);
    EXPECT_EQ(ToText(chunk), chunkText);
}

TEST_F(ExchangeLoanTest, AMessageStaysTheCallersWhenTheMutexCannotBeLocked) {
    auto& kind = stubs.client.GetMutex().NativeHandle().__data.__kind;
    kind = 0x7f;
    EXPECT_THROW(stubs.writer->Append(chunk), std::runtime_error);
    kind = PTHREAD_MUTEX_DEFAULT;
    EXPECT_EQ(ToText(chunk), chunkText);
}

TEST_F(ExchangeLoanTest, AChunkThatLacksRequiredFieldsIsRefusedAndStaysTheCallers) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    Brantel::Services::FileDescriptorServiceConnection server(ends[1]);
    Brantel::Services::FileDescriptorServiceConnection socket(ends[0]);
    Stubs real(socket);
    server.Send(FromText<Response>("is_success: true TrackWriter_Constructor { }"));
    real.MakeWriter(1);
    chunk.mutable_properties()->add_items()->set_value("without key");
    EXPECT_THROW(real.writer->Append(chunk), Brantel::Services::MessageNotSendable);
    EXPECT_EQ(chunk.properties().items(0).value(), "without key");
    chunk.mutable_properties()->mutable_items(0)->set_key("k");
    server.Send(FromText<Response>("is_success: true"));
    EXPECT_NO_THROW(real.writer->Append(chunk)) << "nothing was written for the refused one";
}

TEST_F(ExchangeLoanTest, TheDefaultInstanceCanBeSent) {
    WillAnswer("is_success: true");
    stubs.writer->Append(Protocol::Chunk::default_instance());
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackWriter_Append "
              "TrackWriter_Append { object_handle: 2 chunk { } }");
}

TEST_F(ExchangeLoanTest, OneMessageCanBeSentInTwoFields) {
    WillAnswer("is_success: true TrackStorage_GetAccumulatedDuration { duration { } }");
    Protocol::TimePoint duration;
    stubs.Storage().GetAccumulatedDuration(1, timePoint, timePoint, duration);
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackStorage_GetAccumulatedDuration "
              "TrackStorage_GetAccumulatedDuration "
              "{ trackId: 1 in { nanoseconds: 1 } out { nanoseconds: 1 } }");
    EXPECT_EQ(timePoint.nanoseconds(), 1U);
}

TEST_F(ExchangeLoanTest, TheSameMessageCanBeArgumentAndResult) {
    WillAnswer("is_success: true TrackStorage_GrowTrack { infoOut { commandId: 3 } }");
    auto info = FromText<Protocol::TrackParameters>("id: 1 size: 2");
    stubs.Storage().GrowTrack(info, info);
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackStorage_GrowTrack "
              "TrackStorage_GrowTrack { infoIn { id: 1 size: 2 } }");
    EXPECT_EQ(ToText(info), "commandId: 3");

    WillAnswer("is_success: true TrackReader_NextTimePoint { nextTimePoint { nanoseconds: 9 } }");
    stubs.reader->NextTimePoint(timePoint, timePoint, result);
    EXPECT_EQ(timePoint.nanoseconds(), 9U);
}

TEST_F(ExchangeLoanTest, TheSameMessageCanBeArgumentAndResultOfACallThatFails) {
    auto info = FromText<Protocol::TrackParameters>("id: 1 size: 2");
    connection.WillFailToReceive();
    stubs.Storage().CreateTrack(info, info);
    EXPECT_EQ(ToText(info), "id: 1 size: 2");
}

TEST_F(ExchangeLoanTest, TheSameNumberCanBeArgumentAndResult) {
    WillAnswer("is_success: true TrackStorage_GetTrackSize { trackSize: 7 }");
    long number = 5;
    stubs.Storage().GetTrackSize(number, number);
    EXPECT_EQ(number, 7);
}

TEST_F(ExchangeLoanTest, TheLaterOfTwoResultsStaysWhenBothGoToOneMessage) {
    WillAnswer(
        "is_success: true TrackStorage_GetActiveWorkers "
        "{ workerIds { ids: 1 } trackIds { ids: 2 } }");
    Protocol::Ids ids;
    stubs.Storage().GetActiveWorkers(ids, ids);
    EXPECT_EQ(ToText(ids), "ids: 2");
}

TEST_F(ExchangeLoanTest, MessagesOnAnArenaCanBeArguments) {
    google::protobuf::Arena arena;
    auto& onArena = *google::protobuf::Arena::CreateMessage<Protocol::Chunk>(&arena);
    onArena = chunk;
    WillAnswer("is_success: true");
    stubs.writer->Append(onArena);
    Request request;
    ASSERT_TRUE(request.ParseFromString(connection.sent[0]));
    EXPECT_EQ(ToText(request.trackwriter_append().chunk()), chunkText);
    EXPECT_EQ(ToText(onArena), chunkText);
}

TEST_F(ExchangeLoanTest, MessagesOnAnArenaCanBeResults) {
    google::protobuf::Arena arena;
    auto& onArena = *google::protobuf::Arena::CreateMessage<Protocol::Chunk>(&arena);
    onArena.mutable_duration()->set_nanoseconds(5);
    WillAnswer("is_success: true TrackReader_GetChunk { result: true chunk { " +
               std::string(chunkText) + " } }");
    stubs.reader->GetChunk(timePoint, Protocol::KeyList(), onArena, result);
    EXPECT_EQ(ToText(onArena), chunkText);
    EXPECT_EQ(onArena.GetArena(), &arena);
}

TEST_F(ExchangeLoanTest, FieldsThatThisSchemaDoesNotKnowTravelBothWays) {
    timePoint.mutable_unknown_fields()->AddVarint(100, 7);
    connection.OnReceive([this](auto& message) {
        auto& response = dynamic_cast<Response&>(message);
        response.set_is_success(true);
        *response.mutable_trackreader_nexttimepoint()->mutable_nexttimepoint() = timePoint;
        return true;
    });
    Protocol::TimePoint next;
    stubs.reader->NextTimePoint(timePoint, next, result);
    Request request;
    ASSERT_TRUE(request.ParseFromString(connection.sent[0]));
    EXPECT_EQ(request.trackreader_nexttimepoint().timecode().unknown_fields().field_count(), 1);
    EXPECT_EQ(next.unknown_fields().field_count(), 1);
}

}  // namespace
}  // namespace BrantelStorageApi
