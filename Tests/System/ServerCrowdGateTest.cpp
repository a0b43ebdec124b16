// What thousands of connections cost while they are there and afterwards, in the server as it is
// installed: sanitizers and counters would be measured with it.

#include "CrowdFixture.h"

#include <sys/resource.h>

#include <cstdint>
#include <iostream>
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
        std::vector<RawClient> clients;
        clients.reserve(count);
        const auto before = static_cast<std::int64_t>(Memory());
        ASSERT_GT(before, 0);
        for (int i = 0; i < count; ++i) {
            clients.emplace_back(server, transport);
            ASSERT_EQ(clients.back().AskForTracks(), "done");
        }
        const std::int64_t cost = static_cast<std::int64_t>(Memory()) - before;
        std::cout << count << " idle connections cost " << cost / 1024 << " KiB, limit "
                  << limit / 1024 << " KiB\n";
        EXPECT_GT(cost, 0);
        EXPECT_LE(cost, limit);
        clients.clear();
        EXPECT_TRUE(Eventually([&] { return Threads() < 10; }));
    }
};

TEST_F(ServerCrowdGateTest, SixteenThousandConnectionsLeaveNoDescriptorAndNoThread) {
    constexpr int connections = 16'000;
    ExpectNothingLeftOf(connections);
}

TEST_F(ServerCrowdGateTest, IdleUnixConnectionsAreCheap) {
    ExpectIdleConnectionsAreCheap(Transport::Unix);
}

TEST_F(ServerCrowdGateTest, IdleTcpConnectionsAreCheap) {
    ExpectIdleConnectionsAreCheap(Transport::Tcp);
}

}  // namespace
}  // namespace Brantel::Tests
