#include "Unit/Rpc/libProtocolX/rpc/ServiceFixture.h"

#include <libProtocolX/rpc/PartMemory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace BrantelStorageApi {
namespace {

using Brantel::Tests::FromText;
using Brantel::Tests::ScriptedConnection;

constexpr std::size_t limit = 64 * 1024;

// A service whose answers are what the test says, and that looks at the memory of the cleared
// response before each request. The connection looks at that of the request.
class MeasuredService : public Service {
  public:
    MeasuredService() : Service(nullptr, nullptr, nullptr) {}
    void ServeRequest(const Request& request, Response& response) override {
        responseMemory.push_back(response.SpaceUsedLong());
        parts.push_back(&request.trackwriter_append());
        answer(response);
        response.set_is_success(true);
    }
    std::function<void(Response&)> answer = [](auto&) {};
    std::vector<std::size_t> responseMemory;
    std::vector<const void*> parts;
};

class ServiceMemoryTest : public testing::Test {
  protected:
    void WillReceive(const Request& request) {
        connection.OnReceive([this, bytes = request.SerializePartialAsString()](auto& message) {
            requestMemory.push_back(message.SpaceUsedLong());
            return message.ParsePartialFromString(bytes);
        });
    }
    // Handles the requests and one more, so that the memory after the last one is seen.
    void Handle() {
        WillReceive(Small());
        service.responseMemory.clear();
        service.Handle(connection);
        largestRequest = *std::max_element(requestMemory.begin(), requestMemory.end());
        largestResponse =
            *std::max_element(service.responseMemory.begin(), service.responseMemory.end());
    }

    static Request Small() {
        Request request;
        request.set_operation(OPERATION_TrackStorage_GetTrackSize);
        request.mutable_trackstorage_gettracksize()->set_trackid(1);
        return request;
    }
    // Data blocks of these sizes.
    static Request Append(const std::vector<std::size_t>& sizes) {
        Request request;
        request.set_operation(OPERATION_TrackWriter_Append);
        auto& chunk = *request.mutable_trackwriter_append()->mutable_chunk();
        request.mutable_trackwriter_append()->set_object_handle(1);
        for (const std::size_t size : sizes) {
            auto& item = *chunk.mutable_data()->add_items();
            item.set_key("");
            item.set_value(std::string(size, 'x'));
        }
        return request;
    }

