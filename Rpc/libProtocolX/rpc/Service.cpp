#include "rpc/Service.h"

#include "rpc/IChunkTaker.h"
#include "rpc/ITrackReader.h"
#include "rpc/ITrackWriter.h"
#include "rpc/PartMemory.h"
#include "rpc/RequestInHand.h"
#include "rpc/ReusedMemory.h"
#include "rpc/ServiceCalls.h"

#include <libServices/IServiceConnection.h>
#include <libServices/MessageNotSendable.h>

#include <cstddef>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

namespace BrantelStorageApi {
namespace {

// Takes no exception: when there is no memory left for the text, the failure goes without.
void SetFailure(Response& response, const char* text) {
    response.set_is_success(false);
    try {
        response.set_exception(text);
    } catch (const std::exception&) {
        response.clear_exception();
    }
}

// The names of the required fields that are not set; those of the first ones when there are many.
std::string MissingFields(const Response& response) {
    constexpr std::size_t longest = 1000;
    std::string names = response.InitializationErrorString();
    if (names.size() > longest) {
        names.resize(longest);
        names += " ...";
    }
    return names;
}

// Answers with a failure and nothing else: the server object's own if it failed, else `reason`.
void SendFailure(Brantel::Services::IServiceConnection& connection, const Response& response,
                 const std::string& reason) {
    const bool failed = response.has_is_success() && !response.is_success();
    Response failure;
    failure.set_is_success(false);
    failure.set_exception(failed ? response.exception() : reason);
    connection.Send(failure);
}

// Sends the response or, when it can't be sent as it is, a failure without any results. A
// connection that fails shows it when the next request is received.
void Answer(Brantel::Services::IServiceConnection& connection, const Response& response) {
    if (!response.IsInitialized()) {
        SendFailure(connection, response,
                    "The response lacks required fields: " + MissingFields(response));
        return;
    }
    try {
        connection.Send(response);
    } catch (const Brantel::Services::MessageNotSendable& refusal) {
        SendFailure(connection, response, refusal.what());
    }
}

}  // namespace

Service::Service(std::unique_ptr<ITrackStorage> trackStorage,
                 std::unique_ptr<ITrackReaderFactory> readerFactory,
                 std::unique_ptr<ITrackWriterFactory> writerFactory)
    : trackStorage(std::move(trackStorage)),
      writerFactory(std::move(writerFactory)),
      readerFactory(std::move(readerFactory)) {}

Service::~Service() {
    for (const auto& [handle, entry] : objects) {
        delete entry.object;
    }
}

void Service::Handle(Brantel::Services::IServiceConnection& connection) {
    Request request;
    const RequestInHand inHand(request);
    Response response;
    ReusedMemory<Request> requestMemory;
    ReusedMemory<Response> responseMemory;
    try {
        while (connection.Receive(request) && request.operation() != CLOSE_CONNECTION) {
            ServeRequest(request, response);
            Answer(connection, response);
            const Operation operation = request.operation();
            requestMemory.Clear(request, operation, MemoryOf(request));
            responseMemory.Clear(response, operation, MemoryOf(response, operation));
        }
    } catch (const std::runtime_error&) {
        // Most often a client that has gone: there is no one left to tell.
    }
}

void Service::ServeRequest(const Request& request, Response& response) {
    try {
        FindCall(request.operation())(*this, request, response);
        response.set_is_success(true);
    } catch (const std::bad_alloc& failure) {
        // A message that got no memory for a part says that it has the part: it can't be sent, nor
        // cleared, only dropped.
        Response().Swap(&response);
        SetFailure(response, failure.what());
    } catch (const std::exception& failure) {
        SetFailure(response, failure.what());
    }
}

ITrackStorage& Service::GetTrackStorage() {
    if (trackStorage == nullptr) {
        throw std::runtime_error("The service component has not been configured");
    }
    return *trackStorage;
}

template <class T>
T* Service::GetDynamicObject(std::uint32_t handle) {
    const auto entry = objects.find(handle);
    if (entry == objects.end()) {
        throw std::runtime_error("Accessing an invalid remote object");
    }
    if constexpr (std::is_same_v<T, ITrackReader>) {
        return entry->second.reader;
    } else {
        return entry->second.writer;
    }
}

template ITrackReader* Service::GetDynamicObject<ITrackReader>(std::uint32_t handle);
template ITrackWriter* Service::GetDynamicObject<ITrackWriter>(std::uint32_t handle);

// The entry comes first: should there be no memory for it, the object is deleted and no handle is
// used up.
std::uint32_t Service::Register(std::unique_ptr<DynamicObject> object) {
    const std::uint32_t handle = freeHandles.empty() ? nextHandle : freeHandles.back();
    objects[handle] = {object.get(), dynamic_cast<ITrackReader*>(object.get()),
                       dynamic_cast<ITrackWriter*>(object.get()),
                       dynamic_cast<IChunkTaker*>(object.get())};
    static_cast<void>(object.release());
    if (freeHandles.empty()) {
        ++nextHandle;
    } else {
        freeHandles.pop_back();
    }
    return handle;
}

// The free handle comes first: should there be no memory for it, the object stays.
void Service::Release(std::uint32_t handle) {
    const auto entry = objects.find(handle);
    if (entry == objects.end()) {
        throw std::runtime_error("Deleting an invalid remote object");
    }
    freeHandles.push_back(handle);
    delete entry->second.object;
    objects.erase(entry);
}

Service::Call Service::FindCall(Operation operation) {
    switch (operation) {
        case OPERATION_TrackStorage_GetTrackProperties: return OnStorage::GetTrackProperties;
        case OPERATION_TrackStorage_GetNumberOfChunks: return OnStorage::GetNumberOfChunks;
        case OPERATION_TrackStorage_DeleteTrack: return OnStorage::DeleteTrack;
        case OPERATION_TrackStorage_GetTrackSize: return OnStorage::GetTrackSize;
        case OPERATION_TrackStorage_GetTrackInfos: return OnStorage::GetTrackInfos;
        case OPERATION_TrackStorage_RemoveTrackProperties: return OnStorage::RemoveTrackProperties;
        case OPERATION_TrackStorage_GetActiveWorkers: return OnStorage::GetActiveWorkers;
        case OPERATION_TrackStorage_GrowTrack: return OnStorage::GrowTrack;
        case OPERATION_TrackStorage_GetCommandInfo: return OnStorage::GetCommandInfo;
        case OPERATION_TrackStorage_GetRemainingSpace: return OnStorage::GetRemainingSpace;
        case OPERATION_TrackStorage_GetBeginningOfTrack: return OnStorage::GetBeginningOfTrack;
        case OPERATION_TrackStorage_ClearTrack: return OnStorage::ClearTrack;
        case OPERATION_TrackStorage_GetAccumulatedDuration:
            return OnStorage::GetAccumulatedDuration;
        case OPERATION_TrackStorage_Protect: return OnStorage::Protect;
        case OPERATION_TrackStorage_GetWorkerInfos: return OnStorage::GetWorkerInfos;
        case OPERATION_TrackStorage_Unprotect: return OnStorage::Unprotect;
        case OPERATION_TrackStorage_GetEndOfTrack: return OnStorage::GetEndOfTrack;
        case OPERATION_TrackStorage_ListProtections: return OnStorage::ListProtections;
        case OPERATION_TrackStorage_CreateTrack: return OnStorage::CreateTrack;
        case OPERATION_TrackStorage_GetOngoingCommands: return OnStorage::GetOngoingCommands;
        case OPERATION_TrackStorage_SetTrackProperties: return OnStorage::SetTrackProperties;
        case OPERATION_TrackStorage_ListTracks: return OnStorage::ListTracks;
        case OPERATION_TrackReader_Constructor: return OnReader::Constructor;
        case OPERATION_TrackReader_Destructor: return OnReader::Destructor;
        case OPERATION_TrackReader_NextTimePoint: return OnReader::NextTimePoint;
        case OPERATION_TrackReader_GetChunk: return OnReader::GetChunk;
        case OPERATION_TrackReader_GetTrackId: return OnReader::GetTrackId;
        case OPERATION_TrackReader_PreviousTimePoint: return OnReader::PreviousTimePoint;
        case OPERATION_TrackReader_GetPreviousChunk: return OnReader::GetPreviousChunk;
        case OPERATION_TrackReader_GetNextChunk: return OnReader::GetNextChunk;
        case OPERATION_TrackReader_Wait: return OnReader::Wait;
        case OPERATION_TrackWriter_Constructor: return OnWriter::Constructor;
        case OPERATION_TrackWriter_Destructor: return OnWriter::Destructor;
        case OPERATION_TrackWriter_Append: return OnWriter::Append;
        case OPERATION_TrackWriter_GetTrackId: return OnWriter::GetTrackId;
        default: throw std::runtime_error("Unknown service operation");
    }
}

}  // namespace BrantelStorageApi
