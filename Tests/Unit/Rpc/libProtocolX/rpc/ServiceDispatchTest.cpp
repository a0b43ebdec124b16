#include "Unit/Rpc/libProtocolX/rpc/ServiceFixture.h"

#include <gtest/gtest.h>

#include <exception>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace BrantelStorageApi {
namespace {

using Brantel::Tests::FromText;
using Brantel::Tests::ToText;

class ServiceDispatchTest : public ServiceFixture {
  protected:
    std::string AnswerToNumber(int number) {
        Request request;
        request.set_operation(CLOSE_CONNECTION);
        SetRawOperation(request, number);
        return Answer(request);
    }
};

TEST_F(ServiceDispatchTest, EveryOperationCallsItsObjectAndFillsItsResponse) {
    for (const OperationRow& row : OperationTable()) {
        SCOPED_TRACE(row.name);
        service = std::make_unique<OpenService>(std::make_unique<RecordingStorage>(journal),
                                                std::make_unique<RecordingReaderFactory>(journal),
                                                std::make_unique<RecordingWriterFactory>(journal));
        const std::string name = row.name;
        if (name != "TrackReader_Constructor") {
            MakeReader();
        }
        if (name != "TrackReader_Constructor" && name != "TrackWriter_Constructor") {
            MakeWriter();
        }
        EXPECT_EQ(Answer(RequestOf(row)), ToText(ResponseOf(row)));
        EXPECT_EQ(journal.Calls().back(), row.call);
    }
}

TEST_F(ServiceDispatchTest, EveryResponseHasTheBytesOfItsOperationsFieldNumber) {
    MakeReader();
    MakeWriter();
    for (const OperationRow& row : OperationTable()) {
        const Request request = RequestOf(row);
        Response response;
        service->ServeRequest(request, response);
        const auto* part = Response::descriptor()->FindFieldByNumber(request.operation() + 2);
        EXPECT_TRUE(response.GetReflection()->HasField(response, part)) << row.name;
        EXPECT_EQ(part->name(), row.name);
    }
}

TEST_F(ServiceDispatchTest, AnOperationOf0Or37OrMoreAnswersUnknownServiceOperation) {
    for (const int number : {0, 37, 38, -1, std::numeric_limits<int>::max()}) {
        EXPECT_EQ(AnswerToNumber(number), Failure("Unknown service operation")) << number;
    }
}

TEST_F(ServiceDispatchTest,
       CloseConnectionGivenToServeRequestDirectlyAnswersUnknownServiceOperation) {
    EXPECT_EQ(Answer("operation: CLOSE_CONNECTION"), Failure("Unknown service operation"));
    EXPECT_EQ(AnswerToNumber(1), Failure("Unknown service operation"));
}

TEST_F(ServiceDispatchTest, WithNoStorageSetEveryStorageOperationAnswersNotConfigured) {
    service = std::make_unique<OpenService>(nullptr, nullptr, nullptr);
    for (const OperationRow& row : OperationTable()) {
        if (IsOf(row, "TrackStorage")) {
            EXPECT_EQ(Answer(RequestOf(row)), Failure(notConfigured, row.name));
        }
    }
}

TEST_F(ServiceDispatchTest, WithNoStorageSetReaderAndWriterOperationsOnRegisteredHandlesStillWork) {
    service =
        std::make_unique<OpenService>(nullptr, std::make_unique<RecordingReaderFactory>(journal),
                                      std::make_unique<RecordingWriterFactory>(journal));
    MakeReader();
    MakeWriter();
    for (const OperationRow& row : OperationTable()) {
        if (!IsOf(row, "TrackStorage") && !MakesOrReleases(row)) {
            EXPECT_EQ(Answer(RequestOf(row)), ToText(ResponseOf(row)));
        }
    }
}

TEST_F(ServiceDispatchTest, WithNoFactorySetItsConstructorAnswersNotConfigured) {
    service = std::make_unique<OpenService>(nullptr, nullptr, nullptr);
    EXPECT_EQ(Answer("operation: OPERATION_TrackReader_Constructor"),
              Failure(notConfigured, "TrackReader_Constructor"));
    EXPECT_EQ(Answer("operation: OPERATION_TrackWriter_Constructor"),
              Failure(notConfigured, "TrackWriter_Constructor"));
}

TEST_F(ServiceDispatchTest, EveryReaderOrWriterOperationOnAnUnknownHandleAnswersInvalidObject) {
    for (const OperationRow& row : OperationTable()) {
        if (!IsOf(row, "TrackStorage") && !MakesOrReleases(row)) {
            EXPECT_EQ(Answer(RequestOf(row)), Failure(invalidObject, row.name));
        }
    }
}

TEST_F(ServiceDispatchTest, AHandleOfTheOtherKindAnswersInvalidObject) {
    MakeWriter();  // handle 1, which the reader operations of the table ask
    MakeReader();  // handle 2
    for (const OperationRow& row : OperationTable()) {
        if (!IsOf(row, "TrackStorage") && !MakesOrReleases(row)) {
            EXPECT_EQ(Answer(RequestOf(row)), Failure(invalidObject, row.name));
        }
    }
}

TEST_F(ServiceDispatchTest, AHandleOfANullObjectAnswersInvalidObject) {
    readerFactory->makesNull = true;
    writerFactory->makesNull = true;
    ASSERT_EQ(MakeReader(), 1U);
    ASSERT_EQ(MakeWriter(), 2U);
    for (const OperationRow& row : OperationTable()) {
        if (!IsOf(row, "TrackStorage") && !MakesOrReleases(row)) {
            EXPECT_EQ(Answer(RequestOf(row)), Failure(invalidObject, row.name));
        }
    }
}

TEST_F(ServiceDispatchTest, ARequestWithoutItsSubMessageIsServedWithDefaultFieldValues) {
    Answer("operation: OPERATION_TrackStorage_Protect");
    EXPECT_EQ(journal.Calls().back(), "storage.Protect(0, {  }, {  })");
    Answer("operation: OPERATION_TrackReader_Constructor");
    EXPECT_EQ(journal.Calls().back(), "readerFactory.CreateTrackReader(0)");
    EXPECT_EQ(Answer("operation: OPERATION_TrackReader_Wait"),
              Failure(invalidObject, "TrackReader_Wait"));
    EXPECT_EQ(Answer("operation: OPERATION_TrackReader_Destructor"),
              Failure(invalidRelease, "TrackReader_Destructor"));
}

TEST_F(ServiceDispatchTest, OtherSubMessagesOfARequestAreNotLookedAt) {
    Answer(
        "operation: OPERATION_TrackStorage_ClearTrack TrackStorage_ClearTrack { trackId: 7 } "
        "TrackStorage_DeleteTrack { trackId: 8 }");
    EXPECT_EQ(journal.Calls(), std::vector<std::string>{"storage.ClearTrack(7)"});
}

TEST_F(ServiceDispatchTest, AStorageMethodThatThrowsARuntimeErrorGivesItsTextAndNoErrorCode) {
    journal.FailWith([] { throw std::runtime_error("no such track: 11"); });
    for (const OperationRow& row : OperationTable()) {
        if (!IsOf(row, "TrackStorage")) {
            continue;
        }
        Response response;
        service->ServeRequest(RequestOf(row), response);
        EXPECT_TRUE(response.has_is_success());
        EXPECT_FALSE(response.is_success()) << row.name;
        EXPECT_EQ(response.exception(), "no such track: 11");
        EXPECT_FALSE(response.has_error_code());
    }
}

TEST_F(ServiceDispatchTest, AnyOtherExceptionDerivedFromStdExceptionIsTreatedTheSameWay) {
    struct Strange : public std::exception {
        const char* what() const noexcept override { return "strange"; }
    };
    const std::string request = "operation: OPERATION_TrackStorage_ClearTrack";
    journal.FailWith([] { throw Strange(); });
    EXPECT_EQ(Answer(request), Failure("strange", "TrackStorage_ClearTrack"));
    journal.FailWith([] { throw std::logic_error("wrong"); });
    EXPECT_EQ(Answer(request), Failure("wrong", "TrackStorage_ClearTrack"));
}

TEST_F(ServiceDispatchTest, WhenMemoryRunsOutTheFailureIsAnsweredWithoutTheHalfMadeSubMessage) {
    journal.FailWith([] { throw std::bad_alloc(); });
    EXPECT_EQ(Answer("operation: OPERATION_TrackStorage_ListTracks"), Failure("std::bad_alloc"));
}

TEST_F(ServiceDispatchTest, AReadersAndAWritersExceptionIsTreatedTheSameWay) {
    MakeReader();
    MakeWriter();
    journal.FailWith([] { throw std::runtime_error("disk"); });
    EXPECT_EQ(Answer("operation: OPERATION_TrackReader_GetTrackId "
                     "TrackReader_GetTrackId { object_handle: 1 }"),
              Failure("disk", "TrackReader_GetTrackId"));
    EXPECT_EQ(Answer("operation: OPERATION_TrackWriter_Append "
                     "TrackWriter_Append { object_handle: 2 chunk { } }"),
              Failure("disk", "TrackWriter_Append"));
}

TEST_F(ServiceDispatchTest, AnEmptyTextOfAnExceptionIsSet) {
    journal.FailWith([] { throw std::runtime_error(""); });
    EXPECT_EQ(Answer("operation: OPERATION_TrackStorage_ClearTrack"),
              Failure("", "TrackStorage_ClearTrack"));
}

TEST_F(ServiceDispatchTest, AnExceptionOfAnotherTypeLeavesServeRequest) {
    journal.FailWith([] { throw 42; });
    EXPECT_THROW(Answer("operation: OPERATION_TrackStorage_ListTracks"), int);
}

TEST_F(ServiceDispatchTest, WhatAMethodFilledBeforeItThrewStaysAndNumbersAreNotSet) {
    class HalfReader : public RecordingReader {
      public:
        using RecordingReader::RecordingReader;
        void NextTimePoint(const Protocol::TimePoint& /*timecode*/,
                           Protocol::TimePoint& nextTimePoint, bool& result) override {
            nextTimePoint.set_nanoseconds(5);
            result = true;
            throw std::runtime_error("half");
        }
    };
    class HalfFactory : public RecordingReaderFactory {
      public:
        explicit HalfFactory(Journal& journal)
            : RecordingReaderFactory(journal), journal(journal) {}
        ITrackReader* CreateTrackReader(const long& /*trackId*/) override {
            return new HalfReader(journal);
        }

      private:
        Journal& journal;
    };
    service =
        std::make_unique<OpenService>(nullptr, std::make_unique<HalfFactory>(journal), nullptr);
    MakeReader();
    EXPECT_EQ(Answer("operation: OPERATION_TrackReader_NextTimePoint "
                     "TrackReader_NextTimePoint { object_handle: 1 }"),
              Failure("half") + " TrackReader_NextTimePoint { nextTimePoint { nanoseconds: 5 } }");
}

TEST_F(ServiceDispatchTest, GetTrackStorageIsTheStorageOrThrows) {
    service->GetTrackStorage().ClearTrack(3);
    EXPECT_EQ(journal.Calls().back(), "storage.ClearTrack(3)");
    OpenService empty(nullptr, nullptr, nullptr);
    try {
        empty.GetTrackStorage();
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), notConfigured);
    }
}

TEST_F(ServiceDispatchTest, GetDynamicObjectGivesTheObjectNullOrThrows) {
    MakeReader();
    readerFactory->makesNull = true;
    MakeReader();
    EXPECT_NE(service->GetDynamicObject<ITrackReader>(1), nullptr);
    EXPECT_EQ(service->GetDynamicObject<ITrackWriter>(1), nullptr) << "of the other kind";
    EXPECT_EQ(service->GetDynamicObject<ITrackReader>(2), nullptr) << "registered as null";
    try {
        service->GetDynamicObject<ITrackReader>(3);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), invalidObject);
    }
}

}  // namespace
}  // namespace BrantelStorageApi
