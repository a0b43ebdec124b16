#pragma once

// For each operation: X(its name, its field in the envelopes).
#define BRANTEL_FOR_EACH_OPERATION(X)                                           \
    X(TrackStorage_GetTrackProperties, trackstorage_gettrackproperties)         \
    X(TrackStorage_GetNumberOfChunks, trackstorage_getnumberofchunks)           \
    X(TrackStorage_DeleteTrack, trackstorage_deletetrack)                       \
    X(TrackStorage_GetTrackSize, trackstorage_gettracksize)                     \
    X(TrackStorage_GetTrackInfos, trackstorage_gettrackinfos)                   \
    X(TrackStorage_RemoveTrackProperties, trackstorage_removetrackproperties)   \
    X(TrackStorage_GetActiveWorkers, trackstorage_getactiveworkers)             \
    X(TrackStorage_GrowTrack, trackstorage_growtrack)                           \
    X(TrackStorage_GetCommandInfo, trackstorage_getcommandinfo)                 \
    X(TrackStorage_GetRemainingSpace, trackstorage_getremainingspace)           \
    X(TrackStorage_GetBeginningOfTrack, trackstorage_getbeginningoftrack)       \
    X(TrackStorage_ClearTrack, trackstorage_cleartrack)                         \
    X(TrackStorage_GetAccumulatedDuration, trackstorage_getaccumulatedduration) \
    X(TrackStorage_Protect, trackstorage_protect)                               \
    X(TrackStorage_GetWorkerInfos, trackstorage_getworkerinfos)                 \
    X(TrackStorage_Unprotect, trackstorage_unprotect)                           \
    X(TrackStorage_GetEndOfTrack, trackstorage_getendoftrack)                   \
    X(TrackStorage_ListProtections, trackstorage_listprotections)               \
    X(TrackStorage_CreateTrack, trackstorage_createtrack)                       \
    X(TrackStorage_GetOngoingCommands, trackstorage_getongoingcommands)         \
    X(TrackStorage_SetTrackProperties, trackstorage_settrackproperties)         \
    X(TrackStorage_ListTracks, trackstorage_listtracks)                         \
    X(TrackReader_Constructor, trackreader_constructor)                         \
    X(TrackReader_Destructor, trackreader_destructor)                           \
    X(TrackReader_NextTimePoint, trackreader_nexttimepoint)                     \
    X(TrackReader_GetChunk, trackreader_getchunk)                               \
    X(TrackReader_GetTrackId, trackreader_gettrackid)                           \
    X(TrackReader_PreviousTimePoint, trackreader_previoustimepoint)             \
    X(TrackReader_GetPreviousChunk, trackreader_getpreviouschunk)               \
    X(TrackReader_GetNextChunk, trackreader_getnextchunk)                       \
    X(TrackReader_Wait, trackreader_wait)                                       \
    X(TrackWriter_Constructor, trackwriter_constructor)                         \
    X(TrackWriter_Destructor, trackwriter_destructor)                           \
    X(TrackWriter_Append, trackwriter_append)                                   \
    X(TrackWriter_GetTrackId, trackwriter_gettrackid)
