// A service over a storage in memory, given any requests one after the other: each has an answer
// that can be sent, what the tracks then hold is the same by every way of asking, and a storage
// that is opened again holds what it held.
//
// An input is a row of requests, each behind its length in two bytes, the lower one first. A data
// block named "long" that is appended is 100 times as long as in the input, so that a short input
// fills a track.
#include "Support/FuzzCheck.h"
#include "Support/MessageMutator.h"

#include <BrantelStorageApiMessages.pb.h>
#include <libEngine/Memory/MemoryEngine.h>
#include <libProtocolX/rpc/Service.h>
#include <libTracks/Storage.h>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/stubs/logging.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize)
    __attribute__((weak));

namespace {

using Brantel::Engine::MemoryEngine;
using Brantel::Tests::FuzzInput;
using Brantel::Tests::MessageMutator;
using Brantel::Tests::Require;
using Brantel::Tracks::Storage;
using BrantelStorageApi::Operation;
using BrantelStorageApi::Request;
using BrantelStorageApi::Response;
using BrantelStorageApi::Service;

constexpr std::uint64_t engineLimit = std::uint64_t{4} << 20U;
constexpr std::size_t requestsLimit = 60;

Brantel::Tracks::StorageOptions SmallOptions() {
    Brantel::Tracks::StorageOptions options;
    options.smallestSegmentBytes = 12'288;
    options.entryCacheBytes = 4096;
    options.commandHistory = 5;
    options.propertiesLimitBytes = 10'000;
    options.workersLimit = 5;
    options.protectionsLimit = 5;
    return options;
}

Service ServiceOn(Storage& storage) {
    const Brantel::Tracks::ClientConnection connection;
    return {storage.MakeTrackStorage(), storage.MakeReaderFactory(connection),
            storage.MakeWriterFactory(connection)};
}

Response Serve(Service& service, const Request& request) {
    Response response;
    service.ServeRequest(request, response);
    Require(response.IsInitialized(), "an answer can be sent");
    Require(response.is_success() || !response.exception().empty(), "a failure has a reason");
    return response;
}

// Commands are carried out beside the requests; an input is to mean the same each time.
void AwaitCommands(Service& service) {
    Request request;
    request.set_operation(BrantelStorageApi::OPERATION_TrackStorage_GetOngoingCommands);
    request.mutable_trackstorage_getongoingcommands();
    for (;;) {
        const Response response = Serve(service, request);
        if (response.trackstorage_getongoingcommands().commandids().ids().empty()) {
            return;
        }
        std::this_thread::yield();
    }
}

// Asks for something that can't fail. `fill` makes the operation's part of the request.
template <class Fill>
Response Ask(Service& service, Operation operation, Fill fill) {
    Request request;
    request.set_operation(operation);
    fill(request);
    Response response = Serve(service, request);
    Require(response.is_success(), response.exception());
    return response;
}

constexpr std::uint64_t beforeAll = UINT64_MAX;  // the time point -1
constexpr std::uint64_t highest = INT64_MAX;

// One chunk after the other, from the time point on until there are no more.
template <class Fill, class Answer>
std::vector<Protocol::Chunk> Walk(Service& service, Operation operation, std::uint64_t from,
                                  Fill fill, Answer answer) {
    std::vector<Protocol::Chunk> chunks;
    for (;;) {
        const Response response = Ask(service, operation, [&](Request& request) {
            auto& part = *fill(request);
            part.set_object_handle(1);
            part.mutable_timecode()->set_nanoseconds(from);
            part.mutable_keys();
        });
        const auto& part = answer(response);
        if (!part.result()) {
            return chunks;
        }
        chunks.push_back(part.chunk());
        from = chunks.back().timecode().nanoseconds();
        Require(chunks.size() <= requestsLimit, "no more chunks than were appended");
    }
}

std::string Joined(const std::vector<Protocol::Chunk>& chunks) {
    std::string bytes;
    for (const Protocol::Chunk& chunk : chunks) {
        bytes += chunk.SerializeAsString();
    }
    return bytes;
}

// All chunks of a track; forwards, backwards and counted there are the same.
std::string ChunksOf(Storage& storage, std::int64_t track) {
    Service service = ServiceOn(storage);
    Ask(service, BrantelStorageApi::OPERATION_TrackReader_Constructor,
        [&](Request& request) { request.mutable_trackreader_constructor()->set_trackid(track); });
    std::vector<Protocol::Chunk> chunks = Walk(
        service, BrantelStorageApi::OPERATION_TrackReader_GetNextChunk, beforeAll,
        [](Request& request) { return request.mutable_trackreader_getnextchunk(); },
        [](const Response& response) { return response.trackreader_getnextchunk(); });
    const std::string bytes = Joined(chunks);
    // The others ask for what lies before the highest time point.
    if (!chunks.empty() && chunks.back().timecode().nanoseconds() == highest) {
        chunks.pop_back();
    }
    std::vector<Protocol::Chunk> backwards = Walk(
        service, BrantelStorageApi::OPERATION_TrackReader_GetPreviousChunk, highest,
        [](Request& request) { return request.mutable_trackreader_getpreviouschunk(); },
        [](const Response& response) { return response.trackreader_getpreviouschunk(); });
    std::reverse(backwards.begin(), backwards.end());
    Require(Joined(chunks) == Joined(backwards), "the same chunks in both directions");
    const Response count = Ask(service, BrantelStorageApi::OPERATION_TrackStorage_GetNumberOfChunks,
                               [&](Request& request) {
                                   auto& part = *request.mutable_trackstorage_getnumberofchunks();
                                   part.set_trackid(track);
                                   part.mutable_in()->set_nanoseconds(0);
                                   part.mutable_out()->set_nanoseconds(highest);
                               });
    Require(count.trackstorage_getnumberofchunks().nbchunks() ==
                static_cast<std::int64_t>(chunks.size()),
            "as many chunks as are counted");
    return bytes;
}

// What a client can know of all tracks.
std::string Inventory(Storage& storage) {
    Service service = ServiceOn(storage);
    const Response tracks =
        Ask(service, BrantelStorageApi::OPERATION_TrackStorage_ListTracks,
            [](Request& request) { request.mutable_trackstorage_listtracks(); });
    const Response protections =
        Ask(service, BrantelStorageApi::OPERATION_TrackStorage_ListProtections,
            [](Request& request) { request.mutable_trackstorage_listprotections(); });
    std::string inventory = tracks.SerializeAsString() + protections.SerializeAsString();
    for (const auto id : tracks.trackstorage_listtracks().list().trackids()) {
        const auto track = static_cast<std::int64_t>(id);
        inventory +=
            Ask(service, BrantelStorageApi::OPERATION_TrackStorage_GetTrackInfos,
                [&](Request& request) {
                    request.mutable_trackstorage_gettrackinfos()->mutable_trackids()->add_ids(id);
                })
                .SerializeAsString();
        inventory += Ask(service, BrantelStorageApi::OPERATION_TrackStorage_GetTrackProperties,
                         [&](Request& request) {
                             request.mutable_trackstorage_gettrackproperties()->set_trackid(track);
                         })
                         .SerializeAsString();
        inventory += ChunksOf(storage, track);
    }
    return inventory;
}

// Clamps what would make an input slow, and makes long what is called so.
void Prepare(Request& request) {
    constexpr std::size_t times = 100;
    constexpr std::size_t longest = 50'000;
    if (request.has_trackreader_wait()) {
        auto& wait = *request.mutable_trackreader_wait();
        wait.set_timeout(std::clamp(wait.timeout(), 0, 1));
    }
    if (request.has_trackwriter_append()) {
        auto& data = *request.mutable_trackwriter_append()->mutable_chunk()->mutable_data();
        for (auto& item : *data.mutable_items()) {
            if (item.key() == "long" && item.value().size() <= longest / times) {
                std::string value;
                for (std::size_t i = 0; i < times; ++i) {
                    value += item.value();
                }
                item.set_value(value);
            }
        }
    }
}

std::string ServeAll(MemoryEngine& engine, FuzzInput& input) {
    Storage storage(engine, SmallOptions());
    {
        Service service = ServiceOn(storage);
        for (std::size_t count = 0; !input.AtEnd() && count < requestsLimit; ++count) {
            const std::string bytes(input.Bytes(input.Short()));
            Request request;
            if (!request.ParseFromString(bytes)) {
                continue;  // a connection does not hand it on
            }
            Prepare(request);
            Serve(service, request);
            AwaitCommands(service);
        }
    }
    // Only now, when no reader or writer holds anything.
    return Inventory(storage);
}

std::vector<std::string> Split(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    std::vector<std::string> requests;
    while (!input.AtEnd()) {
        requests.emplace_back(input.Bytes(input.Short()));
    }
    return requests;
}

std::string Join(const std::vector<std::string>& requests) {
    std::string bytes;
    for (const std::string& request : requests) {
        bytes.push_back(static_cast<char>(request.size()));
        bytes.push_back(static_cast<char>(request.size() >> 8U));
        bytes += request;
    }
    return bytes;
}

// A request for any operation, or this one changed.
std::string Changed(const std::string& bytes, MessageMutator& mutator) {
    Request request;
    if (mutator.Below(3) == 0 || !request.ParsePartialFromString(bytes)) {
        request.Clear();
        request.set_operation(static_cast<Operation>(2 + mutator.Below(35)));
    }
    const auto* part = Request::descriptor()->FindFieldByNumber(request.operation());
    if (part != nullptr && request.operation() != BrantelStorageApi::CLOSE_CONNECTION) {
        auto& fields = *request.GetReflection()->MutableMessage(&request, part);
        for (std::size_t count = 1 + mutator.Below(4); count > 0; --count) {
            mutator.Mutate(fields);
        }
    }
    if (mutator.Below(20) != 0) {
        mutator.Complete(request);
    }
    return request.SerializePartialAsString().substr(0, std::size_t{UINT16_MAX});
}

void ChangeOne(std::vector<std::string>& requests, MessageMutator& mutator) {
    const auto at = static_cast<std::ptrdiff_t>(mutator.Below(requests.size() + 1));
    const auto other = requests.begin() + static_cast<std::ptrdiff_t>(requests.size()) / 2;
    const bool exists = at < static_cast<std::ptrdiff_t>(requests.size());
    switch (exists ? mutator.Below(8) : 0) {
        case 0: requests.insert(requests.begin() + at, Changed({}, mutator)); break;
        case 1: requests.erase(requests.begin() + at); break;
        case 2: {
            const std::string copy = requests[static_cast<std::size_t>(at)];
            requests.insert(other, copy);
            break;
        }
        case 3: std::swap(requests[static_cast<std::size_t>(at)], *other); break;
        default: {
            std::string& request = requests[static_cast<std::size_t>(at)];
            request = Changed(request, mutator);
            break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const google::protobuf::LogSilencer noLinePerBadText;
    FuzzInput input(data, size);
    MemoryEngine engine(engineLimit);
    const std::string before = ServeAll(engine, input);
    FuzzInput nothing(nullptr, 0);
    Require(ServeAll(engine, nothing) == before, "a storage opened again holds what it held");
    return 0;
}

// Every fourth time the fuzzer's own changes, otherwise a change of one request.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed) {
    const google::protobuf::LogSilencer noLinePerBadText;
    MessageMutator mutator(seed);
    if (mutator.Below(4) == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    std::vector<std::string> requests = Split(data, size);
    for (std::size_t count = 1 + mutator.Below(3); count > 0; --count) {
        ChangeOne(requests, mutator);
    }
    const std::string bytes = Join(requests);
    if (bytes.size() > maxSize) {
        return size;
    }
    bytes.copy(reinterpret_cast<char*>(data), bytes.size());
    return bytes.size();
}
