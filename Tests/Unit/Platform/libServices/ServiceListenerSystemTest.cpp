// What a listener does when the system fails as no test can make it fail.
#include "ListenerFixture.h"
#include "Support/ProcessState.h"
#include "Support/ScriptedCalls.h"

#include <libServices/ServiceListener.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

namespace Brantel::Services {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Tests::Fails;
using Tests::Passes;
using Tests::Returns;
using Tests::ScriptedCall;
using Tests::SystemCall;

class ServiceListenerSystemTest : public ListenerFixture {};

TEST_F(ServiceListenerSystemTest, AnInterruptedAcceptAndAConnectionThatHasGoneAreNoFailures) {
    const ScriptedCall accept(SystemCall::Accept4, {Fails(EINTR), Fails(ECONNABORTED)});
    ServeEcho();
    EXPECT_EQ("hello", Ask(*Connect(), "hello"));
    EXPECT_EQ(0U, accept.Left());
    EXPECT_THAT(Events(Kind::AcceptPaused), IsEmpty());
}

TEST_F(ServiceListenerSystemTest, AWaitThatFailsDuringAPauseDoesNotEndTheListener) {
    options.acceptPause = std::chrono::milliseconds(1);
    const ScriptedCall accept(SystemCall::Accept4, {Fails(EMFILE)});
    const ScriptedCall poll(SystemCall::Poll, {Passes(), Fails(ENOMEM)});
    ServeEcho();
    EXPECT_EQ("hello", Ask(*Connect(), "hello"));
    EXPECT_EQ(0U, poll.Left());
    EXPECT_THAT(Events(Kind::AcceptPaused), ElementsAre("Too many open files"));
}

TEST_F(ServiceListenerSystemTest, ATypeWhoseNameCannotBeMadeReadableIsReportedAsTheCompilerSaysIt) {
    const ScriptedCall demangle(SystemCall::Demangle, {Returns(0)});
    Serve([](auto&, const PeerAddress&) { throw 5; });
    EXPECT_TRUE(WaitForEnd(*Connect()));
    EXPECT_THAT(Events(Kind::HandlerFailed), ElementsAre("Exception of type i"));
}

TEST_F(ServiceListenerSystemTest, APeerWhomTheSystemDoesNotNameIsNobody) {
    // The client's and the server's ends ask for their kind, too, and do without.
    const ScriptedCall getsockopt(SystemCall::Getsockopt,
                                  {Fails(ENOPROTOOPT), Fails(ENOPROTOOPT), Fails(ENOPROTOOPT)});
    std::atomic<std::int64_t> user{0};
    Serve([&user](auto& connection, const PeerAddress& peer) {
        user = peer.user;
        Echo(connection);
    });
    EXPECT_EQ("hello", Ask(*Connect(), "hello"));
    EXPECT_EQ(-1, user);
}

// The connection's descriptor may be another's already: Stop must wait for the thread and leave the
// connection alone.
TEST_F(ServiceListenerSystemTest, StopLeavesAConnectionAloneThatIsJustBeingClosed) {
    Serve([](auto& connection, const PeerAddress&) { Hear(connection); });
    const auto client = Connect();
    Tests::Gate closing;
    std::atomic<pid_t> stopping{0};
    const auto stopWaits = [&] {
        return stopping != 0 && !std::filesystem::exists(path) && Tests::IsAsleep(stopping);
    };
    const ScriptedCall close(SystemCall::Close, {[&](const auto& system) {
                                 closing.Open();
                                 EXPECT_TRUE(Tests::Eventually(stopWaits));
                                 return system();
                             }});
    client->Send(Text("goodbye"));
    ASSERT_TRUE(closing.Wait());
    std::thread stop([&] {
        stopping = gettid();
        listener->Stop();
    });
    EXPECT_TRUE(WaitForEnd(*client));
    stop.join();
    EXPECT_EQ(0U, listener->Counters().active);
    EXPECT_EQ(0U, listener->Counters().lostConnections);
}

}  // namespace
}  // namespace Brantel::Services
