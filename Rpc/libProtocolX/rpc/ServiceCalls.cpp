#include "rpc/ServiceCalls.h"

#include "rpc/IChunkTaker.h"
#include "rpc/ITrackReader.h"
#include "rpc/ITrackWriter.h"
#include "rpc/RequestInHand.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <utility>

namespace BrantelStorageApi {
namespace {

// A null object or one of the other kind can't be called, and is refused as an unknown one is.
template <class T>
T& Usable(T* object) {
    if (object == nullptr) {
        throw std::runtime_error("Accessing an invalid remote object");
    }
    return *object;
}

template <class T>
T& Configured(const std::unique_ptr<T>& component) {
    if (component == nullptr) {
        throw std::runtime_error("The service component has not been configured");
    }
    return *component;
}

}  // namespace

void Service::OnStorage::GetTrackProperties(Service& service, const Request& request,
                                            Response& response) {
    const auto& question = request.trackstorage_gettrackproperties();
    auto& answer = *response.mutable_trackstorage_gettrackproperties();
    service.GetTrackStorage().GetTrackProperties(question.trackid(), *answer.mutable_properties());
}

void Service::OnStorage::GetNumberOfChunks(Service& service, const Request& request,
                                           Response& response) {
    const auto& question = request.trackstorage_getnumberofchunks();
    auto& answer = *response.mutable_trackstorage_getnumberofchunks();
    long nbChunks = 0;
    service.GetTrackStorage().GetNumberOfChunks(question.trackid(), question.in(), question.out(),
                                                nbChunks);
    answer.set_nbchunks(nbChunks);
}

void Service::OnStorage::DeleteTrack(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackstorage_deletetrack();
    auto& answer = *response.mutable_trackstorage_deletetrack();
    service.GetTrackStorage().DeleteTrack(question.trackid(), *answer.mutable_infoout());
}

void Service::OnStorage::GetTrackSize(Service& service, const Request& request,
                                      Response& response) {
    const auto& question = request.trackstorage_gettracksize();
    auto& answer = *response.mutable_trackstorage_gettracksize();
    long trackSize = 0;
    service.GetTrackStorage().GetTrackSize(question.trackid(), trackSize);
    answer.set_tracksize(trackSize);
}

void Service::OnStorage::GetTrackInfos(Service& service, const Request& request,
                                       Response& response) {
    const auto& question = request.trackstorage_gettrackinfos();
    auto& answer = *response.mutable_trackstorage_gettrackinfos();
    service.GetTrackStorage().GetTrackInfos(question.trackids(), *answer.mutable_trackinfos());
}

void Service::OnStorage::RemoveTrackProperties(Service& service, const Request& request,
                                               Response& response) {
    const auto& question = request.trackstorage_removetrackproperties();
    response.mutable_trackstorage_removetrackproperties();
    service.GetTrackStorage().RemoveTrackProperties(question.trackid(), question.properties());
}

void Service::OnStorage::GetActiveWorkers(Service& service, const Request& /*request*/,
                                          Response& response) {
    auto& answer = *response.mutable_trackstorage_getactiveworkers();
    service.GetTrackStorage().GetActiveWorkers(*answer.mutable_workerids(),
                                               *answer.mutable_trackids());
}

void Service::OnStorage::GrowTrack(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackstorage_growtrack();
    auto& answer = *response.mutable_trackstorage_growtrack();
    service.GetTrackStorage().GrowTrack(question.infoin(), *answer.mutable_infoout());
}

void Service::OnStorage::GetCommandInfo(Service& service, const Request& request,
                                        Response& response) {
    const auto& question = request.trackstorage_getcommandinfo();
    auto& answer = *response.mutable_trackstorage_getcommandinfo();
    service.GetTrackStorage().GetCommandInfo(question.commandid(), *answer.mutable_commandinfo());
}

void Service::OnStorage::GetRemainingSpace(Service& service, const Request& /*request*/,
                                           Response& response) {
    auto& answer = *response.mutable_trackstorage_getremainingspace();
    long remainingSpace = 0;
    service.GetTrackStorage().GetRemainingSpace(remainingSpace);
    answer.set_remainingspace(remainingSpace);
}

void Service::OnStorage::GetBeginningOfTrack(Service& service, const Request& request,
                                             Response& response) {
    const auto& question = request.trackstorage_getbeginningoftrack();
    auto& answer = *response.mutable_trackstorage_getbeginningoftrack();
    service.GetTrackStorage().GetBeginningOfTrack(question.trackid(), *answer.mutable_timecode());
}

void Service::OnStorage::ClearTrack(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackstorage_cleartrack();
    response.mutable_trackstorage_cleartrack();
    service.GetTrackStorage().ClearTrack(question.trackid());
}

void Service::OnStorage::GetAccumulatedDuration(Service& service, const Request& request,
                                                Response& response) {
    const auto& question = request.trackstorage_getaccumulatedduration();
    auto& answer = *response.mutable_trackstorage_getaccumulatedduration();
    service.GetTrackStorage().GetAccumulatedDuration(question.trackid(), question.in(),
                                                     question.out(), *answer.mutable_duration());
}

void Service::OnStorage::Protect(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackstorage_protect();
    auto& answer = *response.mutable_trackstorage_protect();
    long protectionId = 0;
    service.GetTrackStorage().Protect(question.trackid(), question.timecode(), question.duration(),
                                      protectionId);
    answer.set_protectionid(protectionId);
}

void Service::OnStorage::GetWorkerInfos(Service& service, const Request& request,
                                        Response& response) {
    const auto& question = request.trackstorage_getworkerinfos();
    auto& answer = *response.mutable_trackstorage_getworkerinfos();
    service.GetTrackStorage().GetWorkerInfos(question.workerids(), *answer.mutable_workerinfos());
}

void Service::OnStorage::Unprotect(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackstorage_unprotect();
    response.mutable_trackstorage_unprotect();
    service.GetTrackStorage().Unprotect(question.protectionid());
}

void Service::OnStorage::GetEndOfTrack(Service& service, const Request& request,
                                       Response& response) {
    const auto& question = request.trackstorage_getendoftrack();
    auto& answer = *response.mutable_trackstorage_getendoftrack();
    service.GetTrackStorage().GetEndOfTrack(question.trackid(), *answer.mutable_timecode());
}

void Service::OnStorage::ListProtections(Service& service, const Request& /*request*/,
                                         Response& response) {
    auto& answer = *response.mutable_trackstorage_listprotections();
    service.GetTrackStorage().ListProtections(*answer.mutable_protectioninfos());
}

void Service::OnStorage::CreateTrack(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackstorage_createtrack();
    auto& answer = *response.mutable_trackstorage_createtrack();
    service.GetTrackStorage().CreateTrack(question.infoin(), *answer.mutable_infoout());
}

void Service::OnStorage::GetOngoingCommands(Service& service, const Request& /*request*/,
                                            Response& response) {
    auto& answer = *response.mutable_trackstorage_getongoingcommands();
    service.GetTrackStorage().GetOngoingCommands(*answer.mutable_commandids());
}

void Service::OnStorage::SetTrackProperties(Service& service, const Request& request,
                                            Response& response) {
    const auto& question = request.trackstorage_settrackproperties();
    response.mutable_trackstorage_settrackproperties();
    service.GetTrackStorage().SetTrackProperties(question.trackid(), question.properties());
}

void Service::OnStorage::ListTracks(Service& service, const Request& /*request*/,
                                    Response& response) {
    auto& answer = *response.mutable_trackstorage_listtracks();
    service.GetTrackStorage().ListTracks(*answer.mutable_list());
}

ITrackReader& Service::OnReader::Find(Service& service, std::uint32_t handle) {
    return Usable(service.GetDynamicObject<ITrackReader>(handle));
}

void Service::OnReader::Constructor(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackreader_constructor();
    auto& answer = *response.mutable_trackreader_constructor();
    auto& factory = Configured(service.readerFactory);
    std::unique_ptr<DynamicObject> object(factory.CreateTrackReader(question.trackid()));
    answer.set_object_handle(service.Register(std::move(object)));
}

void Service::OnReader::Destructor(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackreader_destructor();
    response.mutable_trackreader_destructor();
    service.Release(question.object_handle());
}

void Service::OnReader::NextTimePoint(Service& service, const Request& request,
                                      Response& response) {
    const auto& question = request.trackreader_nexttimepoint();
    auto& answer = *response.mutable_trackreader_nexttimepoint();
    bool result = false;
    Find(service, question.object_handle())
        .NextTimePoint(question.timecode(), *answer.mutable_nexttimepoint(), result);
    answer.set_result(result);
}

void Service::OnReader::GetChunk(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackreader_getchunk();
    auto& answer = *response.mutable_trackreader_getchunk();
    bool result = false;
    Find(service, question.object_handle())
        .GetChunk(question.timecode(), question.keys(), *answer.mutable_chunk(), result);
    answer.set_result(result);
}

void Service::OnReader::GetTrackId(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackreader_gettrackid();
    auto& answer = *response.mutable_trackreader_gettrackid();
    long result = 0;
    Find(service, question.object_handle()).GetTrackId(result);
    answer.set_result(result);
}

void Service::OnReader::PreviousTimePoint(Service& service, const Request& request,
                                          Response& response) {
    const auto& question = request.trackreader_previoustimepoint();
    auto& answer = *response.mutable_trackreader_previoustimepoint();
    bool result = false;
    Find(service, question.object_handle())
        .PreviousTimePoint(question.timecode(), *answer.mutable_previoustimepoint(), result);
    answer.set_result(result);
}

void Service::OnReader::GetPreviousChunk(Service& service, const Request& request,
                                         Response& response) {
    const auto& question = request.trackreader_getpreviouschunk();
    auto& answer = *response.mutable_trackreader_getpreviouschunk();
    bool result = false;
    Find(service, question.object_handle())
        .GetPreviousChunk(question.timecode(), question.keys(), *answer.mutable_chunk(), result);
    answer.set_result(result);
}

void Service::OnReader::GetNextChunk(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackreader_getnextchunk();
    auto& answer = *response.mutable_trackreader_getnextchunk();
    bool result = false;
    Find(service, question.object_handle())
        .GetNextChunk(question.timecode(), question.keys(), *answer.mutable_chunk(), result);
    answer.set_result(result);
}

void Service::OnReader::Wait(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackreader_wait();
    auto& answer = *response.mutable_trackreader_wait();
    bool result = false;
    Find(service, question.object_handle()).Wait(question.timecode(), question.timeout(), result);
    answer.set_result(result);
}

ITrackWriter& Service::OnWriter::Find(Service& service, std::uint32_t handle) {
    return Usable(service.GetDynamicObject<ITrackWriter>(handle));
}

void Service::OnWriter::Constructor(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackwriter_constructor();
    auto& answer = *response.mutable_trackwriter_constructor();
    auto& factory = Configured(service.writerFactory);
    std::unique_ptr<DynamicObject> object(factory.CreateTrackWriter(question.trackid()));
    answer.set_object_handle(service.Register(std::move(object)));
}

void Service::OnWriter::Destructor(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackwriter_destructor();
    response.mutable_trackwriter_destructor();
    service.Release(question.object_handle());
}

void Service::OnWriter::Append(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackwriter_append();
    response.mutable_trackwriter_append();
    ITrackWriter& writer = Find(service, question.object_handle());
    Request* const own = RequestInHand::Find(request);
    IChunkTaker* const taker =
        own == nullptr ? nullptr : service.objects.find(question.object_handle())->second.taker;
    if (taker != nullptr && question.has_chunk()) {
        taker->AppendTaking(*own->mutable_trackwriter_append()->mutable_chunk());
    } else {
        writer.Append(question.chunk());
    }
}

void Service::OnWriter::GetTrackId(Service& service, const Request& request, Response& response) {
    const auto& question = request.trackwriter_gettrackid();
    auto& answer = *response.mutable_trackwriter_gettrackid();
    long result = 0;
    Find(service, question.object_handle()).GetTrackId(result);
    answer.set_result(result);
}

}  // namespace BrantelStorageApi
