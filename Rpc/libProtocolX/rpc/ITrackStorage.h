#pragma once

#include <CommonMessages.pb.h>
#include <libProtocolX/rpc/DynamicObject.h>

namespace BrantelStorageApi {

// The track storage: on the client a stub that asks the server, on the server the storage itself.
// Every operation reports a failure by an exception derived from std::runtime_error; outputs are
// then unspecified on the server, untouched on the client.
class ITrackStorage : public DynamicObject {
  public:
    // All properties of a track, the settings that were made included.
    virtual void GetTrackProperties(const long& trackId, Protocol::PropertyList& properties) = 0;

    // How many chunks have a time point in [in, out).
    virtual void GetNumberOfChunks(const long& trackId, const Protocol::TimePoint& in,
                                   const Protocol::TimePoint& out, long& nbChunks) = 0;

    // Deletes a track; `infoOut` names it and the command that carries it out.
    virtual void DeleteTrack(const long& trackId, Protocol::TrackParameters& infoOut) = 0;

    // The capacity of a track, in bytes.
    virtual void GetTrackSize(const long& trackId, long& trackSize) = 0;

    // One record for each of `trackIds` that exists.
    virtual void GetTrackInfos(const Protocol::Ids& trackIds, Protocol::TrackInfos& trackInfos) = 0;

    // Removes the properties with these keys; the values are ignored.
    virtual void RemoveTrackProperties(const long& trackId,
                                       const Protocol::PropertyList& properties) = 0;

    // The open readers and writers: worker i works on track i.
    virtual void GetActiveWorkers(Protocol::Ids& workerIds, Protocol::Ids& trackIds) = 0;

    // Gives a track a larger capacity (`infoIn.size`, bytes); `infoOut` names the command that
    // carries it out.
    virtual void GrowTrack(const Protocol::TrackParameters& infoIn,
                           Protocol::TrackParameters& infoOut) = 0;

    // The state of a command; NOT_EXIST for an unknown one.
    virtual void GetCommandInfo(const long& commandId, Protocol::CommandInfo& commandInfo) = 0;

    // How many bytes of new capacity can still be taken.
    virtual void GetRemainingSpace(long& remainingSpace) = 0;

    // Time point of the first chunk.
    virtual void GetBeginningOfTrack(const long& trackId, Protocol::TimePoint& timecode) = 0;

    // Drops every chunk that is not held by a protection.
    virtual void ClearTrack(const long& trackId) = 0;

    // The sum of the durations of the chunks with a time point in [in, out).
    virtual void GetAccumulatedDuration(const long& trackId, const Protocol::TimePoint& in,
                                        const Protocol::TimePoint& out,
                                        Protocol::TimePoint& duration) = 0;

    // Holds every chunk that intersects [timecode, timecode + duration).
    virtual void Protect(const long& trackId, const Protocol::TimePoint& timecode,
                         const Protocol::TimePoint& duration, long& protectionId) = 0;

    // One record for each of `workerIds`.
    virtual void GetWorkerInfos(const Protocol::Ids& workerIds,
                                Protocol::WorkerInfos& workerInfos) = 0;

    // Ends a protection.
    virtual void Unprotect(const long& protectionId) = 0;

    // Time point plus duration of the last chunk.
    virtual void GetEndOfTrack(const long& trackId, Protocol::TimePoint& timecode) = 0;

    // All protections of all tracks.
    virtual void ListProtections(Protocol::ProtectionInfos& protectionInfos) = 0;

    // Creates a track of `infoIn.size` bytes; `infoOut` names it and the command that carries it
    // out.
    virtual void CreateTrack(const Protocol::TrackParameters& infoIn,
                             Protocol::TrackParameters& infoOut) = 0;

    // The commands that have not ended.
    virtual void GetOngoingCommands(Protocol::Ids& commandIds) = 0;

    // Adds or replaces the given properties and leaves the others.
    virtual void SetTrackProperties(const long& trackId,
                                    const Protocol::PropertyList& properties) = 0;

    // The identifiers of all tracks.
    virtual void ListTracks(Protocol::TrackList& list) = 0;
};

}  // namespace BrantelStorageApi
