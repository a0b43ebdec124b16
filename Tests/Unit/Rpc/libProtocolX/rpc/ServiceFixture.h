#pragma once

#include "Support/OperationTable.h"
#include "Support/RecordingObjects.h"
#include "Support/ScriptedConnection.h"
#include "Support/Text.h"

#include <libProtocolX/rpc/ITrackReader.h>
#include <libProtocolX/rpc/ITrackWriter.h>
#include <libProtocolX/rpc/Service.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace BrantelStorageApi {

// The generated setter of a closed enum takes no other value; this reaches the field behind it.
template <auto member>
struct Opened {
    friend void SetRawOperation(Request& request, int number) {
        (request.*member).operation_ = number;
    }
};
void SetRawOperation(Request& request, int number);
template struct Opened<&Request::_impl_>;

// A service that shows what is open to derived ones.
class OpenService : public Service {
  public:
    using Service::GetDynamicObject;
    using Service::GetTrackStorage;
    using Service::Service;
};

// A service over objects that note their calls.
class ServiceFixture : public testing::Test {
  protected:
    // The text of the response to a request, both as protocol-buffer text.
    std::string Answer(const std::string& request) {
        return Answer(Brantel::Tests::FromText<Request>(request));
    }
    std::string Answer(const Request& request) {
        Response response;
        service->ServeRequest(request, response);
        return Brantel::Tests::ToText(response);
    }

    std::uint32_t MakeReader(long trackId = 1) {
        Request request;
        request.set_operation(OPERATION_TrackReader_Constructor);
        request.mutable_trackreader_constructor()->set_trackid(trackId);
        Response response;
        service->ServeRequest(request, response);
        return response.trackreader_constructor().object_handle();
    }
    std::uint32_t MakeWriter(long trackId = 1) {
        Request request;
        request.set_operation(OPERATION_TrackWriter_Constructor);
        request.mutable_trackwriter_constructor()->set_trackid(trackId);
        Response response;
        service->ServeRequest(request, response);
        return response.trackwriter_constructor().object_handle();
    }
    // The answer to the release of a handle.
    std::string Release(std::uint32_t handle) {
        Request request;
        request.set_operation(OPERATION_TrackReader_Destructor);
        request.mutable_trackreader_destructor()->set_object_handle(handle);
        return Answer(request);
    }

    static std::string Failure(const std::string& text) {
        return "is_success: false exception: \"" + text + "\"";
    }
    static std::string Failure(const std::string& text, const std::string& part) {
        return Failure(text) + " " + part + " { }";
    }
    static bool IsOf(const OperationRow& row, const std::string& object) {
        return std::string(row.name).rfind(object + "_", 0) == 0;
    }
    static bool MakesOrReleases(const OperationRow& row) {
        const std::string name = row.name;
        return name.find("structor") != std::string::npos;
    }

    static constexpr const char* notConfigured = "The service component has not been configured";
    static constexpr const char* invalidObject = "Accessing an invalid remote object";
    static constexpr const char* invalidRelease = "Deleting an invalid remote object";

    Journal journal;
    RecordingReaderFactory* readerFactory = new RecordingReaderFactory(journal);
    RecordingWriterFactory* writerFactory = new RecordingWriterFactory(journal);
    std::unique_ptr<OpenService> service =
        std::make_unique<OpenService>(std::make_unique<RecordingStorage>(journal),
                                      std::unique_ptr<ITrackReaderFactory>(readerFactory),
                                      std::unique_ptr<ITrackWriterFactory>(writerFactory));
};

}  // namespace BrantelStorageApi
