#include "QuickRequest.h"

#include <BrantelStorageApiMessages.pb.h>

namespace Brantel::Server {

bool IsQuickRequest(const unsigned char* request, std::size_t size) {
    using BrantelStorageApi::Request;
    // Enough for every such request; one with more holds what is not asked for.
    constexpr std::size_t longest = 64;
    // The field's number and its kind on the wire, a varint.
    constexpr unsigned tag = unsigned{Request::kOperationFieldNumber} << 3U;
    static_assert(tag < 0x80U && BrantelStorageApi::Operation_MAX < 0x80);
    if (size < 2 || size > longest || request[0] != tag) {
        return false;
    }
    switch (request[1]) {
        case BrantelStorageApi::OPERATION_TrackStorage_GetTrackSize:
        case BrantelStorageApi::OPERATION_TrackStorage_GetBeginningOfTrack:
        case BrantelStorageApi::OPERATION_TrackStorage_GetEndOfTrack:
        case BrantelStorageApi::OPERATION_TrackStorage_GetCommandInfo:
        case BrantelStorageApi::OPERATION_TrackReader_GetTrackId:
        case BrantelStorageApi::OPERATION_TrackWriter_GetTrackId: return true;
        default: return false;
    }
}

}  // namespace Brantel::Server
