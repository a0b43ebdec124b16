#include "ConnectionFixture.h"
#include "Support/Waiting.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/SpinGovernor.h>

#include <algorithm>
#include <array>
#include <thread>
#include <vector>

namespace Brantel::Services {
namespace {

using namespace std::chrono_literals;
using Tests::Frame;
using Tests::MessageOfSize;

TEST(SpinGovernorTest, NobodyPollsOnAMachineWithOneProcessor) {
    SpinGovernor governor(1s, 1);
    SpinMemory memory;
    EXPECT_FALSE(governor.MayPoll(memory));
    EXPECT_FALSE(governor.Enter());
}

TEST(SpinGovernorTest, OneConnectionMayPollWithTwoProcessors) {
    SpinGovernor governor(1s, 2);
    SpinMemory memory;
    EXPECT_TRUE(governor.MayPoll(memory));
    EXPECT_TRUE(governor.Enter());
    EXPECT_FALSE(governor.Enter());
    governor.Leave(memory, true);
    EXPECT_TRUE(governor.Enter());
}

TEST(SpinGovernorTest, HalfAsManyMayPollAsThereAreProcessors) {
    SpinGovernor governor(1s, 9);
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(governor.Enter());
    }
    EXPECT_FALSE(governor.Enter());
}

TEST(SpinGovernorTest, ABudgetOfZeroTurnsPollingOff) {
    SpinGovernor governor(0ns, 2);
    SpinMemory memory;
    EXPECT_FALSE(governor.MayPoll(memory));
    EXPECT_EQ(memory.slice, -1);
}

// Counts a hundred connections as active until the connection finds a crowd of more than fifty:
// they may come in two slices of time.
bool MakeCrowd(SpinGovernor& governor, SpinMemory& memory) {
    return Tests::Eventually([&] {
        std::array<SpinMemory, 100> memories;
        for (SpinMemory& other : memories) {
            governor.MayPoll(other);
        }
        return governor.IsCrowd(memory, 50);
    });
}

TEST(SpinGovernorTest, MoreActiveConnectionsThanSoManyAreACrowd) {
    SpinGovernor governor;
    SpinMemory memory;
    EXPECT_FALSE(governor.IsCrowd(memory, 1));
    EXPECT_TRUE(MakeCrowd(governor, memory));
    EXPECT_FALSE(governor.IsCrowd(memory, 1000));
}

TEST(SpinGovernorTest, ACrowdIsOverAWhileAfterItsEnd) {
    SpinGovernor governor;
    SpinMemory memory;
    EXPECT_FALSE(governor.WasCrowd(memory, 50));
    EXPECT_TRUE(Tests::Eventually(
        [&] { return MakeCrowd(governor, memory) && governor.WasCrowd(memory, 1000); }));
    EXPECT_TRUE(Tests::Eventually([&] { return !governor.WasCrowd(memory, 50); }));
}

TEST(SpinGovernorTest, TheBudgetCanBeChanged) {
    SpinGovernor governor(SpinGovernor::defaultBudget, 2);
    SpinMemory memory;
    EXPECT_EQ(governor.Budget(), 30us);
    governor.SetBudget(0ns);
    EXPECT_EQ(governor.Budget(), 0ns);
    EXPECT_FALSE(governor.MayPoll(memory));
    governor.SetBudget(5us);
    EXPECT_EQ(governor.Budget(), 5us);
    EXPECT_TRUE(governor.MayPoll(memory));
}

TEST(SpinGovernorTest, APollThatDoesNotPayDoublesThePauseAfterIt) {
    SpinGovernor governor(1s, 2);
    SpinMemory memory;
    for (const int pause : {1, 2, 4, 8, 16}) {
        ASSERT_TRUE(governor.Enter());
        governor.Leave(memory, false);
        for (int i = 0; i < pause; ++i) {
            EXPECT_FALSE(governor.MayPoll(memory)) << pause;
        }
        EXPECT_TRUE(governor.MayPoll(memory)) << pause;
    }
}

TEST(SpinGovernorTest, ThePauseIsBounded) {
    SpinGovernor governor(1s, 2);
    SpinMemory memory;
    for (int i = 0; i < 40; ++i) {
        governor.Enter();
        governor.Leave(memory, false);
    }
    EXPECT_EQ(memory.pause, 4096U);
    EXPECT_EQ(memory.penalty, 4096U);
}

TEST(SpinGovernorTest, APollThatPaysHalvesThePenalty) {
    SpinGovernor governor(1s, 2);
    SpinMemory memory;
    memory.penalty = 5;
    for (const unsigned penalty : {2U, 1U, 1U}) {
        governor.Enter();
        governor.Leave(memory, true);
        EXPECT_EQ(memory.penalty, penalty);
        EXPECT_EQ(memory.pause, 0U);
    }
}

// Whether the last of so many connections that wait within one slice of time may poll.
bool LastMayPoll(std::size_t connections, unsigned processors) {
    for (;;) {
        SpinGovernor governor(1s, processors);
        std::vector<SpinMemory> memories(connections);
        bool last = false;
        for (SpinMemory& memory : memories) {
            last = governor.MayPoll(memory);
        }
        const auto inOneSlice = [&](const SpinMemory& memory) {
            return memory.slice == memories.front().slice;
        };
        if (std::all_of(memories.begin(), memories.end(), inOneSlice)) {
            return last;
        }
    }
}

TEST(SpinGovernorTest, NobodyPollsWhenMoreConnectionsAreActive) {
    EXPECT_TRUE(LastMayPoll(1, 2));
    EXPECT_FALSE(LastMayPoll(2, 2));
    EXPECT_FALSE(LastMayPoll(100, 2));
    EXPECT_TRUE(LastMayPoll(4, 8));
    EXPECT_FALSE(LastMayPoll(5, 8));
}

TEST(SpinGovernorTest, ConnectionsThatAreNotActiveAnyMoreDoNotCount) {
    SpinGovernor governor(1s, 2);
    std::array<SpinMemory, 100> others;
    for (SpinMemory& memory : others) {
        governor.MayPoll(memory);
    }
    SpinMemory alone;
    // Slices of time pass, then the others are forgotten.
    EXPECT_TRUE(Tests::Eventually([&] { return governor.MayPoll(alone); }));
}

TEST(SpinGovernorTest, EveryConnectionThatIsMadeWithoutOneHasTheGovernorOfTheProcess) {
    EXPECT_EQ(&SpinGovernor::ForProcess(), &SpinGovernor::ForProcess());
    EXPECT_EQ(SpinGovernor::ForProcess().Budget(), SpinGovernor::clientBudget);
    EXPECT_GE(SpinGovernor::OnlineProcessors(), 1U);
}

// --- connections that poll

class PollingConnectionTest : public ConnectionFixture {};

TEST_F(PollingConnectionTest, MessagesComeWhileTheConnectionPolls) {
    governor.SetBudget(10s);
    std::thread writing([&] {
        for (int i = 0; i < 200; ++i) {
            peer.Write(Frame(MessageOfSize(i % 10 == 0 ? 60'000 : 50)));
            peer.Read(51);
        }
    });
    for (int i = 0; i < 200; ++i) {
        EXPECT_TRUE(connection.Receive(received));
        EXPECT_EQ(received.ByteSizeLong(), i % 10 == 0 ? 60'000U : 50U);
        EXPECT_TRUE(connection.Send(MessageOfSize(50)));
    }
    writing.join();
}

TEST_F(PollingConnectionTest, TheEndComesWhileTheConnectionPolls) {
    governor.SetBudget(10s);
    std::thread closing([&] { peer.Close(); });
    EXPECT_EQ(TextOfReceive(), "Connection closed by the other side");
    closing.join();
}

TEST_F(PollingConnectionTest, APollThatBringsNothingIsFollowedByABlockingWait) {
    governor.SetBudget(1ns);
    Receiving receiving(*this);
    receiving.WaitUntilBlocked();
    peer.Write(Frame(MessageOfSize(50)));
    EXPECT_EQ(receiving.Join(), "");
    EXPECT_EQ(received.value(), MessageOfSize(50).value());
}

TEST_F(PollingConnectionTest, TheLongerPollAfterALargeMessageEndsToo) {
    governor.SetBudget(1ns);
    const std::size_t size = limit;
    std::thread reading([&] { peer.Read(Frame(MessageOfSize(size)).size()); });
    EXPECT_TRUE(connection.Send(MessageOfSize(size)));
    reading.join();
    Receiving receiving(*this);
    receiving.WaitUntilBlocked();
    peer.Write(Frame(MessageOfSize(50)));
    EXPECT_EQ(receiving.Join(), "");
}

TEST_F(PollingConnectionTest, AConnectionBlocksAtOnceWhileAnotherPolls) {
    governor.SetBudget(1h);
    while (governor.Enter()) {
    }
    Receiving receiving(*this);
    receiving.WaitUntilBlocked();
    peer.Write(Frame(MessageOfSize(50)));
    EXPECT_EQ(receiving.Join(), "");
}

}  // namespace
}  // namespace Brantel::Services
