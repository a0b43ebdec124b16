// A client or a server that ran out of memory while it parsed a message was ended by a null
// pointer: the message said that it had the part that it had got no memory for, and was cleared.

#include "Support/FailingSystem.h"
#include "Support/Frames.h"
#include "Support/SocketPair.h"
#include "Support/Text.h"

#include <BrantelStorageApiMessages.pb.h>
#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/SocketDisconnected.h>

#include <gtest/gtest.h>

#include <string>

namespace BrantelStorageApi {
namespace {

using Brantel::Services::FileDescriptorServiceConnection;
using Brantel::Tests::FailingAllocation;
using Brantel::Tests::Frame;
using Brantel::Tests::FromText;
using Brantel::Tests::SocketPair;
using Brantel::Tests::ToText;

class AMessageWithoutMemoryForItsPartTest : public testing::Test {
  protected:
    // Receives the message, whose allocation after so many fails: what was thrown, or "".
    static std::string ReceiveWithout(int successes, const Request& sent, Request& received) {
        SocketPair pair;
        FileDescriptorServiceConnection connection(pair.near.Take());
        pair.far.Write(Frame(sent));
        try {
            const FailingAllocation failing(successes);
            connection.Receive(received);
        } catch (const SocketDisconnected& error) {
            return error.what();
        }
        return "";
    }

    // Every allocation of it fails once; the message is empty afterwards and can be used again.
    static void ExpectEmptied(const std::string& text) {
        const auto sent = FromText<Request>(text);
        Request received;
        int failures = 0;
        for (std::string thrown = "none yet"; !thrown.empty(); ++failures) {
            received = Request();
            thrown = ReceiveWithout(failures, sent, received);
            if (!thrown.empty()) {
                EXPECT_EQ(thrown, "Connection lost in the middle of a message: std::bad_alloc");
                EXPECT_EQ(ToText(received), "");
                received.Clear();
                received.MergeFrom(sent);
            }
            EXPECT_EQ(received.SerializeAsString(), sent.SerializeAsString());
        }
        EXPECT_GT(failures, 1);
    }
};

TEST_F(AMessageWithoutMemoryForItsPartTest, IsEmptiedWhenThePartIsMissing) {
    ExpectEmptied(
        "operation: OPERATION_TrackStorage_ClearTrack TrackStorage_ClearTrack { trackId: 1 }");
}

TEST_F(AMessageWithoutMemoryForItsPartTest, IsEmptiedWhenAPartOfThePartIsMissing) {
    ExpectEmptied(
        "operation: OPERATION_TrackWriter_Append TrackWriter_Append { object_handle: 1 chunk { "
        "timecode { nanoseconds: 1 } duration { nanoseconds: 1 } } }");
}

}  // namespace
}  // namespace BrantelStorageApi
