// What thousands of connections cost while they are there and afterwards, in the server as it is
// installed: sanitizers and counters would be measured with it.

#include "CrowdFixture.h"

#include <sys/resource.h>

#include <iostream>
#include <vector>

namespace Brantel::Tests {
namespace {

class ServerCrowdGateTest : public CrowdFixture {};

TEST_F(ServerCrowdGateTest, SixteenThousandConnectionsLeaveNoDescriptorAndNoThread) {
    constexpr int connections = 16'000;
    ExpectNothingLeftOf(connections);
}

TEST_F(ServerCrowdGateTest, IdleConnectionsAreCheap) {
    constexpr int count = 4096;
    constexpr std::size_t limit = std::size_t{64} << 20U;
    ASSERT_TRUE(SetSoftLimit(RLIMIT_NOFILE, count + 100));
    for (const Transport transport : {Transport::Unix, Transport::Tcp}) {
        std::vector<RawClient> clients;
        clients.reserve(count);
        const std::size_t before = Memory();
        for (int i = 0; i < count; ++i) {
            clients.emplace_back(server, transport);
            ASSERT_EQ(clients.back().AskForTracks(), "done");
        }
        const std::size_t cost = Memory() - before;
        std::cout << count << " idle connections cost " << cost / 1024 << " KiB, limit "
                  << limit / 1024 << " KiB\n";
        EXPECT_LE(cost, limit);
        clients.clear();
        EXPECT_TRUE(Eventually([&] { return Threads() < 10; }));
    }
}

}  // namespace
}  // namespace Brantel::Tests
