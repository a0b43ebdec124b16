#include "Support/RecordingObjects.h"
#include "Support/ScriptedConnection.h"
#include "Support/Text.h"

#include <libProtocolX/rpc/Service.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>

namespace {

// How many more allocations of this thread succeed; negative: all.
thread_local long allocationsLeft = -1;

// The bytes that are allocated now.
long liveBytes = 0;

// Stands before each block, whose size it holds, and keeps it aligned.
constexpr std::size_t headSize = alignof(std::max_align_t);

void* Allocate(std::size_t size) {
    if (allocationsLeft == 0) {
        throw std::bad_alloc();
    }
    if (allocationsLeft > 0) {
        --allocationsLeft;
    }
    void* block = std::malloc(headSize + size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(block, &size, sizeof(size));
    liveBytes += static_cast<long>(size);
    return static_cast<char*>(block) + headSize;
}

void Free(void* memory) {
    if (memory == nullptr) {
        return;
    }
    void* block = static_cast<char*>(memory) - headSize;
    std::size_t size = 0;
    std::memcpy(&size, block, sizeof(size));
    liveBytes -= static_cast<long>(size);
    std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
    return Allocate(size);
}
void operator delete(void* memory) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    Free(memory);
}

namespace BrantelStorageApi {
namespace {

using Brantel::Tests::FromText;

class QuietReader : public ITrackReader {
  public:
    explicit QuietReader(int& alive) : alive(alive) { ++alive; }
    ~QuietReader() override { --alive; }
    void NextTimePoint(const Protocol::TimePoint&, Protocol::TimePoint&, bool&) override {}
    void GetChunk(const Protocol::TimePoint&, const Protocol::KeyList&, Protocol::Chunk&,
                  bool&) override {}
    void GetTrackId(long&) override {}
    void PreviousTimePoint(const Protocol::TimePoint&, Protocol::TimePoint&, bool&) override {}
    void GetPreviousChunk(const Protocol::TimePoint&, const Protocol::KeyList&, Protocol::Chunk&,
                          bool&) override {}
    void GetNextChunk(const Protocol::TimePoint&, const Protocol::KeyList&, Protocol::Chunk&,
                      bool&) override {}
    void Wait(const Protocol::TimePoint&, const int&, bool&) override {}

  private:
    int& alive;
};

class QuietFactory : public ITrackReaderFactory {
  public:
    explicit QuietFactory(int& alive) : alive(alive) {}
    ITrackReader* CreateTrackReader(const long& /*trackId*/) override {
        return new QuietReader(alive);
    }

  private:
    int& alive;
};

class ServiceOutOfMemoryTest : public testing::Test {
  protected:
    // Serves the request with this many allocations; true when it succeeded.
    bool Serve(const Request& request, Response& response, long allocations) {
        allocationsLeft = allocations;
        service.ServeRequest(request, response);
        allocationsLeft = -1;
        EXPECT_TRUE(response.has_is_success());
        return response.is_success();
    }
    // The number of allocations that the request needs; with fewer it must fail, and leave no
    // trace.
    long Needed(const Request& request, const std::string& text) {
        for (long allocations = 0; allocations < 50; ++allocations) {
            Response response;
            const int before = alive;
            if (Serve(request, response, allocations)) {
                return allocations;
            }
            EXPECT_EQ(alive, before);
            EXPECT_TRUE(response.exception() == text || response.exception().empty());
            EXPECT_TRUE(response.SerializePartialAsString().size() < 100);
        }
        return -1;
    }

    int alive = 0;
    Service service{nullptr, std::make_unique<QuietFactory>(alive), nullptr};
    const Request make = FromText<Request>("operation: OPERATION_TrackReader_Constructor");
    const Request release = FromText<Request>(
        "operation: OPERATION_TrackReader_Destructor TrackReader_Destructor { object_handle: 1 }");
};

TEST_F(ServiceOutOfMemoryTest, NoExceptionLeavesServeRequestAndTheFailureIsAnswered) {
    EXPECT_GT(Needed(make, "std::bad_alloc"), 0);
}

TEST_F(ServiceOutOfMemoryTest, AConstructorThatFailsUsesUpNoHandleAndKeepsNoObject) {
    Needed(make, "std::bad_alloc");
    EXPECT_EQ(alive, 1);
    Response response;
    EXPECT_TRUE(Serve(make, response, -1));
    EXPECT_EQ(response.trackreader_constructor().object_handle(), 2U);
}

TEST_F(ServiceOutOfMemoryTest, ADestructorThatFailsKeepsTheObjectUnderItsHandle) {
    Response made;
    ASSERT_TRUE(Serve(make, made, -1));
    EXPECT_GE(Needed(release, "std::bad_alloc"), 0);
    EXPECT_EQ(alive, 0);
    Response again;
    EXPECT_TRUE(Serve(make, again, -1));
    EXPECT_EQ(again.trackreader_constructor().object_handle(), 1U);
}

TEST_F(ServiceOutOfMemoryTest, WithoutMemoryForTheTextTheFailureHasNone) {
    Response response;
    response.mutable_trackreader_constructor();
    EXPECT_FALSE(Serve(make, response, 0));
    EXPECT_EQ(response.exception(), "");
    EXPECT_EQ(response.SerializeAsString().substr(0, 2), std::string("\x08\x00", 2));
}

class ServiceHeldMemoryTest : public testing::Test {
  protected:
    // What the connection holds more, between two requests, after this one was served.
    long HeldAfter(const Request& request) {
        Brantel::Tests::ScriptedConnection connection;
        Service service(nullptr, nullptr, nullptr);
        const std::string bytes = request.SerializePartialAsString();
        long before = 0;
        long after = 0;
        connection.OnReceive([&](auto& message) {
            before = liveBytes;
            return message.ParsePartialFromString(bytes);
        });
        connection.OnReceive([&](auto&) {
            after = liveBytes - static_cast<long>(connection.sent[0].capacity());
            return false;
        });
        service.Handle(connection);
        return after - before;
    }

