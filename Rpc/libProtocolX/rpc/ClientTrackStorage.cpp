#include "rpc/ClientTrackStorage.h"

#include "rpc/Call.h"

#include <utility>

namespace BrantelStorageApi {

ClientTrackStorage::ClientTrackStorage(Brantel::Services::IServiceConnection& connection,
                                       Brantel::Services::NativeMutex& mutex)
    : connection(connection), mutex(mutex) {}

void ClientTrackStorage::GetTrackProperties(const long& trackId,
                                            Protocol::PropertyList& properties) {
    Call<OPERATION_TrackStorage_GetTrackProperties> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_gettrackproperties();
    properties = std::move(*answer.mutable_properties());
}

void ClientTrackStorage::GetNumberOfChunks(const long& trackId, const Protocol::TimePoint& in,
                                           const Protocol::TimePoint& out, long& nbChunks) {
    Call<OPERATION_TrackStorage_GetNumberOfChunks> exchange(connection, mutex);
    auto& question = exchange.question;
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
    Call<OPERATION_TrackStorage_DeleteTrack> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_deletetrack();
    infoOut = std::move(*answer.mutable_infoout());
}

void ClientTrackStorage::GetTrackSize(const long& trackId, long& trackSize) {
    Call<OPERATION_TrackStorage_GetTrackSize> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackstorage_gettracksize();
    trackSize = answer.tracksize();
}

void ClientTrackStorage::GetTrackInfos(const Protocol::Ids& trackIds,
                                       Protocol::TrackInfos& trackInfos) {
    Call<OPERATION_TrackStorage_GetTrackInfos> exchange(connection, mutex);
    auto& question = exchange.question;
    const auto trackIdsLoan = Lend<Field::TrackIds>(question, trackIds);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_gettrackinfos();
    trackInfos = std::move(*answer.mutable_trackinfos());
}

void ClientTrackStorage::RemoveTrackProperties(const long& trackId,
                                               const Protocol::PropertyList& properties) {
    Call<OPERATION_TrackStorage_RemoveTrackProperties> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_trackid(trackId);
    const auto propertiesLoan = Lend<Field::Properties>(question, properties);
    exchange.Perform();
}

void ClientTrackStorage::GetActiveWorkers(Protocol::Ids& workerIds, Protocol::Ids& trackIds) {
    Call<OPERATION_TrackStorage_GetActiveWorkers> exchange(connection, mutex);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_getactiveworkers();
    workerIds = std::move(*answer.mutable_workerids());
    trackIds = std::move(*answer.mutable_trackids());
}

void ClientTrackStorage::GrowTrack(const Protocol::TrackParameters& infoIn,
                                   Protocol::TrackParameters& infoOut) {
    Call<OPERATION_TrackStorage_GrowTrack> exchange(connection, mutex);
    auto& question = exchange.question;
    const auto infoInLoan = Lend<Field::InfoIn>(question, infoIn);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_growtrack();
    infoOut = std::move(*answer.mutable_infoout());
}

void ClientTrackStorage::GetCommandInfo(const long& commandId, Protocol::CommandInfo& commandInfo) {
    Call<OPERATION_TrackStorage_GetCommandInfo> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_commandid(commandId);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_getcommandinfo();
    commandInfo = std::move(*answer.mutable_commandinfo());
}

void ClientTrackStorage::GetRemainingSpace(long& remainingSpace) {
    Call<OPERATION_TrackStorage_GetRemainingSpace> exchange(connection, mutex);
    if (!exchange.Perform()) {
        return;
    }
    const auto& answer = exchange.response.trackstorage_getremainingspace();
    remainingSpace = answer.remainingspace();
}

void ClientTrackStorage::GetBeginningOfTrack(const long& trackId, Protocol::TimePoint& timecode) {
    Call<OPERATION_TrackStorage_GetBeginningOfTrack> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_getbeginningoftrack();
    timecode = std::move(*answer.mutable_timecode());
}

void ClientTrackStorage::ClearTrack(const long& trackId) {
    Call<OPERATION_TrackStorage_ClearTrack> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_trackid(trackId);
    exchange.Perform();
}

void ClientTrackStorage::GetAccumulatedDuration(const long& trackId, const Protocol::TimePoint& in,
                                                const Protocol::TimePoint& out,
                                                Protocol::TimePoint& duration) {
    Call<OPERATION_TrackStorage_GetAccumulatedDuration> exchange(connection, mutex);
    auto& question = exchange.question;
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
    Call<OPERATION_TrackStorage_Protect> exchange(connection, mutex);
    auto& question = exchange.question;
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
    Call<OPERATION_TrackStorage_GetWorkerInfos> exchange(connection, mutex);
    auto& question = exchange.question;
    const auto workerIdsLoan = Lend<Field::WorkerIds>(question, workerIds);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_getworkerinfos();
    workerInfos = std::move(*answer.mutable_workerinfos());
}

void ClientTrackStorage::Unprotect(const long& protectionId) {
    Call<OPERATION_TrackStorage_Unprotect> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_protectionid(protectionId);
    exchange.Perform();
}

void ClientTrackStorage::GetEndOfTrack(const long& trackId, Protocol::TimePoint& timecode) {
    Call<OPERATION_TrackStorage_GetEndOfTrack> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_trackid(trackId);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_getendoftrack();
    timecode = std::move(*answer.mutable_timecode());
}

void ClientTrackStorage::ListProtections(Protocol::ProtectionInfos& protectionInfos) {
    Call<OPERATION_TrackStorage_ListProtections> exchange(connection, mutex);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_listprotections();
    protectionInfos = std::move(*answer.mutable_protectioninfos());
}

void ClientTrackStorage::CreateTrack(const Protocol::TrackParameters& infoIn,
                                     Protocol::TrackParameters& infoOut) {
    Call<OPERATION_TrackStorage_CreateTrack> exchange(connection, mutex);
    auto& question = exchange.question;
    const auto infoInLoan = Lend<Field::InfoIn>(question, infoIn);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_createtrack();
    infoOut = std::move(*answer.mutable_infoout());
}

void ClientTrackStorage::GetOngoingCommands(Protocol::Ids& commandIds) {
    Call<OPERATION_TrackStorage_GetOngoingCommands> exchange(connection, mutex);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_getongoingcommands();
    commandIds = std::move(*answer.mutable_commandids());
}

void ClientTrackStorage::SetTrackProperties(const long& trackId,
                                            const Protocol::PropertyList& properties) {
    Call<OPERATION_TrackStorage_SetTrackProperties> exchange(connection, mutex);
    auto& question = exchange.question;
    question.set_trackid(trackId);
    const auto propertiesLoan = Lend<Field::Properties>(question, properties);
    exchange.Perform();
}

void ClientTrackStorage::ListTracks(Protocol::TrackList& list) {
    Call<OPERATION_TrackStorage_ListTracks> exchange(connection, mutex);
    if (!exchange.Perform()) {
        return;
    }
    auto& answer = *exchange.response.mutable_trackstorage_listtracks();
    list = std::move(*answer.mutable_list());
}

}  // namespace BrantelStorageApi
