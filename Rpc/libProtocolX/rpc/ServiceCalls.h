#pragma once

#include "rpc/Service.h"

#include <cstdint>

namespace BrantelStorageApi {

// One function for each operation: creates the part of the response, finds the object and calls it.
// Output messages are filled in place; a number or a flag is taken over when the call has returned.
struct Service::OnStorage {
    static void GetTrackProperties(Service& service, const Request& request, Response& response);
    static void GetNumberOfChunks(Service& service, const Request& request, Response& response);
    static void DeleteTrack(Service& service, const Request& request, Response& response);
    static void GetTrackSize(Service& service, const Request& request, Response& response);
    static void GetTrackInfos(Service& service, const Request& request, Response& response);
    static void RemoveTrackProperties(Service& service, const Request& request, Response& response);
    static void GetActiveWorkers(Service& service, const Request& request, Response& response);
    static void GrowTrack(Service& service, const Request& request, Response& response);
    static void GetCommandInfo(Service& service, const Request& request, Response& response);
    static void GetRemainingSpace(Service& service, const Request& request, Response& response);
    static void GetBeginningOfTrack(Service& service, const Request& request, Response& response);
    static void ClearTrack(Service& service, const Request& request, Response& response);
    static void GetAccumulatedDuration(Service& service, const Request& request,
                                       Response& response);
    static void Protect(Service& service, const Request& request, Response& response);
    static void GetWorkerInfos(Service& service, const Request& request, Response& response);
    static void Unprotect(Service& service, const Request& request, Response& response);
    static void GetEndOfTrack(Service& service, const Request& request, Response& response);
    static void ListProtections(Service& service, const Request& request, Response& response);
    static void CreateTrack(Service& service, const Request& request, Response& response);
    static void GetOngoingCommands(Service& service, const Request& request, Response& response);
    static void SetTrackProperties(Service& service, const Request& request, Response& response);
    static void ListTracks(Service& service, const Request& request, Response& response);
};

struct Service::OnReader {
    static ITrackReader& Find(Service& service, std::uint32_t handle);
    static void Constructor(Service& service, const Request& request, Response& response);
    static void Destructor(Service& service, const Request& request, Response& response);
    static void NextTimePoint(Service& service, const Request& request, Response& response);
    static void GetChunk(Service& service, const Request& request, Response& response);
    static void GetTrackId(Service& service, const Request& request, Response& response);
    static void PreviousTimePoint(Service& service, const Request& request, Response& response);
    static void GetPreviousChunk(Service& service, const Request& request, Response& response);
    static void GetNextChunk(Service& service, const Request& request, Response& response);
    static void Wait(Service& service, const Request& request, Response& response);
};

struct Service::OnWriter {
    static ITrackWriter& Find(Service& service, std::uint32_t handle);
    static void Constructor(Service& service, const Request& request, Response& response);
    static void Destructor(Service& service, const Request& request, Response& response);
    static void Append(Service& service, const Request& request, Response& response);
    static void GetTrackId(Service& service, const Request& request, Response& response);
};

}  // namespace BrantelStorageApi
