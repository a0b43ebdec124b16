#include "rpc/ClientTrackStorage.h"

#include "rpc/Exchange.h"

#include <utility>

namespace BrantelStorageApi {

ClientTrackStorage::ClientTrackStorage(Brantel::Services::IServiceConnection& connection,
                                       Brantel::Services::NativeMutex& mutex)
    : connection(connection), mutex(mutex) {}

void ClientTrackStorage::GetTrackProperties(const long& trackId,
                                            Protocol::PropertyList& properties) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_GetTrackProperties);
    auto& question = *exchange.request.mutable_trackstorage_gettrackproperties();
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_gettrackproperties();
    properties = std::move(*answer.mutable_properties());
}

void ClientTrackStorage::GetNumberOfChunks(const long& trackId, const Protocol::TimePoint& in,
                                           const Protocol::TimePoint& out, long& nbChunks) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_GetNumberOfChunks);
    auto& question = *exchange.request.mutable_trackstorage_getnumberofchunks();
    question.set_trackid(trackId);
    const auto inLoan = Lend<Field::In>(question, in);
    const auto outLoan = Lend<Field::Out>(question, out);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackstorage_getnumberofchunks();
    nbChunks = answer.nbchunks();
}

void ClientTrackStorage::DeleteTrack(const long& trackId, Protocol::TrackParameters& infoOut) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_DeleteTrack);
    auto& question = *exchange.request.mutable_trackstorage_deletetrack();
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_deletetrack();
    infoOut = std::move(*answer.mutable_infoout());
}

void ClientTrackStorage::GetTrackSize(const long& trackId, long& trackSize) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_GetTrackSize);
    auto& question = *exchange.request.mutable_trackstorage_gettracksize();
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackstorage_gettracksize();
    trackSize = answer.tracksize();
}

void ClientTrackStorage::GetTrackInfos(const Protocol::Ids& trackIds,
                                       Protocol::TrackInfos& trackInfos) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_GetTrackInfos);
    auto& question = *exchange.request.mutable_trackstorage_gettrackinfos();
    const auto trackIdsLoan = Lend<Field::TrackIds>(question, trackIds);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_gettrackinfos();
    trackInfos = std::move(*answer.mutable_trackinfos());
}

void ClientTrackStorage::RemoveTrackProperties(const long& trackId,
                                               const Protocol::PropertyList& properties) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_RemoveTrackProperties);
    auto& question = *exchange.request.mutable_trackstorage_removetrackproperties();
    question.set_trackid(trackId);
    const auto propertiesLoan = Lend<Field::Properties>(question, properties);
    exchange.Perform();
}

void ClientTrackStorage::GetActiveWorkers(Protocol::Ids& workerIds, Protocol::Ids& trackIds) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_GetActiveWorkers);
    exchange.request.mutable_trackstorage_getactiveworkers();
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_getactiveworkers();
    workerIds = std::move(*answer.mutable_workerids());
    trackIds = std::move(*answer.mutable_trackids());
}

void ClientTrackStorage::GrowTrack(const Protocol::TrackParameters& infoIn,
                                   Protocol::TrackParameters& infoOut) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_GrowTrack);
    auto& question = *exchange.request.mutable_trackstorage_growtrack();
    const auto infoInLoan = Lend<Field::InfoIn>(question, infoIn);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_growtrack();
    infoOut = std::move(*answer.mutable_infoout());
}

void ClientTrackStorage::GetCommandInfo(const long& commandId, Protocol::CommandInfo& commandInfo) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_GetCommandInfo);
    auto& question = *exchange.request.mutable_trackstorage_getcommandinfo();
    question.set_commandid(commandId);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_getcommandinfo();
    commandInfo = std::move(*answer.mutable_commandinfo());
}

void ClientTrackStorage::GetRemainingSpace(long& remainingSpace) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_GetRemainingSpace);
    exchange.request.mutable_trackstorage_getremainingspace();
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackstorage_getremainingspace();
    remainingSpace = answer.remainingspace();
}

