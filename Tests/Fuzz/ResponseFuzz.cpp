// A client whose server answers every request with the same bytes, whatever they are: every call of
// the stubs hands over exactly what the response holds or throws the server's failure, and every
// call of the storage client returns or throws what it is allowed to.
#include "Support/FuzzCheck.h"
#include "Support/MessageMutator.h"
#include "Support/OperationTable.h"
#include "Support/ReferenceParser.h"

#include <BrantelStorageApiMessages.pb.h>
#include <libProtocolX/DataChunk.h>
#include <libProtocolX/StorageClientX.h>
#include <libServices/IServiceConnection.h>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/stubs/logging.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize)
    __attribute__((weak));

namespace {

using Brantel::ProtocolX::DataChunk;
using Brantel::ProtocolX::StorageClientX;
using Brantel::Tests::Contents;
using Brantel::Tests::Require;
using Brantel::Time::TimePoint;
using BrantelStorageApi::OperationRow;
using BrantelStorageApi::Outputs;
using BrantelStorageApi::Response;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

// Answers with a good constructor's response as long as it is told to, then with the same bytes.
class Answering : public Brantel::Services::IServiceConnection {
  public:
    Answering(const std::string& bytes, const bool& isGood) : bytes(bytes), isGood(isGood) {}
    void Close() override {}
    bool Send(const Message& message) override {
        Require(message.IsInitialized(), "a request has what is required");
        return true;
    }
    bool Receive(Message& message) override {
        if (!isGood) {
            return message.ParseFromString(bytes);
        }
        Response response;
        response.set_is_success(true);
        response.mutable_trackreader_constructor()->set_object_handle(1);
        response.mutable_trackwriter_constructor()->set_object_handle(2);
        return message.ParseFromString(response.SerializeAsString());
    }

  private:
    const std::string& bytes;
    const bool& isGood;
};

// All results that are messages.
std::vector<Message*> ResultsOf(Outputs& out) {
    return {&out.chunk,        &out.commandInfo,     &out.ids,        &out.moreIds,
            &out.propertyList, &out.protectionInfos, &out.timePoint,  &out.trackInfos,
            &out.trackList,    &out.trackParameters, &out.workerInfos};
}

// Writes to `out` what the row's call must hand over: the fields of its part of the response, those
// that are missing as nothing.
void HandOver(const OperationRow& row, const Response& response, Outputs& out) {
    const Message& part = response.GetReflection()->GetMessage(
        response, Response::descriptor()->FindFieldByName(row.name));
    std::vector<Message*> results = ResultsOf(out);
    for (int i = 0; i < part.GetDescriptor()->field_count(); ++i) {
        const FieldDescriptor& field = *part.GetDescriptor()->field(i);
        switch (field.cpp_type()) {
            case FieldDescriptor::CPPTYPE_MESSAGE: {
                const auto result =
                    std::find_if(results.begin(), results.end(), [&](const Message* message) {
                        return message->GetDescriptor() == field.message_type();
                    });
                Require(result != results.end(), "each type has a result");
                (*result)->CopyFrom(part.GetReflection()->GetMessage(part, &field));
                results.erase(result);
                break;
            }
            case FieldDescriptor::CPPTYPE_INT64:
                out.number = part.GetReflection()->GetInt64(part, &field);
                break;
            case FieldDescriptor::CPPTYPE_BOOL:
                out.flag = part.GetReflection()->GetBool(part, &field);
                break;
            default: break;  // a handle, which the stub keeps
        }
    }
}

bool AreEqual(Outputs& left, Outputs& right) {
    const std::vector<Message*> ofLeft = ResultsOf(left);
    const std::vector<Message*> ofRight = ResultsOf(right);
    return left.flag == right.flag && left.number == right.number &&
           std::equal(ofLeft.begin(), ofLeft.end(), ofRight.begin(),
                      [](const Message* one, const Message* other) {
                          return Contents(*one) == Contents(*other);
                      });
}

// Calls by the stub; both kinds of results that a caller may have had before.
void CallStub(const OperationRow& row, BrantelStorageApi::Stubs& stubs, const Response& response,
              bool isResponse) {
    for (const bool flag : {false, true}) {
        static const Outputs fresh;
        Outputs out = fresh;
        out.flag = flag;
        Outputs expected = out;
        std::string error;
        if (isResponse && response.is_success()) {
            HandOver(row, response, expected);
        } else if (isResponse) {
            error = "Exception from server: " + response.exception();
            error = error.c_str();  // what() is a text that ends at its first zero
        }
        std::string thrown;
        try {
            row.stub(stubs, out);
        } catch (const std::runtime_error& failure) {
            thrown = failure.what();
        }
        Require(thrown == error, "a failure is thrown, and nothing else");
        Require(AreEqual(out, expected), "the results are the response's");
    }
}

bool HasPart(const Response& response, const OperationRow& row) {
    return response.GetReflection()->HasField(response,
                                              Response::descriptor()->FindFieldByName(row.name));
}

void CallStubs(const std::string& bytes) {
    Response response;
    const bool isResponse = response.ParseFromString(bytes);
    bool isGood = true;
    Answering connection(bytes, isGood);
    BrantelStorageApi::Stubs stubs(connection);
    stubs.MakeReader(1);
    stubs.MakeWriter(2);
    isGood = false;
    // All others hand over nothing, each in its way: one in ten of them, by what the bytes are.
    constexpr std::size_t oneOf = 10;
    std::size_t number = std::hash<std::string>()(bytes);
    for (const OperationRow& row : BrantelStorageApi::OperationTable()) {
        if (HasPart(response, row) || ++number % oneOf == 0) {
            CallStub(row, stubs, response, isResponse);
        }
    }
}

void Call(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::runtime_error&) {
        // A failure that the server reported, or a result that the client can't use.
    }
}

