#include "Unit/Rpc/libProtocolX/rpc/StubFixture.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace BrantelStorageApi {
namespace {

using ClientTrackWriterTest = StubFixture;

TEST_F(ClientTrackWriterTest, AWriterWhoseServerRefusesTheConstructionThrowsFromItsConstructor) {
    WillAnswer("is_success: false exception: \"track 5 has a writer\"");
    try {
        ClientTrackWriter refused(connection, stubs.client.GetMutex(), 5);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Exception from server: track 5 has a writer");
    }
    EXPECT_EQ(connection.sent.size(), 1U) << "nothing needs destroying on the server";
}

TEST_F(ClientTrackWriterTest, AConstructionThatFailedSilentlyLeavesHandle0) {
    connection.WillFailToSend();
    stubs.MakeWriter(5);
    WillAnswer("is_success: true");
    stubs.writer->Append(Protocol::Chunk());
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackWriter_Append "
              "TrackWriter_Append { object_handle: 0 chunk { } }");
}

TEST_F(ClientTrackWriterTest, AppendStillThrowsWhenTheServerReportsAFailure) {
    WillAnswer("is_success: false exception: \"full\"");
    EXPECT_THROW(stubs.writer->Append(Protocol::Chunk()), std::runtime_error);
}

TEST_F(ClientTrackWriterTest, AfterDestroyOnServerTheHandleIsSentAllTheSame) {
    WillAnswer("is_success: true");
    stubs.writer->DestroyOnServer();
    EXPECT_EQ(Sent(),
              "operation: OPERATION_TrackWriter_Destructor "
              "TrackWriter_Destructor { object_handle: 2 }");
    WillAnswer("is_success: true TrackWriter_GetTrackId { result: 3 }");
    long trackId = 0;
    stubs.writer->GetTrackId(trackId);
    EXPECT_EQ(trackId, 3);
}

TEST_F(ClientTrackWriterTest, DestroyingAClientTrackWriterSendsNothing) {
    stubs.writer.reset();
    EXPECT_TRUE(connection.sent.empty());
    EXPECT_EQ(connection.received, 0U);
}

}  // namespace
}  // namespace BrantelStorageApi
