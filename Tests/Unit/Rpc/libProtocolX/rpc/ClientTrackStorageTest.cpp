#include "Unit/Rpc/libProtocolX/rpc/StubFixture.h"

#include <gtest/gtest.h>

#include <string>

namespace BrantelStorageApi {
namespace {

using Brantel::Tests::FromText;
using Brantel::Tests::ToText;

using ClientTrackStorageTest = StubFixture;

TEST_F(ClientTrackStorageTest, GetTrackSizeAgainstSuccessWithoutASubMessageSetsTheLongTo0) {
    WillAnswer("is_success: true");
    long trackSize = 42;
    stubs.Storage().GetTrackSize(1, trackSize);
    EXPECT_EQ(trackSize, 0);
}

TEST_F(ClientTrackStorageTest, GetActiveWorkersFillsBothOutputsEachReplacedWhole) {
    WillAnswer(
        "is_success: true TrackStorage_GetActiveWorkers "
        "{ workerIds { ids: 1 ids: 2 } trackIds { ids: 3 } }");
    auto workerIds = FromText<Protocol::Ids>("ids: 7 ids: 8 ids: 9");
    auto trackIds = FromText<Protocol::Ids>("ids: 7 ids: 8 ids: 9");
    stubs.Storage().GetActiveWorkers(workerIds, trackIds);
    EXPECT_EQ(ToText(workerIds), "ids: 1 ids: 2");
    EXPECT_EQ(ToText(trackIds), "ids: 3");
}

TEST_F(ClientTrackStorageTest, TheBoundsOfAnIntervalAreNotExchanged) {
    const auto in = FromText<Protocol::TimePoint>("nanoseconds: 1");
    const auto out = FromText<Protocol::TimePoint>("nanoseconds: 2");
    long nbChunks = 0;
    Protocol::TimePoint duration;
    WillAnswer("is_success: true");
    stubs.Storage().GetNumberOfChunks(5, in, out, nbChunks);
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackStorage_GetNumberOfChunks TrackStorage_GetNumberOfChunks "
              "{ trackId: 5 in { nanoseconds: 1 } out { nanoseconds: 2 } }");
    WillAnswer("is_success: true");
    stubs.Storage().GetAccumulatedDuration(5, in, out, duration);
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackStorage_GetAccumulatedDuration "
              "TrackStorage_GetAccumulatedDuration "
              "{ trackId: 5 in { nanoseconds: 1 } out { nanoseconds: 2 } }");
}

TEST_F(ClientTrackStorageTest, ProtectSendsTheTimePointAndThenTheDuration) {
    long protectionId = 0;
    WillAnswer("is_success: true");
    stubs.Storage().Protect(5, FromText<Protocol::TimePoint>("nanoseconds: 1"),
                            FromText<Protocol::TimePoint>("nanoseconds: 2"), protectionId);
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackStorage_Protect TrackStorage_Protect "
              "{ trackId: 5 timecode { nanoseconds: 1 } duration { nanoseconds: 2 } }");
}

TEST_F(ClientTrackStorageTest, NegativeIdentifiersAndSizesTravelUnchanged) {
    WillAnswer("is_success: true TrackStorage_GetTrackSize { trackSize: -3 }");
    long trackSize = 0;
    stubs.Storage().GetTrackSize(-9223372036854775807L - 1, trackSize);
    EXPECT_EQ(trackSize, -3);
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackStorage_GetTrackSize "
              "TrackStorage_GetTrackSize { trackId: -9223372036854775808 }");
}

TEST_F(ClientTrackStorageTest, ListTracksSendsFiveBytes) {
    WillAnswer("is_success: true");
    Protocol::TrackList list;
    stubs.Storage().ListTracks(list);
    EXPECT_EQ(connection.sent[0], std::string("\x08\x24\xA2\x02\x00", 5));
}

}  // namespace
}  // namespace BrantelStorageApi