    // Served with unknown fields in this part of it.
    void ExpectGivenBack(Operation operation,
                         const std::function<google::protobuf::Message*(Request&)>& place) {
        Request request;
        request.set_operation(operation);
        google::protobuf::Message* part = place(request);
        auto& fields = *part->GetReflection()->MutableUnknownFields(part);
        for (int i = 0; i < 100000; ++i) {
            fields.AddVarint(100, 1);
        }
        EXPECT_LT(HeldAfter(request), 10000) << part->GetTypeName();
    }
};

TEST_F(ServiceHeldMemoryTest, ASmallRequestIsHeld) {
    Request request;
    request.set_operation(OPERATION_TrackStorage_ClearTrack);
    request.mutable_trackstorage_cleartrack()->set_trackid(1);
    EXPECT_GT(HeldAfter(request), 0);
    EXPECT_LT(HeldAfter(request), 1000);
}

TEST_F(ServiceHeldMemoryTest, UnknownFieldsAreGivenBackWhereverTheyAre) {
    using M = google::protobuf::Message;
    ExpectGivenBack(OPERATION_TrackStorage_ClearTrack, [](Request& r) -> M* { return &r; });
    ExpectGivenBack(OPERATION_TrackStorage_ListTracks,
                    [](Request& r) -> M* { return r.mutable_trackstorage_listtracks(); });
    ExpectGivenBack(OPERATION_TrackStorage_GetNumberOfChunks, [](Request& r) -> M* {
        return r.mutable_trackstorage_getnumberofchunks()->mutable_in();
    });
    ExpectGivenBack(OPERATION_TrackStorage_GetAccumulatedDuration, [](Request& r) -> M* {
        return r.mutable_trackstorage_getaccumulatedduration()->mutable_out();
    });
    ExpectGivenBack(OPERATION_TrackStorage_Protect, [](Request& r) -> M* {
        return r.mutable_trackstorage_protect()->mutable_duration();
    });
    ExpectGivenBack(OPERATION_TrackReader_Wait, [](Request& r) -> M* {
        return r.mutable_trackreader_wait()->mutable_timecode();
    });
    ExpectGivenBack(OPERATION_TrackStorage_CreateTrack, [](Request& r) -> M* {
        return r.mutable_trackstorage_createtrack()->mutable_infoin();
    });
    ExpectGivenBack(OPERATION_TrackStorage_GetTrackInfos, [](Request& r) -> M* {
        return r.mutable_trackstorage_gettrackinfos()->mutable_trackids();
    });
    ExpectGivenBack(OPERATION_TrackStorage_GetWorkerInfos, [](Request& r) -> M* {
        return r.mutable_trackstorage_getworkerinfos()->mutable_workerids();
    });
    ExpectGivenBack(OPERATION_TrackReader_GetNextChunk, [](Request& r) -> M* {
        return r.mutable_trackreader_getnextchunk()->mutable_keys();
    });
    ExpectGivenBack(OPERATION_TrackStorage_SetTrackProperties, [](Request& r) -> M* {
        return r.mutable_trackstorage_settrackproperties()->mutable_properties();
    });
}

TEST_F(ServiceHeldMemoryTest, UnknownFieldsInAChunkAreGivenBackWhereverTheyAre) {
    using M = google::protobuf::Message;
    const std::function<M*(Protocol::Chunk&)> places[] = {
        [](Protocol::Chunk& chunk) -> M* { return &chunk; },
        [](Protocol::Chunk& chunk) -> M* { return chunk.mutable_timecode(); },
        [](Protocol::Chunk& chunk) -> M* { return chunk.mutable_duration(); },
        [](Protocol::Chunk& chunk) -> M* { return chunk.mutable_properties(); },
        [](Protocol::Chunk& chunk) -> M* { return chunk.mutable_properties()->add_items(); },
        [](Protocol::Chunk& chunk) -> M* { return chunk.mutable_data(); },
        [](Protocol::Chunk& chunk) -> M* { return chunk.mutable_data()->add_items(); },
    };
    for (const auto& place : places) {
        ExpectGivenBack(OPERATION_TrackWriter_Append, [&](Request& request) -> M* {
            return place(*request.mutable_trackwriter_append()->mutable_chunk());
        });
    }
}

}  // namespace
}  // namespace BrantelStorageApi
