// A service behind real sockets: with the stubs at the other end, or with bytes that no stub sends.
#include "Support/Frames.h"
#include "Support/OperationTable.h"
#include "Support/RecordingObjects.h"
#include "Support/SocketPair.h"
#include "Support/Text.h"

#include <libProtocolX/rpc/Service.h>
#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/SocketDisconnected.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace BrantelStorageApi {
namespace {

using Brantel::Services::FileDescriptorServiceConnection;
using Brantel::Tests::Frame;
using Brantel::Tests::FrameOf;
using Brantel::Tests::FromText;
using Brantel::Tests::SocketPair;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

constexpr std::size_t answerLimit = 1000;

// The properties of some tracks make an answer that can't be sent.
class OddStorage : public RecordingStorage {
  public:
    enum Track : long { tooLong = 1, incomplete = 2, incompleteAndFailed = 3 };

    using RecordingStorage::RecordingStorage;
    void GetTrackProperties(const long& trackId, Protocol::PropertyList& properties) override {
        if (trackId > incompleteAndFailed) {
            RecordingStorage::GetTrackProperties(trackId, properties);
            return;
        }
        auto& item = *properties.add_items();
        item.set_key("k");
        if (trackId == tooLong) {
            item.set_value(std::string(answerLimit, 'x'));
        }
        if (trackId == incompleteAndFailed) {
            throw std::runtime_error("the disk is gone");
        }
    }
};

// A service on its own thread, and stubs on a connection to it.
class ConversationTest : public testing::Test {
  protected:
    ConversationTest() {
        server = std::thread([this] {
            FileDescriptorServiceConnection accepted(pair.near.Take(), answerLimit);
            service.Handle(accepted);
        });
        stubs.MakeReader(1);
        stubs.MakeWriter(2);
    }
    ~ConversationTest() override { EndServer(); }

    void EndServer() {
        if (server.joinable()) {
            connection.Send(FromText<Request>("operation: CLOSE_CONNECTION"));
            server.join();
        }
    }

    // What asking for the properties of a track throws.
    std::string RefusalOf(OddStorage::Track track) {
        Protocol::PropertyList properties;
        try {
            stubs.Storage().GetTrackProperties(track, properties);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "nothing thrown";
    }
    void ExpectThatTheNextCallIsServed() {
        long trackSize = 0;
        stubs.Storage().GetTrackSize(1, trackSize);
        EXPECT_EQ(trackSize, 52);
    }

    SocketPair pair;
    Journal journal;
    Service service{std::make_unique<OddStorage>(journal),
                    std::make_unique<RecordingReaderFactory>(journal),
                    std::make_unique<RecordingWriterFactory>(journal)};
    FileDescriptorServiceConnection connection{::dup(pair.far.Get())};
    std::thread server;
    Stubs stubs{connection};
};

TEST_F(ConversationTest, EveryOperationReachesTheServersObjectAndItsResultsComeBack) {
    for (const OperationRow& row : OperationTable()) {
        SCOPED_TRACE(row.name);
        Outputs out(false);
        row.stub(stubs, out);
        EXPECT_EQ(journal.Calls().back(), row.call);
        EXPECT_EQ(out.Changes(), row.outputs);
    }
}

TEST_F(ConversationTest, AnAnswerOverTheLimitIsAFailureWithTheReasonAndTheNextCallIsServed) {
    EXPECT_THAT(RefusalOf(OddStorage::tooLong),
                AllOf(StartsWith("Exception from server: Message of 10"),
                      EndsWith(" bytes is over the limit of 1000 bytes")));
    ExpectThatTheNextCallIsServed();
}

TEST_F(ConversationTest, AnAnswerThatLacksFieldsIsAFailureThatNamesThem) {
    EXPECT_EQ(RefusalOf(OddStorage::incomplete),
              "Exception from server: The response lacks required fields: "
              "TrackStorage_GetTrackProperties.properties.items[0].value");
    ExpectThatTheNextCallIsServed();
}

TEST_F(ConversationTest, AnObjectThatThrowsHalfWayThroughAnOutputIsAnsweredWithItsText) {
    EXPECT_EQ(RefusalOf(OddStorage::incompleteAndFailed),
              "Exception from server: the disk is gone");
    ExpectThatTheNextCallIsServed();
}

TEST_F(ConversationTest, NoCallOnADeadConnectionLooksLikeASuccess) {
    EndServer();
    for (const OperationRow& row : OperationTable()) {
        SCOPED_TRACE(row.name);
        Outputs out;
        EXPECT_THROW(row.stub(stubs, out), SocketDisconnected);
        EXPECT_EQ(out.Changes(), "");
    }
}

// A service that is sent bytes.
class ServedBytesTest : public testing::Test {
  protected:
    // What it answers to these bytes, after which nothing more comes.
    std::string Serve(const std::string& bytes) {
        SocketPair pair;
        FileDescriptorServiceConnection accepted(pair.near.Take());
        pair.far.Write(bytes);
        pair.far.FinishWriting();
        service.Handle(accepted);
        accepted.Close();
        return pair.far.Read(10'000);
    }

    Journal journal;
    Service service{std::make_unique<RecordingStorage>(journal), nullptr, nullptr};
    const std::string request = Frame(
        FromText<Request>("operation: OPERATION_TrackStorage_ClearTrack TrackStorage_ClearTrack "
                          "{ trackId: 3 }"));
    const std::string answer =
        Frame(FromText<Response>("is_success: true TrackStorage_ClearTrack { }"));
};

TEST_F(ServedBytesTest, AnUnknownOperationNumberOnTheWireEndsTheConnectionAndServesNothing) {
    using namespace std::string_literals;
    for (const std::string& unknown : {"\x08\x00"s, "\x08\x25"s, "\x08\x80\x01"s}) {
        journal.Clear();
        EXPECT_EQ(Serve(request + FrameOf(unknown) + request), answer);
        EXPECT_THAT(journal.Calls(), ElementsAre("storage.ClearTrack(3)"));
    }
}

TEST_F(ServedBytesTest, AnUnknownOperationNumberBesideAPartServesNothingOfIt) {
    EXPECT_EQ(Serve(FrameOf("\x08\x25\xBA\x01\x09\x09" + std::string(8, '\x03'))), "");
    EXPECT_THAT(journal.Calls(), IsEmpty());
}

TEST_F(ServedBytesTest, ARequestThatLacksRequiredFieldsEndsTheConnectionAndServesNothing) {
    const auto lacking = FromText<Request>(
        "operation: OPERATION_TrackStorage_ClearTrack TrackStorage_ClearTrack { }");
    EXPECT_EQ(Serve(FrameOf(lacking.SerializePartialAsString()) + request), "");
    EXPECT_THAT(journal.Calls(), IsEmpty());
}

TEST_F(ServedBytesTest, HalfARequestAndTheEndServesNothing) {
    for (std::size_t cut = 0; cut < request.size(); ++cut) {
        EXPECT_EQ(Serve(request.substr(0, cut)), "") << cut;
    }
    EXPECT_THAT(journal.Calls(), IsEmpty());
}

}  // namespace
}  // namespace BrantelStorageApi