    ScriptedConnection connection;
    MeasuredService service;
    std::vector<std::size_t> requestMemory;
    std::size_t largestRequest = 0;
    std::size_t largestResponse = 0;
};

TEST_F(ServiceMemoryTest, AnEnvelopeWithEveryPartInItKeepsLessThanWhatIsSetAsideForThem) {
    Request request;
    Response response;
    for (const OperationRow& row : OperationTable()) {
        request.MergeFrom(RequestOf(row));
        response.MergeFrom(ResponseOf(row));
    }
    EXPECT_LT(request.SpaceUsedLong(), 6000U);
    EXPECT_LT(response.SpaceUsedLong(), 6000U);
}

TEST_F(ServiceMemoryTest, ALargeChunkIsGivenBack) {
    WillReceive(Append({1024 * 1024}));
    Handle();
    EXPECT_LT(largestRequest, 1000U);
}

TEST_F(ServiceMemoryTest, ManyTinyItemsAreGivenBack) {
    const Request request = Append(std::vector<std::size_t>(1000, 0));
    ASSERT_LT(request.ByteSizeLong(), limit / 8) << "far below the limit on the wire";
    WillReceive(request);
    Handle();
    EXPECT_LT(largestRequest, 1000U);
}

TEST_F(ServiceMemoryTest, MemoryThatGathersInOneItemAfterTheOtherIsGivenBack) {
    for (std::size_t position = 0; position < 40; ++position) {
        std::vector<std::size_t> sizes(position, 0);
        sizes.push_back(4000);
        WillReceive(Append(sizes));
    }
    Handle();
    EXPECT_LE(largestRequest, limit);
    EXPECT_GT(largestRequest, limit / 2) << "it does gather";
}

TEST_F(ServiceMemoryTest, MemoryThatGathersInDifferentPartsIsGivenBack) {
    Request properties;
    properties.set_operation(OPERATION_TrackStorage_SetTrackProperties);
    auto& item =
        *properties.mutable_trackstorage_settrackproperties()->mutable_properties()->add_items();
    item.set_key("k");
    item.set_value(std::string(40000, 'x'));
    Request keys;
    keys.set_operation(OPERATION_TrackReader_GetChunk);
    keys.mutable_trackreader_getchunk()->mutable_keys()->add_keys(std::string(20000, 'k'));
    WillReceive(Append({20000}));
    WillReceive(properties);
    WillReceive(keys);
    WillReceive(Append({20000}));
    Handle();
    EXPECT_LE(largestRequest, limit);
}

TEST_F(ServiceMemoryTest, WhatWasSentForOtherOperationsIsGivenBack) {
    for (const OperationRow& called : OperationTable()) {
        Request request = RequestOf(called);
        if (called.name == std::string("TrackWriter_Append")) {
            auto& other = *request.mutable_trackstorage_gettrackinfos();
            other.mutable_trackids()->mutable_ids()->Resize(limit / 8, 1);
        } else {
            request.mutable_trackwriter_append()->Swap(
                Append({limit}).mutable_trackwriter_append());
        }
        requestMemory.clear();
        WillReceive(request);
        Handle();
        EXPECT_LT(requestMemory.back(), 1000U) << called.name;
    }
}

TEST_F(ServiceMemoryTest, ARequestWithAnyPartOfAnotherOperationIsReplaced) {
    for (const OperationRow& called : OperationTable()) {
        for (const OperationRow& other : OperationTable()) {
            if (&called == &other) {
                continue;
            }
            Request request = RequestOf(other);
            request.MergeFrom(RequestOf(called));
            requestMemory.clear();
            WillReceive(request);
            Handle();
            EXPECT_EQ(requestMemory.back(), Request().SpaceUsedLong())
                << called.name << " with " << other.name;
        }
    }
}

TEST_F(ServiceMemoryTest, SmallRequestsAreServedFromTheSameMemory) {
    for (int i = 0; i < 1000; ++i) {
        WillReceive(Append({4000, 100}));
    }
    Handle();
    service.parts.pop_back();  // the small request's has none
    EXPECT_EQ(std::set<const void*>(service.parts.begin(), service.parts.end()).size(), 1U);
}

// A list in an envelope: its part's name, the way to the list, and an element.
struct ListPlace {
    const char* part;
    const char* way;
    const char* element;
};

// The text of the part with as many elements as take over the limit in memory, though not on the
// wire.
std::string PartText(const ListPlace& place) {
    std::string text = std::string(place.part) + " { " + place.way;
    for (int i = 0; i < 9000; ++i) {
        text += place.element;
    }
    for (const char* c = place.way; *c != '\0'; ++c) {
        text += *c == '{' ? " }" : "";
    }
    return text + " }";
}

TEST_F(ServiceMemoryTest, EveryListOfARequestIsGivenBack) {
    const ListPlace places[] = {
        {"TrackWriter_Append", "chunk { properties {", R"(items { key: "" value: "" })"},
        {"TrackWriter_Append", "chunk { data {", R"(items { key: "" value: "" })"},
        {"TrackReader_GetChunk", "keys {", R"(keys: "")"},
        {"TrackReader_GetPreviousChunk", "keys {", R"(keys: "")"},
        {"TrackReader_GetNextChunk", "keys {", R"(keys: "")"},
        {"TrackStorage_GetTrackInfos", "trackIds {", "ids: 1 "},
        {"TrackStorage_GetWorkerInfos", "workerIds {", "ids: 1 "},
        {"TrackStorage_SetTrackProperties", "properties {", R"(items { key: "" value: "" })"},
        {"TrackStorage_RemoveTrackProperties", "properties {", R"(items { key: "" value: "" })"},
    };
    for (const ListPlace& place : places) {
        SCOPED_TRACE(std::string(place.part) + " " + place.way);
        WillReceive(FromText<Request>("operation: OPERATION_" + std::string(place.part) + " " +
                                      PartText(place)));
        Handle();
        EXPECT_LT(requestMemory.back(), 1000U);
    }
}

TEST_F(ServiceMemoryTest, EveryListOfAResponseIsGivenBack) {
    const ListPlace places[] = {
        {"TrackStorage_GetTrackProperties", "properties {", R"(items { key: "" value: "" })"},
        {"TrackStorage_GetTrackInfos", "trackInfos {", "infos { }"},
        {"TrackStorage_GetActiveWorkers", "workerIds {", "ids: 1 "},
        {"TrackStorage_GetActiveWorkers", "trackIds {", "ids: 1 "},
        {"TrackStorage_GetWorkerInfos", "workerInfos {", "infos { }"},
        {"TrackStorage_ListProtections", "protectionInfos {", "infos { }"},
        {"TrackStorage_GetOngoingCommands", "commandIds {", "ids: 1 "},
        {"TrackStorage_ListTracks", "list {", "trackIds: 1 "},
        {"TrackReader_GetChunk", "chunk { data {", R"(items { key: "" value: "" })"},
        {"TrackReader_GetPreviousChunk", "chunk { properties {", R"(items { key: "" value: "" })"},
        {"TrackReader_GetNextChunk", "chunk { data {", R"(items { key: "" value: "" })"},
    };
    for (const ListPlace& place : places) {
        SCOPED_TRACE(std::string(place.part) + " " + place.way);
        const auto filled = FromText<Response>("is_success: true " + PartText(place));
        service.answer = [&](Response& response) { response.MergeFrom(filled); };
        WillReceive(FromText<Request>("operation: OPERATION_" + std::string(place.part)));
        Handle();
        EXPECT_LT(service.responseMemory.back(), 1000U);
    }
}

TEST_F(ServiceMemoryTest, AnAnswerThatWasFilledAndEmptiedAgainIsGivenBack) {
    service.answer = [](Response& response) {
        auto& chunk = *response.mutable_trackreader_getchunk()->mutable_chunk();
        chunk.mutable_data()->add_items()->set_value(std::string(1024 * 1024, 'x'));
        chunk.Clear();
    };
    WillReceive(FromText<Request>("operation: OPERATION_TrackReader_GetChunk"));
    Handle();
    EXPECT_LT(service.responseMemory.back(), 1000U);
}

TEST_F(ServiceMemoryTest, ALongTextOfAnExceptionIsGivenBack) {
    service.answer = [](Response& response) {
        response.set_exception(std::string(1024 * 1024, 'x'));
    };
    WillReceive(Small());
    Handle();
    EXPECT_LT(service.responseMemory.back(), 1000U);
}

TEST_F(ServiceMemoryTest, AnAnswerThatWasReplacedByAFailureIsGivenBack) {
    service.answer = [](Response& response) {
        auto& list = *response.mutable_trackstorage_gettrackproperties()->mutable_properties();
        list.add_items()->set_value(std::string(1024 * 1024, 'x'));
    };
    WillReceive(FromText<Request>("operation: OPERATION_TrackStorage_GetTrackProperties"));
    Handle();
    EXPECT_LT(service.responseMemory.back(), 1000U);
}

TEST(PartMemoryTest, ARequestThatCallsNothingHasNoPart) {
    Request request;
    request.set_operation(CLOSE_CONNECTION);
    const PartMemory memory = MemoryOf(request);
    EXPECT_EQ(memory.lists + memory.unknownFields + memory.text, 0U);
}

}  // namespace
}  // namespace BrantelStorageApi