void ClientTrackStorage::GetBeginningOfTrack(const long& trackId, Protocol::TimePoint& timecode) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_GetBeginningOfTrack);
    auto& question = *exchange.request.mutable_trackstorage_getbeginningoftrack();
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_getbeginningoftrack();
    timecode = std::move(*answer.mutable_timecode());
}

void ClientTrackStorage::ClearTrack(const long& trackId) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_ClearTrack);
    auto& question = *exchange.request.mutable_trackstorage_cleartrack();
    question.set_trackid(trackId);
    exchange.Perform();
}

void ClientTrackStorage::GetAccumulatedDuration(const long& trackId, const Protocol::TimePoint& in,
                                                const Protocol::TimePoint& out,
                                                Protocol::TimePoint& duration) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_GetAccumulatedDuration);
    auto& question = *exchange.request.mutable_trackstorage_getaccumulatedduration();
    question.set_trackid(trackId);
    const auto inLoan = Lend<Field::In>(question, in);
    const auto outLoan = Lend<Field::Out>(question, out);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_getaccumulatedduration();
    duration = std::move(*answer.mutable_duration());
}

void ClientTrackStorage::Protect(const long& trackId, const Protocol::TimePoint& timecode,
                                 const Protocol::TimePoint& duration, long& protectionId) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_Protect);
    auto& question = *exchange.request.mutable_trackstorage_protect();
    question.set_trackid(trackId);
    const auto timecodeLoan = Lend<Field::Timecode>(question, timecode);
    const auto durationLoan = Lend<Field::Duration>(question, duration);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackstorage_protect();
    protectionId = answer.protectionid();
}

void ClientTrackStorage::GetWorkerInfos(const Protocol::Ids& workerIds,
                                        Protocol::WorkerInfos& workerInfos) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_GetWorkerInfos);
    auto& question = *exchange.request.mutable_trackstorage_getworkerinfos();
    const auto workerIdsLoan = Lend<Field::WorkerIds>(question, workerIds);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_getworkerinfos();
    workerInfos = std::move(*answer.mutable_workerinfos());
}

void ClientTrackStorage::Unprotect(const long& protectionId) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_Unprotect);
    auto& question = *exchange.request.mutable_trackstorage_unprotect();
    question.set_protectionid(protectionId);
    exchange.Perform();
}

void ClientTrackStorage::GetEndOfTrack(const long& trackId, Protocol::TimePoint& timecode) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_GetEndOfTrack);
    auto& question = *exchange.request.mutable_trackstorage_getendoftrack();
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_getendoftrack();
    timecode = std::move(*answer.mutable_timecode());
}

void ClientTrackStorage::ListProtections(Protocol::ProtectionInfos& protectionInfos) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_ListProtections);
    exchange.request.mutable_trackstorage_listprotections();
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_listprotections();
    protectionInfos = std::move(*answer.mutable_protectioninfos());
}

void ClientTrackStorage::CreateTrack(const Protocol::TrackParameters& infoIn,
                                     Protocol::TrackParameters& infoOut) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_CreateTrack);
    auto& question = *exchange.request.mutable_trackstorage_createtrack();
    const auto infoInLoan = Lend<Field::InfoIn>(question, infoIn);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_createtrack();
    infoOut = std::move(*answer.mutable_infoout());
}

void ClientTrackStorage::GetOngoingCommands(Protocol::Ids& commandIds) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_GetOngoingCommands);
    exchange.request.mutable_trackstorage_getongoingcommands();
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_getongoingcommands();
    commandIds = std::move(*answer.mutable_commandids());
}

void ClientTrackStorage::SetTrackProperties(const long& trackId,
                                            const Protocol::PropertyList& properties) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_SetTrackProperties);
    auto& question = *exchange.request.mutable_trackstorage_settrackproperties();
    question.set_trackid(trackId);
    const auto propertiesLoan = Lend<Field::Properties>(question, properties);
    exchange.Perform();
}

void ClientTrackStorage::ListTracks(Protocol::TrackList& list) {
    Exchange exchange(connection, mutex, OPERATION_TrackStorage_ListTracks);
    exchange.request.mutable_trackstorage_listtracks();
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_listtracks();
    list = std::move(*answer.mutable_list());
}

}  // namespace BrantelStorageApi
