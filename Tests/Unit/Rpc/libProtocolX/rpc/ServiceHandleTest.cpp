#include "Unit/Rpc/libProtocolX/rpc/ServiceFixture.h"

#include <libProtocolX/rpc/IChunkTaker.h>
#include <libServices/MessageNotSendable.h>
#include <libServices/SocketDisconnected.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace BrantelStorageApi {
namespace {

using Brantel::Services::MessageNotSendable;
using Brantel::Tests::FromText;
using Brantel::Tests::ScriptedConnection;
using Brantel::Tests::ToText;
using testing::ElementsAre;
using testing::IsEmpty;

class ServiceHandleTest : public ServiceFixture {
  protected:
    void WillReceive(const std::string& request) {
        connection.WillReceive(FromText<Request>(request));
    }

    // The responses that were sent, as text.
    std::vector<std::string> Sent() const {
        std::vector<std::string> texts;
        for (const std::string& bytes : connection.sent) {
            Response response;
            response.ParsePartialFromString(bytes);
            texts.push_back(ToText(response));
        }
        return texts;
    }

    static constexpr const char* clear =
        "operation: OPERATION_TrackStorage_ClearTrack TrackStorage_ClearTrack { trackId: 3 }";
    static constexpr const char* cleared = "is_success: true TrackStorage_ClearTrack { }";
    static constexpr const char* size = "operation: OPERATION_TrackStorage_GetTrackSize";
    static constexpr const char* close = "operation: CLOSE_CONNECTION";

