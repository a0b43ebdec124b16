// Many connections, and what is left of them afterwards; ServerCrowdGateTest has more of them.

#include "CrowdFixture.h"

#include <memory>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

class ServerCrowdTest : public CrowdFixture {
  protected:
    static BrantelStorageApi::Request SizeOfTrack(long track) {
        BrantelStorageApi::Request request;
        request.set_operation(BrantelStorageApi::OPERATION_TrackStorage_GetTrackSize);
        request.mutable_trackstorage_gettracksize()->set_trackid(track);
        return request;
    }
};

TEST_F(ServerCrowdTest, ConnectionsThatEndedLeaveNoDescriptorAndNoThread) {
    constexpr int connections = 2000;
    ExpectNothingLeftOf(connections);
}

// Each client asks for another track, which is not there, so that each answer is another one.
TEST_F(ServerCrowdTest, ManyWhoAskForLittleShareAThread) {
    constexpr long connections = 200;
    const std::size_t descriptors = Descriptors();
    std::vector<std::unique_ptr<RawClient>> clients;
    for (long number = 0; number < connections; ++number) {
        clients.push_back(std::make_unique<RawClient>(
            server, number % 2 == 0 ? Transport::Unix : Transport::Tcp));
    }
    const auto askAll = [&] {
        for (long number = 0; number < connections; ++number) {
            clients.at(static_cast<std::size_t>(number))->Send(SizeOfTrack(number));
        }
        for (long number = 0; number < connections; ++number) {
            EXPECT_EQ(clients.at(static_cast<std::size_t>(number))->Receive().exception(),
                      "Track " + std::to_string(number) + " does not exist");
        }
    };
    EXPECT_TRUE(Eventually([&] {
        askAll();
        return Threads() < connections / 4;
    })) << Threads();
    // What may last gets a thread again.
    for (const auto& client : clients) {
        EXPECT_EQ(client->AskForTracks(), "done");
    }
    EXPECT_GE(Threads(), static_cast<std::size_t>(connections));
    clients.clear();
    EXPECT_TRUE(Eventually([&] { return Descriptors() == descriptors; })) << Descriptors();
}

TEST_F(ServerCrowdTest, TheServerEndsInGoodOrderWithACrowd) {
    constexpr int connections = 200;
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int number = 0; number < connections; ++number) {
        clients.push_back(std::make_unique<RawClient>(server, Transport::Unix));
    }
    EXPECT_TRUE(Eventually([&] {
        for (const auto& client : clients) {
            client->Send(SizeOfTrack(1));
        }
        for (const auto& client : clients) {
            client->Receive();
        }
        return Threads() < connections / 4;
    })) << Threads();
    EXPECT_EQ(server.Stop(), 0) << server.Process().Errors();
}

}  // namespace
}  // namespace Brantel::Tests
