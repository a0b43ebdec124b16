#include <BrantelStorageApiMessages.pb.h>
#include <libProtocolX/rpc/Client.h>
#include <libProtocolX/rpc/ClientTrackReader.h>
#include <libProtocolX/rpc/ClientTrackWriter.h>
#include <libServices/IServiceConnection.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace BrantelStorageApi {
namespace {

// Answers in the caller's thread, by what was sent last. Guards nothing: two exchanges at once are
// a race that the sanitizer reports, and a wrong answer that the caller sees.
class UnguardedConnection : public Brantel::Services::IServiceConnection {
  public:
    void Close() override {}

    bool Send(const google::protobuf::Message& message) override {
        overlapped = overlapped || underWay;
        underWay = true;
        bytes = message.SerializeAsString();
        return true;
    }

    bool Receive(google::protobuf::Message& message) override {
        Request request;
        request.ParseFromString(bytes);
        auto& response = dynamic_cast<Response&>(message);
        response.set_is_success(true);
        switch (request.operation()) {
            case OPERATION_TrackStorage_GetTrackSize:
                response.mutable_trackstorage_gettracksize()->set_tracksize(
                    2 * request.trackstorage_gettracksize().trackid());
                break;
            case OPERATION_TrackReader_Constructor:
                response.mutable_trackreader_constructor()->set_object_handle(7);
                break;
            case OPERATION_TrackReader_NextTimePoint:
                response.mutable_trackreader_nexttimepoint()
                    ->mutable_nexttimepoint()
                    ->set_nanoseconds(request.trackreader_nexttimepoint().timecode().nanoseconds() +
                                      1);
                break;
            case OPERATION_TrackWriter_Append: appended += request.ByteSizeLong(); break;
            default: break;
        }
        underWay = false;
        return true;
    }

    bool overlapped = false;
    std::size_t appended = 0;

  private:
    std::string bytes;
    bool underWay = false;
};

constexpr int threadCount = 8;
constexpr int callsPerThread = 300;

void InThreads(const std::function<void(int thread)>& body) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back(body, thread);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(ClientThreadsTest, ManyThreadsOnOneClientEachGetTheirOwnAnswers) {
    UnguardedConnection connection;
    Client client(connection);
    ClientTrackReader reader(connection, client.GetMutex(), 1);
    ClientTrackWriter writer(connection, client.GetMutex(), 1);
    InThreads([&](int thread) {
        for (int call = 0; call < callsPerThread; ++call) {
            const long number = thread * 1000L + call;
            long trackSize = 0;
            client.GetTrackStorage().GetTrackSize(number, trackSize);
            EXPECT_EQ(trackSize, 2 * number);
            Protocol::TimePoint timePoint;
            timePoint.set_nanoseconds(static_cast<std::uint64_t>(number));
            bool result = true;
            reader.NextTimePoint(timePoint, timePoint, result);
            EXPECT_EQ(timePoint.nanoseconds(), static_cast<std::uint64_t>(number) + 1);
            writer.Append(Protocol::Chunk());
        }
    });
    EXPECT_FALSE(connection.overlapped);
}

Protocol::Chunk MakeChunk() {
    Protocol::Chunk chunk;
    for (int i = 0; i < 5; ++i) {
        auto& item = *chunk.mutable_data()->add_items();
        item.set_key("image");
        item.set_value(std::string(1000, 'x'));
    }
    return chunk;
}

TEST(ClientThreadsTest, ThreadsWithClientsOfTheirOwnMayAppendTheSameConstChunkAtOnce) {
    const Protocol::Chunk chunk = MakeChunk();
    std::vector<UnguardedConnection> connections(threadCount);
    InThreads([&](int thread) {
        UnguardedConnection& connection = connections[static_cast<std::size_t>(thread)];
        Client client(connection);
        ClientTrackWriter writer(connection, client.GetMutex(), 1);
        for (int call = 0; call < callsPerThread; ++call) {
            writer.Append(chunk);
        }
    });
    for (const UnguardedConnection& connection : connections) {
        EXPECT_EQ(connection.appended, connections[0].appended);
    }
    EXPECT_GT(connections[0].appended, 5000U * callsPerThread);
}

TEST(ClientThreadsTest, ThreadsOfOneClientMayAppendTheSameConstChunkAtOnce) {
    const Protocol::Chunk chunk = MakeChunk();
    UnguardedConnection connection;
    Client client(connection);
    ClientTrackWriter writer(connection, client.GetMutex(), 1);
    InThreads([&](int) {
        for (int call = 0; call < callsPerThread; ++call) {
            writer.Append(chunk);
        }
    });
    EXPECT_GT(connection.appended, 5000U * callsPerThread * threadCount);
    EXPECT_FALSE(connection.overlapped);
}

}  // namespace
}  // namespace BrantelStorageApi
