// What a crowd does when the system fails as no test can make it fail.
#include "CrowdListenerFixture.h"
#include "Support/ScriptedCalls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

namespace Brantel::Services {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Tests::Fails;
using Tests::Returns;
using Tests::ScriptedCall;
using Tests::SystemCall;

class ServiceListenerCrowdSystemTest : public CrowdListenerFixture {};

TEST_F(ServiceListenerCrowdSystemTest, AConnectionForWhichThereIsNoThreadWaitsForOne) {
    ServeEcho();
    const auto client = ConnectToCrowd();
    const ScriptedCall start(SystemCall::PthreadAttrInit,
                             {Returns(EAGAIN), Returns(EAGAIN), Returns(EAGAIN)});
    EXPECT_EQ("slow", Ask(*client, "slow"));
    EXPECT_EQ(0U, start.Left());
    EXPECT_THAT(Events(Kind::ThreadMissing),
                ElementsAre("Could not start a thread: Resource temporarily unavailable"));
}

TEST_F(ServiceListenerCrowdSystemTest, WhatWaitsForAThreadEndsWithTheListener) {
    ServeEcho();
    const auto client = ConnectToCrowd();
    const ScriptedCall start(SystemCall::PthreadAttrInit,
                             {Returns(EAGAIN), Returns(EAGAIN), Returns(EAGAIN), Returns(EAGAIN)});
    client->Send(Text("slow"));
    EXPECT_TRUE(WaitForCrowd(0));
    listener->Stop();
    EXPECT_TRUE(WaitForEnd(*client));
    EXPECT_EQ(0U, listener->Counters().active);
}

TEST_F(ServiceListenerCrowdSystemTest, AConnectionThatCanNotBeWatchedKeepsItsThread) {
    ServeEcho();
    const auto client = Connect();
    const ScriptedCall watch(SystemCall::EpollCtl, {Fails(ENOSPC)});
    for (int count = 0; count < 100; ++count) {
        EXPECT_EQ("quick", Ask(*client, "quick"));
    }
    EXPECT_EQ(0U, watch.Left());
    EXPECT_EQ(0U, InCrowd());
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(ServiceListenerCrowdSystemTest, WithoutAnEventLoopTheListenerDoesNotStart) {
    const ScriptedCall watch(SystemCall::EpollCtl, {Fails(ENOMEM)});
    try {
        ServeEcho();
        ADD_FAILURE() << "It has started";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ("Could not make an event loop: Cannot allocate memory", error.what());
    }
}

}  // namespace
}  // namespace Brantel::Services
