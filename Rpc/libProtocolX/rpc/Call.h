#pragma once

#include "rpc/Exchange.h"

namespace BrantelStorageApi {

// The request's part for one operation: its type, and how it is put into a request and taken out.
template <Operation operation>
struct QuestionOf;

#define BRANTEL_CALL(Name, accessor)                                                         \
    template <>                                                                              \
    struct QuestionOf<OPERATION_##Name> {                                                    \
        using Part = Request_##Name;                                                         \
        static void Set(Request& request, Part* part) {                                      \
            request.unsafe_arena_set_allocated_##accessor(part);                             \
        }                                                                                    \
        static void Release(Request& request) { request.unsafe_arena_release_##accessor(); } \
    }

BRANTEL_CALL(TrackStorage_GetTrackProperties, trackstorage_gettrackproperties);
BRANTEL_CALL(TrackStorage_GetNumberOfChunks, trackstorage_getnumberofchunks);
BRANTEL_CALL(TrackStorage_DeleteTrack, trackstorage_deletetrack);
BRANTEL_CALL(TrackStorage_GetTrackSize, trackstorage_gettracksize);
BRANTEL_CALL(TrackStorage_GetTrackInfos, trackstorage_gettrackinfos);
BRANTEL_CALL(TrackStorage_RemoveTrackProperties, trackstorage_removetrackproperties);
BRANTEL_CALL(TrackStorage_GetActiveWorkers, trackstorage_getactiveworkers);
BRANTEL_CALL(TrackStorage_GrowTrack, trackstorage_growtrack);
BRANTEL_CALL(TrackStorage_GetCommandInfo, trackstorage_getcommandinfo);
BRANTEL_CALL(TrackStorage_GetRemainingSpace, trackstorage_getremainingspace);
BRANTEL_CALL(TrackStorage_GetBeginningOfTrack, trackstorage_getbeginningoftrack);
BRANTEL_CALL(TrackStorage_ClearTrack, trackstorage_cleartrack);
BRANTEL_CALL(TrackStorage_GetAccumulatedDuration, trackstorage_getaccumulatedduration);
BRANTEL_CALL(TrackStorage_Protect, trackstorage_protect);
BRANTEL_CALL(TrackStorage_GetWorkerInfos, trackstorage_getworkerinfos);
BRANTEL_CALL(TrackStorage_Unprotect, trackstorage_unprotect);
BRANTEL_CALL(TrackStorage_GetEndOfTrack, trackstorage_getendoftrack);
BRANTEL_CALL(TrackStorage_ListProtections, trackstorage_listprotections);
BRANTEL_CALL(TrackStorage_CreateTrack, trackstorage_createtrack);
BRANTEL_CALL(TrackStorage_GetOngoingCommands, trackstorage_getongoingcommands);
BRANTEL_CALL(TrackStorage_SetTrackProperties, trackstorage_settrackproperties);
BRANTEL_CALL(TrackStorage_ListTracks, trackstorage_listtracks);
BRANTEL_CALL(TrackReader_Constructor, trackreader_constructor);
BRANTEL_CALL(TrackReader_Destructor, trackreader_destructor);
BRANTEL_CALL(TrackReader_NextTimePoint, trackreader_nexttimepoint);
BRANTEL_CALL(TrackReader_GetChunk, trackreader_getchunk);
BRANTEL_CALL(TrackReader_GetTrackId, trackreader_gettrackid);
BRANTEL_CALL(TrackReader_PreviousTimePoint, trackreader_previoustimepoint);
BRANTEL_CALL(TrackReader_GetPreviousChunk, trackreader_getpreviouschunk);
BRANTEL_CALL(TrackReader_GetNextChunk, trackreader_getnextchunk);
BRANTEL_CALL(TrackReader_Wait, trackreader_wait);
BRANTEL_CALL(TrackWriter_Constructor, trackwriter_constructor);
BRANTEL_CALL(TrackWriter_Destructor, trackwriter_destructor);
BRANTEL_CALL(TrackWriter_Append, trackwriter_append);
BRANTEL_CALL(TrackWriter_GetTrackId, trackwriter_gettrackid);

#undef BRANTEL_CALL

// An exchange with the request's part for its operation. The part is a member that stands in the
// request for the length of the call: no memory is taken for it.
template <Operation operation>
class Call : public Exchange {
  public:
    Call(Brantel::Services::IServiceConnection& connection, Brantel::Services::NativeMutex& mutex)
        : Exchange(connection, mutex, operation) {
        QuestionOf<operation>::Set(request, &question);
    }
    ~Call() { QuestionOf<operation>::Release(request); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    typename QuestionOf<operation>::Part question;
};

}  // namespace BrantelStorageApi
