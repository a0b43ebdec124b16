#include "ConnectionFixture.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/SpinGovernor.h>

#include <sched.h>

#include <algorithm>
#include <array>
#include <functional>
#include <thread>
#include <vector>

namespace Brantel::Services {
namespace {

using namespace std::chrono_literals;
using Tests::Frame;
using Tests::MessageOfSize;

cpu_set_t Processors() {
    cpu_set_t set;
    CPU_ZERO(&set);
    EXPECT_EQ(::sched_getaffinity(0, sizeof(set), &set), 0);
    return set;
}

// Runs the test in a thread that may use so many processors; false when there are fewer.
bool WithProcessors(int count, const std::function<void()>& test) {
    const cpu_set_t all = Processors();
    if (CPU_COUNT(&all) < count) {
        return false;
    }
    std::thread thread([&] {
        cpu_set_t some;
        CPU_ZERO(&some);
        for (std::size_t cpu = 0; CPU_COUNT(&some) < count; ++cpu) {
            if (CPU_ISSET(cpu, &all)) {
                CPU_SET(cpu, &some);
            }
        }
        ASSERT_EQ(::sched_setaffinity(0, sizeof(some), &some), 0);
        test();
    });
    thread.join();
    return true;
}

#define WITH_PROCESSORS(count, test)                          \
    if (!WithProcessors(count, test)) {                       \
        GTEST_SKIP() << "needs " << (count) << " processors"; \
    }

TEST(SpinGovernorTest, NobodyPollsWithOneProcessor) {
    WITH_PROCESSORS(1, [] {
        SpinGovernor governor(1s);
        SpinMemory memory;
        EXPECT_FALSE(governor.MayPoll(memory));
        EXPECT_FALSE(governor.Enter());
    });
}

TEST(SpinGovernorTest, OneConnectionMayPollWithTwoProcessors) {
    WITH_PROCESSORS(2, [] {
        SpinGovernor governor(1s);
        SpinMemory memory;
        EXPECT_TRUE(governor.MayPoll(memory));
        EXPECT_TRUE(governor.Enter());
        EXPECT_FALSE(governor.Enter());
        governor.Leave(memory, true);
        EXPECT_TRUE(governor.Enter());
    });
}

TEST(SpinGovernorTest, HalfAsManyMayPollAsThereAreProcessors) {
    const cpu_set_t all = Processors();
    SpinGovernor governor(1s);
    for (int i = 0; i < CPU_COUNT(&all) / 2; ++i) {
        EXPECT_TRUE(governor.Enter());
    }
    EXPECT_FALSE(governor.Enter());
}

TEST(SpinGovernorTest, ABudgetOfZeroTurnsPollingOff) {
    SpinGovernor governor(0ns);
    SpinMemory memory;
    EXPECT_FALSE(governor.MayPoll(memory));
    EXPECT_EQ(memory.slice, -1);
}

TEST(SpinGovernorTest, TheBudgetCanBeChanged) {
    WITH_PROCESSORS(2, [] {
        SpinGovernor governor;
        SpinMemory memory;
        EXPECT_EQ(governor.Budget(), 30us);
        governor.SetBudget(0ns);
        EXPECT_EQ(governor.Budget(), 0ns);
        EXPECT_FALSE(governor.MayPoll(memory));
        governor.SetBudget(5us);
        EXPECT_EQ(governor.Budget(), 5us);
        EXPECT_TRUE(governor.MayPoll(memory));
    });
}

TEST(SpinGovernorTest, ASpinThatDoesNotPayDoublesThePauseAfterIt) {
    WITH_PROCESSORS(2, [] {
        SpinGovernor governor(1s);
        SpinMemory memory;
        for (const int pause : {1, 2, 4, 8, 16}) {
            ASSERT_TRUE(governor.Enter());
            governor.Leave(memory, false);
            for (int i = 0; i < pause; ++i) {
                EXPECT_FALSE(governor.MayPoll(memory)) << pause;
            }
            EXPECT_TRUE(governor.MayPoll(memory)) << pause;
        }
    });
}

TEST(SpinGovernorTest, ThePauseIsBounded) {
    SpinGovernor governor(1s);
    SpinMemory memory;
    for (int i = 0; i < 40; ++i) {
        governor.Enter();
        governor.Leave(memory, false);
    }
    EXPECT_EQ(memory.pause, 4096U);
    EXPECT_EQ(memory.penalty, 4096U);
}

TEST(SpinGovernorTest, ASpinThatPaysHalvesThePenalty) {
    SpinGovernor governor(1s);
    SpinMemory memory;
    memory.penalty = 5;
    for (const unsigned penalty : {2U, 1U, 1U}) {
        governor.Enter();
        governor.Leave(memory, true);
        EXPECT_EQ(memory.penalty, penalty);
        EXPECT_EQ(memory.pause, 0U);
    }
}

// Lets so many connections wait in one slice of time. What the last of them was told.
bool LastOf(std::size_t count, SpinGovernor& governor) {
    for (;;) {
        std::vector<SpinMemory> memories(count);
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
    WITH_PROCESSORS(2, [] {
        SpinGovernor governor(1s);
        EXPECT_TRUE(LastOf(1, governor));
        SpinGovernor other(1s);
        EXPECT_FALSE(LastOf(2, other));
        EXPECT_FALSE(LastOf(100, other));
    });
}

TEST(SpinGovernorTest, ConnectionsThatAreNotActiveAnyMoreDoNotCount) {
    WITH_PROCESSORS(2, [] {
        SpinGovernor governor(1s);
        LastOf(100, governor);
        SpinMemory alone;
        EXPECT_FALSE(governor.MayPoll(alone));
        // Slices of time pass; the test ends when the others are forgotten.
        while (!governor.MayPoll(alone)) {
        }
    });
}

TEST(SpinGovernorTest, EveryConnectionThatIsMadeWithoutOneHasTheGovernorOfTheProcess) {
    EXPECT_EQ(&SpinGovernor::ForProcess(), &SpinGovernor::ForProcess());
    EXPECT_EQ(SpinGovernor::ForProcess().Budget(), SpinGovernor::defaultBudget);
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
