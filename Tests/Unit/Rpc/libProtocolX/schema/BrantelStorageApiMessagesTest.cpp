#include "Unit/Rpc/libProtocolX/schema/SchemaText.h"

#include <BrantelStorageApiMessages.pb.h>

#include <gtest/gtest.h>

#include <string>

namespace BrantelStorageApi {
namespace {

using namespace std::string_literals;

constexpr const char* schema = R"(enum BrantelStorageApi.Operation
  1 CLOSE_CONNECTION
  2 OPERATION_TrackStorage_GetTrackProperties
  3 OPERATION_TrackStorage_GetNumberOfChunks
  4 OPERATION_TrackReader_NextTimePoint
  5 OPERATION_TrackStorage_DeleteTrack
  6 OPERATION_TrackStorage_GetTrackSize
  7 OPERATION_TrackWriter_Append
  8 OPERATION_TrackStorage_GetTrackInfos
  9 OPERATION_TrackReader_Destructor
  10 OPERATION_TrackReader_GetChunk
  11 OPERATION_TrackStorage_RemoveTrackProperties
  12 OPERATION_TrackStorage_GetActiveWorkers
  13 OPERATION_TrackWriter_Destructor
  14 OPERATION_TrackReader_GetTrackId
  15 OPERATION_TrackStorage_GrowTrack
  16 OPERATION_TrackWriter_Constructor
  17 OPERATION_TrackStorage_GetCommandInfo
  18 OPERATION_TrackStorage_GetRemainingSpace
  19 OPERATION_TrackReader_PreviousTimePoint
  20 OPERATION_TrackStorage_GetBeginningOfTrack
  21 OPERATION_TrackReader_Constructor
  22 OPERATION_TrackReader_GetPreviousChunk
  23 OPERATION_TrackStorage_ClearTrack
  24 OPERATION_TrackStorage_GetAccumulatedDuration
  25 OPERATION_TrackStorage_Protect
  26 OPERATION_TrackStorage_GetWorkerInfos
  27 OPERATION_TrackReader_GetNextChunk
  28 OPERATION_TrackWriter_GetTrackId
  29 OPERATION_TrackReader_Wait
  30 OPERATION_TrackStorage_Unprotect
  31 OPERATION_TrackStorage_GetEndOfTrack
  32 OPERATION_TrackStorage_ListProtections
  33 OPERATION_TrackStorage_CreateTrack
  34 OPERATION_TrackStorage_GetOngoingCommands
  35 OPERATION_TrackStorage_SetTrackProperties
  36 OPERATION_TrackStorage_ListTracks
message BrantelStorageApi.Request_TrackStorage_GetTrackProperties
  1 trackId required sfixed64
message BrantelStorageApi.Request_TrackStorage_GetNumberOfChunks
  1 trackId required sfixed64
  2 in required Protocol.TimePoint
  3 out required Protocol.TimePoint
message BrantelStorageApi.Request_TrackReader_NextTimePoint
  1 object_handle required fixed32
  2 timecode required Protocol.TimePoint
message BrantelStorageApi.Request_TrackStorage_DeleteTrack
  1 trackId required sfixed64
message BrantelStorageApi.Request_TrackStorage_GetTrackSize
  1 trackId required sfixed64
message BrantelStorageApi.Request_TrackWriter_Append
  1 object_handle required fixed32
  2 chunk required Protocol.Chunk
message BrantelStorageApi.Request_TrackStorage_GetTrackInfos
  1 trackIds required Protocol.Ids
message BrantelStorageApi.Request_TrackReader_Destructor
  1 object_handle required fixed32
message BrantelStorageApi.Request_TrackReader_GetChunk
  1 object_handle required fixed32
  2 timecode required Protocol.TimePoint
  3 keys required Protocol.KeyList
message BrantelStorageApi.Request_TrackStorage_RemoveTrackProperties
  1 trackId required sfixed64
  2 properties required Protocol.PropertyList
message BrantelStorageApi.Request_TrackStorage_GetActiveWorkers
message BrantelStorageApi.Request_TrackWriter_Destructor
  1 object_handle required fixed32
message BrantelStorageApi.Request_TrackReader_GetTrackId
  1 object_handle required fixed32
message BrantelStorageApi.Request_TrackStorage_GrowTrack
  1 infoIn required Protocol.TrackParameters
message BrantelStorageApi.Request_TrackWriter_Constructor
  1 trackId required sfixed64
message BrantelStorageApi.Request_TrackStorage_GetCommandInfo
  1 commandId required sfixed64
message BrantelStorageApi.Request_TrackStorage_GetRemainingSpace
message BrantelStorageApi.Request_TrackReader_PreviousTimePoint
  1 object_handle required fixed32
  2 timecode required Protocol.TimePoint
message BrantelStorageApi.Request_TrackStorage_GetBeginningOfTrack
  1 trackId required sfixed64
message BrantelStorageApi.Request_TrackReader_Constructor
  1 trackId required sfixed64
message BrantelStorageApi.Request_TrackReader_GetPreviousChunk
  1 object_handle required fixed32
  2 timecode required Protocol.TimePoint
  3 keys required Protocol.KeyList
message BrantelStorageApi.Request_TrackStorage_ClearTrack
  1 trackId required sfixed64
message BrantelStorageApi.Request_TrackStorage_GetAccumulatedDuration
  1 trackId required sfixed64
  2 in required Protocol.TimePoint
  3 out required Protocol.TimePoint
message BrantelStorageApi.Request_TrackStorage_Protect
  1 trackId required sfixed64
  2 timecode required Protocol.TimePoint
  3 duration required Protocol.TimePoint
message BrantelStorageApi.Request_TrackStorage_GetWorkerInfos
  1 workerIds required Protocol.Ids
message BrantelStorageApi.Request_TrackReader_GetNextChunk
  1 object_handle required fixed32
  2 timecode required Protocol.TimePoint
  3 keys required Protocol.KeyList
message BrantelStorageApi.Request_TrackWriter_GetTrackId
  1 object_handle required fixed32
message BrantelStorageApi.Request_TrackReader_Wait
  1 object_handle required fixed32
  2 timecode required Protocol.TimePoint
  3 timeout required sfixed32
message BrantelStorageApi.Request_TrackStorage_Unprotect
  1 protectionId required sfixed64
message BrantelStorageApi.Request_TrackStorage_GetEndOfTrack
  1 trackId required sfixed64
message BrantelStorageApi.Request_TrackStorage_ListProtections
message BrantelStorageApi.Request_TrackStorage_CreateTrack
  1 infoIn required Protocol.TrackParameters
message BrantelStorageApi.Request_TrackStorage_GetOngoingCommands
message BrantelStorageApi.Request_TrackStorage_SetTrackProperties
  1 trackId required sfixed64
  2 properties required Protocol.PropertyList
message BrantelStorageApi.Request_TrackStorage_ListTracks
message BrantelStorageApi.Response_TrackStorage_GetTrackProperties
  1 properties optional Protocol.PropertyList
message BrantelStorageApi.Response_TrackStorage_GetNumberOfChunks
  1 nbChunks optional sfixed64
message BrantelStorageApi.Response_TrackReader_NextTimePoint
  1 nextTimePoint optional Protocol.TimePoint
  2 result optional bool
message BrantelStorageApi.Response_TrackStorage_DeleteTrack
  1 infoOut optional Protocol.TrackParameters
message BrantelStorageApi.Response_TrackStorage_GetTrackSize
  1 trackSize optional sfixed64
message BrantelStorageApi.Response_TrackWriter_Append
message BrantelStorageApi.Response_TrackStorage_GetTrackInfos
  1 trackInfos optional Protocol.TrackInfos
message BrantelStorageApi.Response_TrackReader_Destructor
message BrantelStorageApi.Response_TrackReader_GetChunk
  1 chunk optional Protocol.Chunk
  2 result optional bool
message BrantelStorageApi.Response_TrackStorage_RemoveTrackProperties
message BrantelStorageApi.Response_TrackStorage_GetActiveWorkers
  1 workerIds optional Protocol.Ids
  2 trackIds optional Protocol.Ids
message BrantelStorageApi.Response_TrackWriter_Destructor
message BrantelStorageApi.Response_TrackReader_GetTrackId
  1 result optional sfixed64
message BrantelStorageApi.Response_TrackStorage_GrowTrack
  1 infoOut optional Protocol.TrackParameters
message BrantelStorageApi.Response_TrackWriter_Constructor
  1 object_handle optional fixed32
message BrantelStorageApi.Response_TrackStorage_GetCommandInfo
  1 commandInfo optional Protocol.CommandInfo
message BrantelStorageApi.Response_TrackStorage_GetRemainingSpace
  1 remainingSpace optional sfixed64
message BrantelStorageApi.Response_TrackReader_PreviousTimePoint
  1 previousTimePoint optional Protocol.TimePoint
  2 result optional bool
message BrantelStorageApi.Response_TrackStorage_GetBeginningOfTrack
  1 timecode optional Protocol.TimePoint
message BrantelStorageApi.Response_TrackReader_Constructor
  1 object_handle optional fixed32
message BrantelStorageApi.Response_TrackReader_GetPreviousChunk
  1 chunk optional Protocol.Chunk
  2 result optional bool
message BrantelStorageApi.Response_TrackStorage_ClearTrack
message BrantelStorageApi.Response_TrackStorage_GetAccumulatedDuration
  1 duration optional Protocol.TimePoint
message BrantelStorageApi.Response_TrackStorage_Protect
  1 protectionId optional sfixed64
message BrantelStorageApi.Response_TrackStorage_GetWorkerInfos
  1 workerInfos optional Protocol.WorkerInfos
message BrantelStorageApi.Response_TrackReader_GetNextChunk
  1 chunk optional Protocol.Chunk
  2 result optional bool
message BrantelStorageApi.Response_TrackWriter_GetTrackId
  1 result optional sfixed64
message BrantelStorageApi.Response_TrackReader_Wait
  1 result optional bool
message BrantelStorageApi.Response_TrackStorage_Unprotect
message BrantelStorageApi.Response_TrackStorage_GetEndOfTrack
  1 timecode optional Protocol.TimePoint
message BrantelStorageApi.Response_TrackStorage_ListProtections
  1 protectionInfos optional Protocol.ProtectionInfos
message BrantelStorageApi.Response_TrackStorage_CreateTrack
  1 infoOut optional Protocol.TrackParameters
message BrantelStorageApi.Response_TrackStorage_GetOngoingCommands
  1 commandIds optional Protocol.Ids
message BrantelStorageApi.Response_TrackStorage_SetTrackProperties
message BrantelStorageApi.Response_TrackStorage_ListTracks
  1 list optional Protocol.TrackList
message BrantelStorageApi.Request
  1 operation required BrantelStorageApi.Operation
  2 TrackStorage_GetTrackProperties optional BrantelStorageApi.Request_TrackStorage_GetTrackProperties
  3 TrackStorage_GetNumberOfChunks optional BrantelStorageApi.Request_TrackStorage_GetNumberOfChunks
  4 TrackReader_NextTimePoint optional BrantelStorageApi.Request_TrackReader_NextTimePoint
  5 TrackStorage_DeleteTrack optional BrantelStorageApi.Request_TrackStorage_DeleteTrack
  6 TrackStorage_GetTrackSize optional BrantelStorageApi.Request_TrackStorage_GetTrackSize
  7 TrackWriter_Append optional BrantelStorageApi.Request_TrackWriter_Append
  8 TrackStorage_GetTrackInfos optional BrantelStorageApi.Request_TrackStorage_GetTrackInfos
  9 TrackReader_Destructor optional BrantelStorageApi.Request_TrackReader_Destructor
  10 TrackReader_GetChunk optional BrantelStorageApi.Request_TrackReader_GetChunk
  11 TrackStorage_RemoveTrackProperties optional BrantelStorageApi.Request_TrackStorage_RemoveTrackProperties
  12 TrackStorage_GetActiveWorkers optional BrantelStorageApi.Request_TrackStorage_GetActiveWorkers
  13 TrackWriter_Destructor optional BrantelStorageApi.Request_TrackWriter_Destructor
  14 TrackReader_GetTrackId optional BrantelStorageApi.Request_TrackReader_GetTrackId
  15 TrackStorage_GrowTrack optional BrantelStorageApi.Request_TrackStorage_GrowTrack
  16 TrackWriter_Constructor optional BrantelStorageApi.Request_TrackWriter_Constructor
  17 TrackStorage_GetCommandInfo optional BrantelStorageApi.Request_TrackStorage_GetCommandInfo
  18 TrackStorage_GetRemainingSpace optional BrantelStorageApi.Request_TrackStorage_GetRemainingSpace
  19 TrackReader_PreviousTimePoint optional BrantelStorageApi.Request_TrackReader_PreviousTimePoint
  20 TrackStorage_GetBeginningOfTrack optional BrantelStorageApi.Request_TrackStorage_GetBeginningOfTrack
  21 TrackReader_Constructor optional BrantelStorageApi.Request_TrackReader_Constructor
  22 TrackReader_GetPreviousChunk optional BrantelStorageApi.Request_TrackReader_GetPreviousChunk
  23 TrackStorage_ClearTrack optional BrantelStorageApi.Request_TrackStorage_ClearTrack
  24 TrackStorage_GetAccumulatedDuration optional BrantelStorageApi.Request_TrackStorage_GetAccumulatedDuration
  25 TrackStorage_Protect optional BrantelStorageApi.Request_TrackStorage_Protect
  26 TrackStorage_GetWorkerInfos optional BrantelStorageApi.Request_TrackStorage_GetWorkerInfos
  27 TrackReader_GetNextChunk optional BrantelStorageApi.Request_TrackReader_GetNextChunk
  28 TrackWriter_GetTrackId optional BrantelStorageApi.Request_TrackWriter_GetTrackId
  29 TrackReader_Wait optional BrantelStorageApi.Request_TrackReader_Wait
  30 TrackStorage_Unprotect optional BrantelStorageApi.Request_TrackStorage_Unprotect
  31 TrackStorage_GetEndOfTrack optional BrantelStorageApi.Request_TrackStorage_GetEndOfTrack
  32 TrackStorage_ListProtections optional BrantelStorageApi.Request_TrackStorage_ListProtections
  33 TrackStorage_CreateTrack optional BrantelStorageApi.Request_TrackStorage_CreateTrack
  34 TrackStorage_GetOngoingCommands optional BrantelStorageApi.Request_TrackStorage_GetOngoingCommands
  35 TrackStorage_SetTrackProperties optional BrantelStorageApi.Request_TrackStorage_SetTrackProperties
  36 TrackStorage_ListTracks optional BrantelStorageApi.Request_TrackStorage_ListTracks
message BrantelStorageApi.Response
  1 is_success required bool
  2 exception optional string
  3 error_code optional sfixed32
  4 TrackStorage_GetTrackProperties optional BrantelStorageApi.Response_TrackStorage_GetTrackProperties
  5 TrackStorage_GetNumberOfChunks optional BrantelStorageApi.Response_TrackStorage_GetNumberOfChunks
  6 TrackReader_NextTimePoint optional BrantelStorageApi.Response_TrackReader_NextTimePoint
  7 TrackStorage_DeleteTrack optional BrantelStorageApi.Response_TrackStorage_DeleteTrack
  8 TrackStorage_GetTrackSize optional BrantelStorageApi.Response_TrackStorage_GetTrackSize
  9 TrackWriter_Append optional BrantelStorageApi.Response_TrackWriter_Append
  10 TrackStorage_GetTrackInfos optional BrantelStorageApi.Response_TrackStorage_GetTrackInfos
  11 TrackReader_Destructor optional BrantelStorageApi.Response_TrackReader_Destructor
  12 TrackReader_GetChunk optional BrantelStorageApi.Response_TrackReader_GetChunk
  13 TrackStorage_RemoveTrackProperties optional BrantelStorageApi.Response_TrackStorage_RemoveTrackProperties
  14 TrackStorage_GetActiveWorkers optional BrantelStorageApi.Response_TrackStorage_GetActiveWorkers
  15 TrackWriter_Destructor optional BrantelStorageApi.Response_TrackWriter_Destructor
  16 TrackReader_GetTrackId optional BrantelStorageApi.Response_TrackReader_GetTrackId
  17 TrackStorage_GrowTrack optional BrantelStorageApi.Response_TrackStorage_GrowTrack
  18 TrackWriter_Constructor optional BrantelStorageApi.Response_TrackWriter_Constructor
  19 TrackStorage_GetCommandInfo optional BrantelStorageApi.Response_TrackStorage_GetCommandInfo
  20 TrackStorage_GetRemainingSpace optional BrantelStorageApi.Response_TrackStorage_GetRemainingSpace
  21 TrackReader_PreviousTimePoint optional BrantelStorageApi.Response_TrackReader_PreviousTimePoint
  22 TrackStorage_GetBeginningOfTrack optional BrantelStorageApi.Response_TrackStorage_GetBeginningOfTrack
  23 TrackReader_Constructor optional BrantelStorageApi.Response_TrackReader_Constructor
  24 TrackReader_GetPreviousChunk optional BrantelStorageApi.Response_TrackReader_GetPreviousChunk
  25 TrackStorage_ClearTrack optional BrantelStorageApi.Response_TrackStorage_ClearTrack
  26 TrackStorage_GetAccumulatedDuration optional BrantelStorageApi.Response_TrackStorage_GetAccumulatedDuration
  27 TrackStorage_Protect optional BrantelStorageApi.Response_TrackStorage_Protect
  28 TrackStorage_GetWorkerInfos optional BrantelStorageApi.Response_TrackStorage_GetWorkerInfos
  29 TrackReader_GetNextChunk optional BrantelStorageApi.Response_TrackReader_GetNextChunk
  30 TrackWriter_GetTrackId optional BrantelStorageApi.Response_TrackWriter_GetTrackId
  31 TrackReader_Wait optional BrantelStorageApi.Response_TrackReader_Wait
  32 TrackStorage_Unprotect optional BrantelStorageApi.Response_TrackStorage_Unprotect
  33 TrackStorage_GetEndOfTrack optional BrantelStorageApi.Response_TrackStorage_GetEndOfTrack
  34 TrackStorage_ListProtections optional BrantelStorageApi.Response_TrackStorage_ListProtections
  35 TrackStorage_CreateTrack optional BrantelStorageApi.Response_TrackStorage_CreateTrack
  36 TrackStorage_GetOngoingCommands optional BrantelStorageApi.Response_TrackStorage_GetOngoingCommands
  37 TrackStorage_SetTrackProperties optional BrantelStorageApi.Response_TrackStorage_SetTrackProperties
  38 TrackStorage_ListTracks optional BrantelStorageApi.Response_TrackStorage_ListTracks
)";

TEST(BrantelStorageApiMessagesTest, EveryOperationAndEveryFieldHasItsNumberNameLabelTypeAndPlace) {
    EXPECT_EQ(SchemaText(*Request::descriptor()->file()).Get(), schema);
}

TEST(BrantelStorageApiMessagesTest, FileIsOfPackageBrantelStorageApiAndVersion2) {
    const auto& file = *Request::descriptor()->file();
    EXPECT_EQ(file.name(), "BrantelStorageApiMessages.proto");
    EXPECT_EQ(file.package(), "BrantelStorageApi");
    EXPECT_EQ(file.syntax(), google::protobuf::FileDescriptor::SYNTAX_PROTO2);
    ASSERT_EQ(file.dependency_count(), 1);
    EXPECT_EQ(file.dependency(0)->name(), "CommonMessages.proto");
}

TEST(BrantelStorageApiMessagesTest, OperationNumbersFrom1To36AloneAreValid) {
    EXPECT_FALSE(Operation_IsValid(0));
    for (int number = 1; number <= 36; ++number) {
        EXPECT_TRUE(Operation_IsValid(number)) << number;
    }
    EXPECT_FALSE(Operation_IsValid(37));
    EXPECT_FALSE(Operation_IsValid(-1));
}

TEST(BrantelStorageApiMessagesTest, ARequestForListTracksSerializesAsFiveBytes) {
    Request request;
    request.set_operation(OPERATION_TrackStorage_ListTracks);
    request.mutable_trackstorage_listtracks();
    EXPECT_EQ(request.SerializeAsString(), "\x08\x24\xA2\x02\x00"s);
}

TEST(BrantelStorageApiMessagesTest, AResponseForAppendThatSucceededSerializesAsFourBytes) {
    Response response;
    response.set_is_success(true);
    response.mutable_trackwriter_append();
    EXPECT_EQ(response.SerializeAsString(), "\x08\x01\x4A\x00"s);
}

TEST(BrantelStorageApiMessagesTest, ARequestForGetActiveWorkersCarriesField12AsAZeroLengthMessage) {
    Request request;
    request.set_operation(OPERATION_TrackStorage_GetActiveWorkers);
    request.mutable_trackstorage_getactiveworkers();
    EXPECT_EQ(request.SerializeAsString(), "\x08\x0C\x62\x00"s);
}

TEST(BrantelStorageApiMessagesTest, AFailedCallsResponseHasIsSuccessFalseAndTheText) {
    Response response;
    response.set_is_success(false);
    response.set_exception("no");
    EXPECT_EQ(response.SerializeAsString(), "\x08\x00\x12\x02no"s);
    EXPECT_FALSE(response.has_error_code());
}

TEST(BrantelStorageApiMessagesTest, AResponseWithAnErrorCodeStillParses) {
    Response response;
    ASSERT_TRUE(response.ParseFromString("\x08\x00\x1D\xFE\xFF\xFF\xFF"s));
    EXPECT_EQ(response.error_code(), -2);
}

TEST(BrantelStorageApiMessagesTest, AnUnknownOperationNumberDoesNotParse) {
    Request request;
    EXPECT_FALSE(request.ParseFromString("\x08\x25"s));
    EXPECT_FALSE(request.ParseFromString("\x08\x00"s));
}

TEST(BrantelStorageApiMessagesTest, AClearedRequestReadsAsCloseConnection) {
    EXPECT_EQ(Request().operation(), CLOSE_CONNECTION);
}

}  // namespace
}  // namespace BrantelStorageApi
