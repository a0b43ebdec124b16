#include "rpc/PartMemory.h"

#include "rpc/Operations.h"

#include <google/protobuf/unknown_field_set.h>

#include <cstdint>
#include <string>

namespace BrantelStorageApi {
namespace {

// The memory of single elements of lists, with what they always come to have.
std::size_t MemoryOf(const std::string& text) {
    // The object itself and the characters behind it.
    return sizeof(std::string) + text.capacity();
}

template <class Item>
std::size_t MemoryOfItem(const Item& item) {
    return sizeof(item) + MemoryOf(item.key()) + MemoryOf(item.value());
}

std::size_t MemoryOf(const Protocol::PropertyList::Item& item) {
    return MemoryOfItem(item);
}

std::size_t MemoryOf(const Protocol::DataList::Item& item) {
    return MemoryOfItem(item);
}

std::size_t MemoryOf(const Protocol::TrackInfo& info) {
    return sizeof(info) + 2 * sizeof(Protocol::TimePoint);
}

std::size_t MemoryOf(const Protocol::ProtectionInfo& info) {
    return sizeof(info) + 2 * sizeof(Protocol::TimePoint);
}

std::size_t MemoryOf(const Protocol::WorkerInfo& info) {
    return sizeof(info) + MemoryOf(info.clientipv4address());
}

// A list keeps the elements that were removed from it, behind those that it holds.
template <class Element>
std::size_t MemoryOf(const google::protobuf::RepeatedPtrField<Element>& list) {
    std::size_t bytes = static_cast<std::size_t>(list.Capacity()) * sizeof(Element*);
    const int kept = list.size() + list.ClearedCount();
    for (int i = 0; i < kept; ++i) {
        bytes += MemoryOf(*list.data()[i]);
    }
    return bytes;
}

std::size_t MemoryOf(const google::protobuf::RepeatedField<std::uint64_t>& list) {
    return static_cast<std::size_t>(list.Capacity()) * sizeof(std::uint64_t);
}

// Adds up a part and what is in it.
class PartCount {
  public:
    template <class Part>
    void AddPart(const Part& part) {
        AddUnknownFields(part);
        if constexpr (requires { part.in(); }) {
            AddUnknownFields(part.in());
            AddUnknownFields(part.out());
        }
        if constexpr (requires { part.timecode(); }) {
            AddUnknownFields(part.timecode());
        }
        if constexpr (requires { part.duration(); }) {
            AddUnknownFields(part.duration());
        }
        if constexpr (requires { part.infoin(); }) {
            AddUnknownFields(part.infoin());
        }
        if constexpr (requires { part.keys(); }) {
            AddUnknownFields(part.keys());
            memory.lists += MemoryOf(part.keys().keys());
        }
        if constexpr (requires { part.trackids(); }) {
            AddUnknownFields(part.trackids());
            memory.lists += MemoryOf(part.trackids().ids());
        }
        if constexpr (requires { part.workerids(); }) {
            AddUnknownFields(part.workerids());
            memory.lists += MemoryOf(part.workerids().ids());
        }
        if constexpr (requires { part.properties(); }) {
            AddItems(part.properties());
        }
        if constexpr (requires { part.data(); }) {
            AddItems(part.data());
        }
        if constexpr (requires { part.chunk(); }) {
            AddPart(part.chunk());
        }
    }

    // Their array grows by doubling: up to twice of what is in use is allocated.
    template <class Message>
    void AddUnknownFields(const Message& message) {
        memory.unknownFields += 2 * sizeof(google::protobuf::UnknownField) *
                                static_cast<std::size_t>(message.unknown_fields().field_count());
    }

    const PartMemory& Get() const { return memory; }

  private:
    template <class List>
    void AddItems(const List& list) {
        AddUnknownFields(list);
        for (const auto& item : list.items()) {
            AddUnknownFields(item);
        }
        memory.lists += MemoryOf(list.items());
    }

    PartMemory memory;
};

template <class Envelope, class Part>
PartMemory Count(const Envelope& envelope, const Part& part) {
    PartCount count;
    count.AddUnknownFields(envelope);
    count.AddPart(part);
    return count.Get();
}

// The compiler makes one test of it.
template <Operation operation>
bool HasForeignPart(const Request& request) {
    unsigned found = 0;
#define BRANTEL_LOOK(Name, accessor)                 \
    if constexpr (OPERATION_##Name != operation) {   \
        found |= request.has_##accessor() ? 1U : 0U; \
    }
    BRANTEL_FOR_EACH_OPERATION(BRANTEL_LOOK)
#undef BRANTEL_LOOK
    return found != 0;
}

template <Operation operation, class Part>
PartMemory CountCall(const Request& request, const Part& part) {
    PartMemory memory = Count(request, part);
    memory.foreign = HasForeignPart<operation>(request);
    return memory;
}

template <class... Lists>
PartMemory OfLists(const Lists&... lists) {
    return {(MemoryOf(lists) + ...)};
}

PartMemory MemoryOfPart(const Response& response, Operation operation) {
    switch (operation) {
        case OPERATION_TrackStorage_GetTrackProperties:
            return Count(response, response.trackstorage_gettrackproperties());
        case OPERATION_TrackStorage_GetTrackInfos:
            return OfLists(response.trackstorage_gettrackinfos().trackinfos().infos());
        case OPERATION_TrackStorage_GetActiveWorkers:
            return OfLists(response.trackstorage_getactiveworkers().workerids().ids(),
                           response.trackstorage_getactiveworkers().trackids().ids());
        case OPERATION_TrackStorage_GetWorkerInfos:
            return OfLists(response.trackstorage_getworkerinfos().workerinfos().infos());
        case OPERATION_TrackStorage_ListProtections:
            return OfLists(response.trackstorage_listprotections().protectioninfos().infos());
        case OPERATION_TrackStorage_GetOngoingCommands:
            return OfLists(response.trackstorage_getongoingcommands().commandids().ids());
        case OPERATION_TrackStorage_ListTracks:
            return OfLists(response.trackstorage_listtracks().list().trackids());
        case OPERATION_TrackReader_GetChunk:
            return Count(response, response.trackreader_getchunk());
        case OPERATION_TrackReader_GetPreviousChunk:
            return Count(response, response.trackreader_getpreviouschunk());
        case OPERATION_TrackReader_GetNextChunk:
            return Count(response, response.trackreader_getnextchunk());
        default: return {};
    }
}

}  // namespace

PartMemory MemoryOf(const Request& request) {
    switch (request.operation()) {
#define BRANTEL_COUNT(Name, accessor) \
    case OPERATION_##Name: return CountCall<OPERATION_##Name>(request, request.accessor());
        BRANTEL_FOR_EACH_OPERATION(BRANTEL_COUNT)
#undef BRANTEL_COUNT
        default: return {};
    }
}

PartMemory MemoryOf(const Response& response, Operation operation) {
    PartMemory memory = MemoryOfPart(response, operation);
    memory.text = response.exception().capacity();
    return memory;
}

PartMemory MemoryOf(const Protocol::Chunk& chunk) {
    PartCount count;
    count.AddPart(chunk);
    return count.Get();
}

}  // namespace BrantelStorageApi
