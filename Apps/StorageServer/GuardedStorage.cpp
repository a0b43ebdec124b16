#include "GuardedStorage.h"

#include <cstddef>
#include <cstdint>

namespace Brantel::Server {

namespace {

using Kind = OperationRecord::Kind;

constexpr std::int64_t noTrack = -1;

constexpr ClientSession::Operation Query(const char* name) {
    return {name, Kind::Query, Role::Reader};
}

constexpr ClientSession::Operation Change(const char* name, Role needed) {
    return {name, Kind::Change, needed};
}

}  // namespace

void GuardedStorage::GetTrackProperties(const long& trackId, Protocol::PropertyList& properties) {
    session->Carry(Query("GetTrackProperties"), trackId, [&](OperationRecord& /*record*/) {
        storage->GetTrackProperties(trackId, properties);
    });
}

void GuardedStorage::GetNumberOfChunks(const long& trackId, const Protocol::TimePoint& in,
                                       const Protocol::TimePoint& out, long& nbChunks) {
    session->Carry(Query("GetNumberOfChunks"), trackId, [&](OperationRecord& /*record*/) {
        storage->GetNumberOfChunks(trackId, in, out, nbChunks);
    });
}

void GuardedStorage::DeleteTrack(const long& trackId, Protocol::TrackParameters& infoOut) {
    session->Carry(Change("DeleteTrack", Role::Admin), trackId,
                   [&](OperationRecord& /*record*/) { storage->DeleteTrack(trackId, infoOut); });
}

void GuardedStorage::GetTrackSize(const long& trackId, long& trackSize) {
    session->Carry(Query("GetTrackSize"), trackId,
                   [&](OperationRecord& /*record*/) { storage->GetTrackSize(trackId, trackSize); });
}

void GuardedStorage::GetTrackInfos(const Protocol::Ids& trackIds,
                                   Protocol::TrackInfos& trackInfos) {
    session->Carry(Query("GetTrackInfos"), noTrack, [&](OperationRecord& /*record*/) {
        session->CheckIds(static_cast<std::size_t>(trackIds.ids_size()));
        storage->GetTrackInfos(trackIds, trackInfos);
    });
}

void GuardedStorage::RemoveTrackProperties(const long& trackId,
                                           const Protocol::PropertyList& properties) {
    session->Carry(
        Change("RemoveTrackProperties", Role::Editor), trackId,
        [&](OperationRecord& /*record*/) { storage->RemoveTrackProperties(trackId, properties); });
}

void GuardedStorage::GetActiveWorkers(Protocol::Ids& workerIds, Protocol::Ids& trackIds) {
    session->Carry(Query("GetActiveWorkers"), noTrack, [&](OperationRecord& /*record*/) {
        storage->GetActiveWorkers(workerIds, trackIds);
    });
}

void GuardedStorage::GrowTrack(const Protocol::TrackParameters& infoIn,
                               Protocol::TrackParameters& infoOut) {
    session->Carry(Change("GrowTrack", Role::Admin), static_cast<std::int64_t>(infoIn.id()),
                   [&](OperationRecord& /*record*/) { storage->GrowTrack(infoIn, infoOut); });
}

void GuardedStorage::GetCommandInfo(const long& commandId, Protocol::CommandInfo& commandInfo) {
    session->Carry(Query("GetCommandInfo"), noTrack, [&](OperationRecord& /*record*/) {
        storage->GetCommandInfo(commandId, commandInfo);
    });
}

void GuardedStorage::GetRemainingSpace(long& remainingSpace) {
    session->Carry(Query("GetRemainingSpace"), noTrack, [&](OperationRecord& /*record*/) {
        storage->GetRemainingSpace(remainingSpace);
    });
}

void GuardedStorage::GetBeginningOfTrack(const long& trackId, Protocol::TimePoint& timecode) {
    session->Carry(Query("GetBeginningOfTrack"), trackId, [&](OperationRecord& /*record*/) {
        storage->GetBeginningOfTrack(trackId, timecode);
    });
}

void GuardedStorage::ClearTrack(const long& trackId) {
    session->Carry(Change("ClearTrack", Role::Admin), trackId,
                   [&](OperationRecord& /*record*/) { storage->ClearTrack(trackId); });
}

void GuardedStorage::GetAccumulatedDuration(const long& trackId, const Protocol::TimePoint& in,
                                            const Protocol::TimePoint& out,
                                            Protocol::TimePoint& duration) {
    session->Carry(Query("GetAccumulatedDuration"), trackId, [&](OperationRecord& /*record*/) {
        storage->GetAccumulatedDuration(trackId, in, out, duration);
    });
}

void GuardedStorage::Protect(const long& trackId, const Protocol::TimePoint& timecode,
                             const Protocol::TimePoint& duration, long& protectionId) {
    session->Carry(Change("Protect", Role::Editor), trackId, [&](OperationRecord& /*record*/) {
        storage->Protect(trackId, timecode, duration, protectionId);
    });
}

void GuardedStorage::GetWorkerInfos(const Protocol::Ids& workerIds,
                                    Protocol::WorkerInfos& workerInfos) {
    session->Carry(Query("GetWorkerInfos"), noTrack, [&](OperationRecord& /*record*/) {
        session->CheckIds(static_cast<std::size_t>(workerIds.ids_size()));
        storage->GetWorkerInfos(workerIds, workerInfos);
    });
}

void GuardedStorage::Unprotect(const long& protectionId) {
    session->Carry(Change("Unprotect", Role::Editor), noTrack,
                   [&](OperationRecord& /*record*/) { storage->Unprotect(protectionId); });
}

void GuardedStorage::GetEndOfTrack(const long& trackId, Protocol::TimePoint& timecode) {
    session->Carry(Query("GetEndOfTrack"), trackId,
                   [&](OperationRecord& /*record*/) { storage->GetEndOfTrack(trackId, timecode); });
}

void GuardedStorage::ListProtections(Protocol::ProtectionInfos& protectionInfos) {
    session->Carry(Query("ListProtections"), noTrack,
                   [&](OperationRecord& /*record*/) { storage->ListProtections(protectionInfos); });
}

void GuardedStorage::CreateTrack(const Protocol::TrackParameters& infoIn,
                                 Protocol::TrackParameters& infoOut) {
    session->Carry(Change("CreateTrack", Role::Admin), static_cast<std::int64_t>(infoIn.id()),
                   [&](OperationRecord& record) {
                       storage->CreateTrack(infoIn, infoOut);
                       record.trackId = static_cast<std::int64_t>(infoOut.id());
                   });
}

void GuardedStorage::GetOngoingCommands(Protocol::Ids& commandIds) {
    session->Carry(Query("GetOngoingCommands"), noTrack,
                   [&](OperationRecord& /*record*/) { storage->GetOngoingCommands(commandIds); });
}

void GuardedStorage::SetTrackProperties(const long& trackId,
                                        const Protocol::PropertyList& properties) {
    session->Carry(
        Change("SetTrackProperties", Role::Editor), trackId,
        [&](OperationRecord& /*record*/) { storage->SetTrackProperties(trackId, properties); });
}

void GuardedStorage::ListTracks(Protocol::TrackList& list) {
    session->Carry(Query("ListTracks"), noTrack,
                   [&](OperationRecord& /*record*/) { storage->ListTracks(list); });
}

}  // namespace Brantel::Server
