// Many connections, and what is left of them afterwards; ServerCrowdGateTest has more of them.

#include "CrowdFixture.h"

namespace Brantel::Tests {
namespace {

class ServerCrowdTest : public CrowdFixture {};

TEST_F(ServerCrowdTest, ConnectionsThatEndedLeaveNoDescriptorAndNoThread) {
    constexpr int connections = 2000;
    ExpectNothingLeftOf(connections);
}

}  // namespace
}  // namespace Brantel::Tests
