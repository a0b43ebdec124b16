// What thousands of connections cost while they are there and afterwards, in the server as it is
// installed: sanitizers and counters would be measured with it.

#include "CrowdFixture.h"

#include <sys/resource.h>

#include <cstdint>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

class ServerCrowdGateTest : public CrowdFixture {
  protected:
    // A fresh server for each transport: what one crowd leaves is there for the next one.
    void ExpectIdleConnectionsAreCheap(Transport transport) {
        constexpr int count = 4096;
        constexpr std::int64_t limit = std::int64_t{64} << 20U;
        ASSERT_TRUE(SetSoftLimit(RLIMIT_NOFILE, count + 100));
        std::vector<RawClient> idle;
        idle.reserve(count);
        const auto before = static_cast<std::int64_t>(Memory());
        ASSERT_GT(before, 0);
        for (int i = 0; i < count; ++i) {
            idle.emplace_back(server, transport);
            ASSERT_EQ(idle.back().AskForTracks(), "done");
        }
        const std::int64_t cost = static_cast<std::int64_t>(Memory()) - before;
        std::cout << count << " idle connections cost " << cost / 1024 << " KiB, limit "
                  << limit / 1024 << " KiB\n";
        EXPECT_GT(cost, 0);
        EXPECT_LE(cost, limit);
        idle.clear();
        EXPECT_TRUE(Eventually([&] { return Threads() < 10; }));
    }

    // Half of them over each transport.
    void Connect(int count) {
        for (int number = 0; number < count; ++number) {
            clients.push_back(std::make_unique<RawClient>(
                server, number % 2 == 0 ? Transport::Unix : Transport::Tcp));
        }
    }
    // Each client asks for another track, which is not there, so that each answer is another one.
    void AskAll() {
        BrantelStorageApi::Request request;
        request.set_operation(BrantelStorageApi::OPERATION_TrackStorage_GetTrackSize);
        for (std::size_t number = 0; number < clients.size(); ++number) {
            request.mutable_trackstorage_gettracksize()->set_trackid(
                static_cast<std::int64_t>(number));
            clients[number]->Send(request);
        }
        for (std::size_t number = 0; number < clients.size(); ++number) {
            EXPECT_EQ(clients[number]->Receive().exception(),
                      "Track " + std::to_string(number) + " does not exist");
        }
    }
    void AskUntilFewThreadsAreLeft() {
        EXPECT_TRUE(Eventually([&] {
            AskAll();
            return Threads() < clients.size() / 4;
        })) << Threads();
    }

    std::vector<std::unique_ptr<RawClient>> clients;
};

TEST_F(ServerCrowdGateTest, SixteenThousandConnectionsLeaveNoDescriptorAndNoThread) {
    constexpr int connections = 16'000;
    ExpectNothingLeftOf(connections);
}

TEST_F(ServerCrowdGateTest, ManyWhoAskForLittleShareAThread) {
    const std::size_t descriptors = Descriptors();
    Connect(200);
    AskUntilFewThreadsAreLeft();
    // What may last gets a thread again.
    for (const auto& client : clients) {
        EXPECT_EQ(client->AskForTracks(), "done");
    }
    EXPECT_GE(Threads(), clients.size());
    clients.clear();
    EXPECT_TRUE(Eventually([&] { return Descriptors() == descriptors; })) << Descriptors();
}

TEST_F(ServerCrowdGateTest, TheServerEndsInGoodOrderWithACrowd) {
    Connect(200);
    AskUntilFewThreadsAreLeft();
    EXPECT_EQ(server.Stop(), 0) << server.Process().Errors();
}

TEST_F(ServerCrowdGateTest, IdleUnixConnectionsAreCheap) {
    ExpectIdleConnectionsAreCheap(Transport::Unix);
}

TEST_F(ServerCrowdGateTest, IdleTcpConnectionsAreCheap) {
    ExpectIdleConnectionsAreCheap(Transport::Tcp);
}

}  // namespace
}  // namespace Brantel::Tests