void CallReaderAndWriter(StorageClientX& client, bool& isGood) {
    isGood = true;
    auto* reader = client.GetTrackReader(1, 2);
    auto* writer = client.GetTrackWriter(1);
    isGood = false;
    DataChunk chunk;
    const TimePoint at = TimePoint::Nanoseconds(5);
    Call([&] { reader->GetTrackId(); });
    Call([&] { reader->FirstTimePoint(); });
    Call([&] { reader->LastTimePoint(); });
    Call([&] { reader->NextTimePoint(at); });
    Call([&] { reader->PreviousTimePoint(at); });
    Call([&] { reader->GetChunk(chunk, at, {"image"}); });
    Call([&] { reader->GetNextChunk(chunk, at, {}); });
    Call([&] { reader->GetPreviousChunk(chunk, at, {}); });
    Call([&] { writer->GetTrackId(); });
    Call([&] { writer->Append(chunk); });
    Call([&] { client.GetTrackReader(3, 4); });
    Call([&] { client.GetTrackWriter(3); });
    Call([&] { client.CloseTrackReader(1, 2); });
    Call([&] { client.CloseTrackWriter(1); });
}

void CallStorage(StorageClientX& client) {
    const std::vector<long> ids{1, 2};
    const TimePoint at = TimePoint::Nanoseconds(5);
    StorageClientX::TrackParameters parameters;
    Call([&] { client.CreateTrack(parameters); });
    Call([&] { client.GrowTrack(parameters); });
    Call([&] { client.DeleteTrack(1); });
    Call([&] { client.ClearTrack(1); });
    Call([&] { client.GetTrackSize(1); });
    Call([&] { client.GetRemainingSpace(); });
    Call([&] { client.ListTracks(); });
    Call([&] { client.TracksCreated(ids); });
    Call([&] { client.ListProtections(); });
    Call([&] { client.GetBeginningOfTrack(1); });
    Call([&] { client.GetEndOfTrack(1); });
    Call([&] { client.GetHighestTimePoint(ids); });
    Call([&] { client.Protect(1, at, at); });
    Call([&] { client.Unprotect(1); });
    Call([&] { client.GetNumberOfChunks(1, at, at); });
    Call([&] { client.GetAccumulatedDuration(1, at, at); });
    Call([&] { client.SetTrackProperties(1, {{"a", "b"}}); });
    Call([&] { client.GetTrackProperties(1); });
    Call([&] { client.RemoveTrackProperties(1, {{"a", "b"}}); });
    Call([&] { client.GetOngoingCommands(); });
    Call([&] { client.GetCommandInfo(1); });
    Call([&] { client.GetWorkerIds(); });
    Call([&] { client.GetWorkerInfos(ids); });
    Call([&] { client.GetTrackInfos(ids); });
}

void CallClient(const std::string& bytes) {
    bool isGood = false;
    StorageClientX client;
    Require(client.ConnectToSlave(std::make_unique<Answering>(bytes, isGood)), "it connects");
    CallStorage(client);
    CallReaderAndWriter(client, isGood);
    isGood = true;
    client.GetTrackReader(1, 2);
    // Its destructor says on the standard output what a failing server answers; here it does not.
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const google::protobuf::LogSilencer noLinePerBadText;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    CallStubs(bytes);
    CallClient(bytes);
    return 0;
}

// Every second time the fuzzer's own changes, otherwise a change of one field.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed) {
    const google::protobuf::LogSilencer noLinePerBadText;
    Brantel::Tests::MessageMutator mutator(seed);
    Response response;
    if (mutator.Below(2) == 0 || !response.ParsePartialFromArray(data, static_cast<int>(size))) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    for (std::size_t count = 1 + mutator.Below(4); count > 0; --count) {
        mutator.Mutate(response);
    }
    if (mutator.Below(8) != 0) {
        mutator.Complete(response);
    }
    const std::string bytes = response.SerializePartialAsString();
    if (bytes.size() > maxSize) {
        return size;
    }
    bytes.copy(reinterpret_cast<char*>(data), bytes.size());
    return bytes.size();
}
