// One client used by many threads at once, over a real socket.
#include "Support/StorageProcess.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/StorageClientX.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace Brantel::ProtocolX {
namespace {

using Time::TimePoint;

class StorageClientXThreadsTest : public testing::Test {
  protected:
    static constexpr int threadCount = 8;
    static constexpr int callCount = 100;

    StorageClientXThreadsTest() {
        server.listener.ListenUnix(folder.File("storage.sock"));
        server.listener.Start();
        EXPECT_TRUE(client.ConnectToSlave(folder.File("storage.sock")));
    }

    // Runs the body callCount times on each of the threads, which have the numbers 0, 1, 2...
    template <typename Body>
    static void RunOnAll(const Body& body) {
        std::vector<std::thread> threads;
        threads.reserve(threadCount);
        for (int number = 0; number < threadCount; ++number) {
            threads.emplace_back([&body, number] {
                for (int call = 0; call < callCount; ++call) {
                    body(number);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    Tests::TemporaryFolder folder;
    Tests::RecordingServer server;
    StorageClientX client;
    std::atomic<int> wrong = 0;
};

TEST_F(StorageClientXThreadsTest, OperationsOnTracksGetTheirOwnAnswers) {
    RunOnAll([this](int number) {
        const bool right = number % 2 == 0 ? client.GetTrackSize(number) == 52
                                           : client.ListTracks() == std::vector<long>{91, 92};
        wrong += right ? 0 : 1;
    });
    EXPECT_EQ(wrong, 0);
}

TEST_F(StorageClientXThreadsTest, ReadersAndTheWriterOfOneClientGetTheirOwnAnswers) {
    std::vector<IStorageReaderX*> readers;
    readers.reserve(threadCount);
    for (long readerId = 0; readerId < threadCount; ++readerId) {
        readers.push_back(client.GetTrackReader(7, readerId));
    }
    IStorageWriterX* writer = client.GetTrackWriter(7);
    RunOnAll([&](int number) {
        DataChunk chunk;
        IStorageReaderX* reader = readers[static_cast<std::size_t>(number)];
        const bool found = reader->GetNextChunk(chunk, TimePoint(), {"image"});
        writer->Append(chunk);
        wrong += found && chunk.GetDataSize() == 1 && writer->GetTrackId() == 56 ? 0 : 1;
    });
    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace Brantel::ProtocolX
