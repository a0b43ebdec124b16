#include "GuardedStorage.h"

#include <stdexcept>
#include <string>

namespace Brantel::Server {

namespace {

void Require(Role needed, Role role, const char* operation) {
    if (role < needed) {
        throw std::runtime_error(std::string("Permission denied: ") + operation + " needs role " +
                                 std::string(NameOf(needed)));
    }
}

}  // namespace

void GuardedStorage::GetTrackProperties(const long& trackId, Protocol::PropertyList& properties) {
    Require(Role::Reader, role, "GetTrackProperties");
    storage->GetTrackProperties(trackId, properties);
}

void GuardedStorage::GetNumberOfChunks(const long& trackId, const Protocol::TimePoint& in,
                                       const Protocol::TimePoint& out, long& nbChunks) {
    Require(Role::Reader, role, "GetNumberOfChunks");
    storage->GetNumberOfChunks(trackId, in, out, nbChunks);
}

void GuardedStorage::DeleteTrack(const long& trackId, Protocol::TrackParameters& infoOut) {
    Require(Role::Admin, role, "DeleteTrack");
    storage->DeleteTrack(trackId, infoOut);
}

void GuardedStorage::GetTrackSize(const long& trackId, long& trackSize) {
    Require(Role::Reader, role, "GetTrackSize");
    storage->GetTrackSize(trackId, trackSize);
}

void GuardedStorage::GetTrackInfos(const Protocol::Ids& trackIds,
                                   Protocol::TrackInfos& trackInfos) {
    Require(Role::Reader, role, "GetTrackInfos");
    storage->GetTrackInfos(trackIds, trackInfos);
}

void GuardedStorage::RemoveTrackProperties(const long& trackId,
                                           const Protocol::PropertyList& properties) {
    Require(Role::Editor, role, "RemoveTrackProperties");
    storage->RemoveTrackProperties(trackId, properties);
}

void GuardedStorage::GetActiveWorkers(Protocol::Ids& workerIds, Protocol::Ids& trackIds) {
    Require(Role::Reader, role, "GetActiveWorkers");
    storage->GetActiveWorkers(workerIds, trackIds);
}

void GuardedStorage::GrowTrack(const Protocol::TrackParameters& infoIn,
                               Protocol::TrackParameters& infoOut) {
    Require(Role::Admin, role, "GrowTrack");
    storage->GrowTrack(infoIn, infoOut);
}

void GuardedStorage::GetCommandInfo(const long& commandId, Protocol::CommandInfo& commandInfo) {
    Require(Role::Reader, role, "GetCommandInfo");
    storage->GetCommandInfo(commandId, commandInfo);
}

void GuardedStorage::GetRemainingSpace(long& remainingSpace) {
    Require(Role::Reader, role, "GetRemainingSpace");
    storage->GetRemainingSpace(remainingSpace);
}

void GuardedStorage::GetBeginningOfTrack(const long& trackId, Protocol::TimePoint& timecode) {
    Require(Role::Reader, role, "GetBeginningOfTrack");
    storage->GetBeginningOfTrack(trackId, timecode);
}

void GuardedStorage::ClearTrack(const long& trackId) {
    Require(Role::Admin, role, "ClearTrack");
    storage->ClearTrack(trackId);
}

void GuardedStorage::GetAccumulatedDuration(const long& trackId, const Protocol::TimePoint& in,
                                            const Protocol::TimePoint& out,
                                            Protocol::TimePoint& duration) {
    Require(Role::Reader, role, "GetAccumulatedDuration");
    storage->GetAccumulatedDuration(trackId, in, out, duration);
}

void GuardedStorage::Protect(const long& trackId, const Protocol::TimePoint& timecode,
                             const Protocol::TimePoint& duration, long& protectionId) {
    Require(Role::Editor, role, "Protect");
    storage->Protect(trackId, timecode, duration, protectionId);
}

void GuardedStorage::GetWorkerInfos(const Protocol::Ids& workerIds,
                                    Protocol::WorkerInfos& workerInfos) {
    Require(Role::Reader, role, "GetWorkerInfos");
    storage->GetWorkerInfos(workerIds, workerInfos);
}

void GuardedStorage::Unprotect(const long& protectionId) {
    Require(Role::Editor, role, "Unprotect");
    storage->Unprotect(protectionId);
}

void GuardedStorage::GetEndOfTrack(const long& trackId, Protocol::TimePoint& timecode) {
    Require(Role::Reader, role, "GetEndOfTrack");
    storage->GetEndOfTrack(trackId, timecode);
}

void GuardedStorage::ListProtections(Protocol::ProtectionInfos& protectionInfos) {
    Require(Role::Reader, role, "ListProtections");
    storage->ListProtections(protectionInfos);
}

void GuardedStorage::CreateTrack(const Protocol::TrackParameters& infoIn,
                                 Protocol::TrackParameters& infoOut) {
    Require(Role::Admin, role, "CreateTrack");
    storage->CreateTrack(infoIn, infoOut);
}

void GuardedStorage::GetOngoingCommands(Protocol::Ids& commandIds) {
    Require(Role::Reader, role, "GetOngoingCommands");
    storage->GetOngoingCommands(commandIds);
}

void GuardedStorage::SetTrackProperties(const long& trackId,
                                        const Protocol::PropertyList& properties) {
    Require(Role::Editor, role, "SetTrackProperties");
    storage->SetTrackProperties(trackId, properties);
}

void GuardedStorage::ListTracks(Protocol::TrackList& list) {
    Require(Role::Reader, role, "ListTracks");
    storage->ListTracks(list);
}

BrantelStorageApi::ITrackReader* GuardedReaderFactory::CreateTrackReader(const long& trackId) {
    Require(Role::Reader, role, "TrackReader");
    return factory->CreateTrackReader(trackId);
}

BrantelStorageApi::ITrackWriter* GuardedWriterFactory::CreateTrackWriter(const long& trackId) {
    Require(Role::Writer, role, "TrackWriter");
    return factory->CreateTrackWriter(trackId);
}

}  // namespace Brantel::Server