    ScriptedConnection connection;
};

TEST_F(ServiceHandleTest, ACloseConnectionRequestEndsHandleWithoutAnyReply) {
    WillReceive(close);
    WillReceive(clear);
    service->Handle(connection);
    EXPECT_EQ(connection.received, 1U);
    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_THAT(journal.Calls(), IsEmpty());
}

TEST_F(ServiceHandleTest, AReplyIsSentForEveryOtherRequest) {
    for (const OperationRow& row : OperationTable()) {
        connection.WillReceive(RequestOf(row));
    }
    WillReceive(close);
    service->Handle(connection);
    EXPECT_EQ(connection.sent.size(), OperationTable().size());
}

// No connection of ours lets such a number through; another may.
TEST_F(ServiceHandleTest, AReplyIsSentForAnUnknownOperationValue) {
    for (const int number : {0, 37, -1, 1000}) {
        connection.OnReceive([number](google::protobuf::Message& message) {
            auto& request = dynamic_cast<Request&>(message);
            request.set_operation(OPERATION_TrackStorage_ListTracks);
            SetRawOperation(request, number);
            return true;
        });
    }
    WillReceive(close);
    service->Handle(connection);
    EXPECT_THAT(Sent(), testing::AllOf(testing::SizeIs(4),
                                       testing::Each(Failure("Unknown service operation"))));
    EXPECT_THAT(journal.Calls(), IsEmpty());
}

TEST_F(ServiceHandleTest, RequestsAreServedOneAfterTheOther) {
    WillReceive(clear);
    connection.OnReceive([this](google::protobuf::Message& message) {
        EXPECT_EQ(connection.sent.size(), 1U) << "answered before the next is received";
        return message.ParseFromString(FromText<Request>(size).SerializeAsString());
    });
    WillReceive(close);
    service->Handle(connection);
    EXPECT_THAT(
        Sent(),
        ElementsAre(cleared, "is_success: true TrackStorage_GetTrackSize { trackSize: 52 }"));
}

TEST_F(ServiceHandleTest, AReceiveThatAnswersFalseEndsHandleQuietly) {
    WillReceive(clear);
    connection.WillFailToReceive();
    WillReceive(clear);
    service->Handle(connection);
    EXPECT_THAT(Sent(), ElementsAre(cleared));
}

TEST_F(ServiceHandleTest, AReceiveThatAnswersFalseWithAHalfReadRequestServesNothing) {
    connection.OnReceive([](google::protobuf::Message& message) {
        message.ParseFromString(FromText<Request>(clear).SerializeAsString());
        return false;
    });
    service->Handle(connection);
    EXPECT_THAT(journal.Calls(), IsEmpty());
}

TEST_F(ServiceHandleTest, ARuntimeErrorOfTheReceiveEndsHandleQuietly) {
    connection.WillThrowOnReceive(SocketDisconnected("gone"));
    WillReceive(clear);
    EXPECT_NO_THROW(service->Handle(connection));
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(ServiceHandleTest, ARuntimeErrorOfTheSendEndsHandleQuietly) {
    WillReceive(clear);
    WillReceive(clear);
    connection.WillThrowOnSend(std::runtime_error("broken"));
    EXPECT_NO_THROW(service->Handle(connection));
    EXPECT_EQ(connection.sent.size(), 1U);
    EXPECT_EQ(connection.received, 1U);
}

TEST_F(ServiceHandleTest, ASendThatAnswersFalseIsFollowedByTheNextReceive) {
    WillReceive(clear);
    connection.WillFailToSend();
    WillReceive(size);
    service->Handle(connection);
    EXPECT_EQ(connection.sent.size(), 2U);
}

TEST_F(ServiceHandleTest, AnExceptionOfAnotherTypeLeavesHandle) {
    connection.WillThrowOnReceive(std::logic_error("bug"));
    EXPECT_THROW(service->Handle(connection), std::logic_error);
    connection.WillReceive(FromText<Request>(clear));
    connection.WillThrowOnSend(std::logic_error("bug"));
    EXPECT_THROW(service->Handle(connection), std::logic_error);
    connection.WillReceive(FromText<Request>(clear));
    journal.FailWith([] { throw 42; });
    EXPECT_THROW(service->Handle(connection), int);
}

// What a derived service does with a request.
class WrappingService : public OpenService {
  public:
    using OpenService::OpenService;
    void ServeRequest(const Request& request, Response& response) override {
        before(request, response);
        OpenService::ServeRequest(request, response);
        after(response);
    }
    std::function<void(const Request&, const Response&)> before = [](auto&, auto&) {};
    std::function<void(Response&)> after = [](auto&) {};
};

class WrappedServiceTest : public ServiceHandleTest {
  protected:
    WrappingService wrapping{std::make_unique<RecordingStorage>(journal),
                             std::make_unique<RecordingReaderFactory>(journal),
                             std::make_unique<RecordingWriterFactory>(journal)};
};

TEST_F(WrappedServiceTest, HandleCallsTheServeRequestOfADerivedService) {
    int requests = 0;
    wrapping.before = [&](const Request&, const Response&) { ++requests; };
    WillReceive(clear);
    WillReceive(size);
    wrapping.Handle(connection);
    EXPECT_EQ(requests, 2);
}

TEST_F(WrappedServiceTest, ARuntimeErrorOfServeRequestEndsHandleQuietly) {
    wrapping.before = [](auto&, auto&) { throw std::runtime_error("enough"); };
    WillReceive(clear);
    WillReceive(clear);
    EXPECT_NO_THROW(wrapping.Handle(connection));
    EXPECT_EQ(connection.received, 1U);
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(WrappedServiceTest, NothingOfOneRequestIsCarriedIntoTheNext) {
    std::vector<std::string> requests;
    wrapping.before = [&](const Request& request, const Response& response) {
        requests.push_back(ToText(request));
        EXPECT_EQ(ToText(response), "");
    };
    connection.WillReceive(FromText<Request>(clear));
    // A connection that only adds to the message that it is given.
    connection.OnReceive([](google::protobuf::Message& message) {
        return message.MergeFromString(FromText<Request>(size).SerializeAsString());
    });
    wrapping.Handle(connection);
    EXPECT_THAT(requests, ElementsAre(clear, size));
}

TEST_F(WrappedServiceTest, TheSameTwoMessagesServeTheWholeConnection) {
    std::vector<const void*> seen;
    wrapping.before = [&](const Request& request, const Response& response) {
        seen.push_back(&request);
        seen.push_back(&response);
    };
    WillReceive(clear);
    WillReceive(size);
    wrapping.Handle(connection);
    ASSERT_EQ(seen.size(), 4U);
    EXPECT_EQ(seen[0], seen[2]);
    EXPECT_EQ(seen[1], seen[3]);
}

TEST_F(ServiceHandleTest, AfterHandleReturnsItsObjectsAreStillReachedThroughAnotherHandle) {
    WillReceive("operation: OPERATION_TrackReader_Constructor");
    WillReceive(close);
    service->Handle(connection);
    ScriptedConnection other;
    other.WillReceive(
        FromText<Request>("operation: OPERATION_TrackReader_GetTrackId "
                          "TrackReader_GetTrackId { object_handle: 1 }"));
    service->Handle(other);
    ASSERT_EQ(other.sent.size(), 1U);
    EXPECT_EQ(ToText(FromText<Response>("is_success: true TrackReader_GetTrackId { result: 55 }")),
              [&] {
                  Response response;
                  response.ParseFromString(other.sent[0]);
                  return ToText(response);
              }());
}

TEST_F(ServiceHandleTest, AnAnswerThatIsNotSendableIsReplacedByABareFailureWithTheReason) {
    WillReceive(size);
    connection.WillThrowOnSend(
        MessageNotSendable("Message of 300000000 bytes is over the limit of 268435456 bytes"));
    WillReceive(clear);
    service->Handle(connection);
    EXPECT_THAT(Sent(),
                ElementsAre("is_success: true TrackStorage_GetTrackSize { trackSize: 52 }",
                            Failure("Message of 300000000 bytes is over the limit of 268435456 "
                                    "bytes"),
                            cleared));
}

TEST_F(ServiceHandleTest, AFailureThatIsNotSendableKeepsItsOwnText) {
    journal.FailWith([] { throw std::runtime_error("no such track: 3"); });
    WillReceive(clear);
    connection.WillThrowOnSend(MessageNotSendable("too long"));
    service->Handle(connection);
    ASSERT_EQ(connection.sent.size(), 2U);
    EXPECT_EQ(Sent()[1], Failure("no such track: 3"));
}

TEST_F(ServiceHandleTest, WhenTheBareFailureIsNotSendableEitherHandleEndsQuietly) {
    WillReceive(clear);
    connection.WillThrowOnSend(MessageNotSendable("too long"));
    connection.WillThrowOnSend(MessageNotSendable("still too long"));
    WillReceive(clear);
    EXPECT_NO_THROW(service->Handle(connection));
    EXPECT_EQ(connection.sent.size(), 2U);
    EXPECT_EQ(connection.received, 1U);
}

TEST_F(WrappedServiceTest, ASuccessThatLacksRequiredFieldsIsReplacedByAFailureThatNamesThem) {
    wrapping.after = [](Response& response) {
        response.mutable_trackstorage_gettrackproperties()->mutable_properties()->add_items();
    };
    WillReceive("operation: OPERATION_TrackStorage_GetTrackProperties");
    wrapping.Handle(connection);
    EXPECT_THAT(Sent(),
                ElementsAre(Failure("The response lacks required fields: "
                                    "TrackStorage_GetTrackProperties.properties.items[1].key, "
                                    "TrackStorage_GetTrackProperties.properties.items[1].value")));
}

TEST_F(WrappedServiceTest, OnlyTheFirstOfManyMissingFieldsAreNamed) {
    wrapping.after = [](Response& response) {
        for (int i = 0; i < 1000; ++i) {
            response.mutable_trackstorage_gettrackproperties()->mutable_properties()->add_items();
        }
    };
    WillReceive("operation: OPERATION_TrackStorage_GetTrackProperties");
    wrapping.Handle(connection);
    Response response;
    ASSERT_TRUE(response.ParseFromString(connection.sent.at(0)));
    EXPECT_LT(response.exception().size(), 1100U);
    EXPECT_EQ(response.exception().substr(response.exception().size() - 4), " ...");
}

TEST_F(WrappedServiceTest, AFailureThatLacksRequiredFieldsKeepsItsText) {
    journal.FailWith([] { throw std::runtime_error("half-way"); });
    wrapping.after = [](Response& response) {
        response.mutable_trackstorage_gettrackproperties()->mutable_properties()->add_items();
    };
    WillReceive("operation: OPERATION_TrackStorage_GetTrackProperties");
    wrapping.Handle(connection);
    EXPECT_THAT(Sent(), ElementsAre(Failure("half-way")));
}

TEST_F(WrappedServiceTest, AResponseWithoutIsSuccessIsReplacedByAFailureThatNamesIt) {
    wrapping.after = [](Response& response) { response.clear_is_success(); };
    WillReceive(clear);
    wrapping.Handle(connection);
    EXPECT_THAT(Sent(), ElementsAre(Failure("The response lacks required fields: is_success")));
}

// Takes the first data block of what it may take, and remembers what it got and how.
class TakingWriter : public ITrackWriter, public IChunkTaker {
  public:
    explicit TakingWriter(std::vector<std::string>& got) : got(got) {}
    void Append(const Protocol::Chunk& chunk) override {
        got.push_back("copy " + chunk.data().items(0).value());
    }
    void AppendTaking(Protocol::Chunk& chunk) override {
        std::string taken;
        chunk.mutable_data()->mutable_items(0)->mutable_value()->swap(taken);
        got.push_back("take " + taken);
    }
    void GetTrackId(long& result) override { result = 1; }

  private:
    std::vector<std::string>& got;
};

class TakingWriterFactory : public ITrackWriterFactory {
  public:
    explicit TakingWriterFactory(std::vector<std::string>& got) : got(got) {}
    ITrackWriter* CreateTrackWriter(const long& /*trackId*/) override {
        return new TakingWriter(got);
    }

  private:
    std::vector<std::string>& got;
};

class ServiceTakingTest : public testing::Test {
  protected:
    static constexpr const char* open =
        "operation: OPERATION_TrackWriter_Constructor TrackWriter_Constructor { trackId: 1 }";
    static constexpr const char* append =
        "operation: OPERATION_TrackWriter_Append TrackWriter_Append { object_handle: 1 "
        "chunk { data { items { key: \"k\" value: \"v\" } } } }";

    std::vector<std::string> got;
    Service service{nullptr, nullptr, std::make_unique<TakingWriterFactory>(got)};
};

TEST_F(ServiceTakingTest, AWriterMayTakeApartWhatTheServiceReceived) {
    ScriptedConnection connection;
    connection.WillReceive(FromText<Request>(open));
    connection.WillReceive(FromText<Request>(append));
    connection.WillReceive(FromText<Request>(append));
    service.Handle(connection);
    EXPECT_THAT(got, ElementsAre("take v", "take v"));
}

TEST_F(ServiceTakingTest, ARequestOfSomebodyElseStaysAsItWas) {
    Response response;
    service.ServeRequest(FromText<Request>(open), response);
    const auto request = FromText<Request>(append);
    service.ServeRequest(request, response);
    EXPECT_THAT(got, ElementsAre("copy v"));
    EXPECT_EQ(ToText(request), ToText(FromText<Request>(append)));
}

// Serves each request of its connection as a copy, as a server that looks at it afterwards does.
class CopyingService : public Service {
  public:
    using Service::Service;
    void ServeRequest(const Request& request, Response& response) override {
        const Request copy = request;
        Service::ServeRequest(copy, response);
    }
};

TEST_F(ServiceTakingTest, ACopyOfWhatTheServiceReceivedStaysAsItWas) {
    CopyingService copying(nullptr, nullptr, std::make_unique<TakingWriterFactory>(got));
    ScriptedConnection connection;
    connection.WillReceive(FromText<Request>(open));
    connection.WillReceive(FromText<Request>(append));
    copying.Handle(connection);
    EXPECT_THAT(got, ElementsAre("copy v"));
}

}  // namespace
}  // namespace BrantelStorageApi
