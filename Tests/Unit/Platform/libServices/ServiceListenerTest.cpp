#include "ConnectionProbe.h"
#include "ListenerFixture.h"
#include "Support/ProcessState.h"
#include "Support/Refusal.h"
#include "Support/TestSockets.h"

#include <libServices/OwnedDescriptor.h>
#include <libServices/ServiceListener.h>
#include <libServices/TcpSocketConnection.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Services {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Tests::Eventually;
using Tests::OptionOf;
using TcpClient = TcpSocketConnection<FileDescriptorServiceConnection>;
using Tests::RefusalOf;

constexpr unsigned int ampleTimeout = 60'000;

class ServiceListenerTest : public ListenerFixture {
  protected:
    static void ExpectOptionRefused(const ServiceListenerOptions& options, const char* text) {
        EXPECT_EQ(text, RefusalOf([&] {
                      const ServiceListener refused(FunctionHandler::Factory(&Echo), options);
                  }));
    }
};

TEST_F(ServiceListenerTest, ItServesOnEveryAddressAtOnce) {
    EchoHandler echo;
    ServiceListener all(echo);
    all.ListenUnix(path);
    const unsigned short ipV4 = all.ListenTcp("127.0.0.1", 0);
    const unsigned short ipV6 = Tests::HasIpV6() ? all.ListenTcp("::1", 0) : 0;
    all.Start();
    UnixDomainConnection local(path);
    TcpClient overIpV4("127.0.0.1", ipV4, ampleTimeout);
    EXPECT_EQ("unix", Ask(local, "unix"));
    EXPECT_EQ("tcp", Ask(overIpV4, "tcp"));
    if (ipV6 != 0) {
        TcpClient overIpV6("::1", ipV6, ampleTimeout);
        EXPECT_EQ("tcp6", Ask(overIpV6, "tcp6"));
    }
}

TEST_F(ServiceListenerTest, TheAddressesAreToldWithThePortsReallyTaken) {
    EchoHandler echo;
    ServiceListener all(echo);
    all.ListenUnix(path);
    const unsigned short port = all.ListenTcp("127.0.0.1", 0);
    EXPECT_NE(0, port);
    EXPECT_THAT(all.Addresses(), ElementsAre(path, "127.0.0.1:" + std::to_string(port)));
    all.Start();
    EXPECT_THAT(all.Addresses(), SizeIs(2));
    all.Stop();
    EXPECT_THAT(all.Addresses(), IsEmpty());
}

TEST_F(ServiceListenerTest, AFailedListenLeavesTheListenerUsable) {
    EchoHandler echo;
    ServiceListener two(echo);
    const unsigned short port = two.ListenTcp("127.0.0.1", 0);
    EXPECT_EQ(
        "Could not listen on 127.0.0.1 port " + std::to_string(port) + ": Address already in use",
        RefusalOf([&] { two.ListenTcp("127.0.0.1", port); }));
    two.Start();
    TcpClient client("127.0.0.1", port, ampleTimeout);
    EXPECT_EQ("still", Ask(client, "still"));
}

TEST_F(ServiceListenerTest, ConnectionsThatArriveBeforeTheStartAreServedAfterIt) {
    EchoHandler echo;
    ServiceListener late(echo);
    late.ListenUnix(path);
    UnixDomainConnection client(path);
    late.Start();
    EXPECT_EQ("served", Ask(client, "served"));
}

TEST_F(ServiceListenerTest, AClientsAddressIsGivenToTheFactory) {
    std::vector<PeerAddress> peers;
    ServiceListener telling(
        FunctionHandler::Factory([&](auto& connection, const PeerAddress& peer) {
            peers.push_back(peer);
            connection.Send(Text("seen"));
        }));
    telling.ListenUnix(path);
    const unsigned short port = telling.ListenTcp("127.0.0.1", 0);
    telling.Start();
    TcpSocketConnection<ConnectionProbe> tcp("127.0.0.1", port, ampleTimeout);
    EXPECT_EQ("seen", Hear(tcp));
    UnixDomainConnection local(path);
    EXPECT_EQ("seen", Hear(local));
    telling.Stop();
    ASSERT_EQ(2U, peers.size());
    EXPECT_EQ(PeerAddress::Kind::Tcp, peers[0].kind);
    EXPECT_EQ("127.0.0.1", peers[0].ipV4);
    EXPECT_EQ(1U, peers[0].connectionId);
    EXPECT_THAT(peers[0].text, testing::StartsWith("127.0.0.1:"));
    EXPECT_EQ(PeerAddress::Kind::Unix, peers[1].kind);
    EXPECT_EQ("", peers[1].ipV4);
    EXPECT_EQ(2U, peers[1].connectionId);
    EXPECT_EQ(path + " process " + std::to_string(getpid()) + " user " + std::to_string(getuid()),
              peers[1].text);
}

TEST_F(ServiceListenerTest, AnIpV6ClientHasNoIpV4Text) {
    if (!Tests::HasIpV6()) {
        GTEST_SKIP() << "This machine has no IPv6";
    }
    PeerAddress seen;
    ServiceListener telling(
        FunctionHandler::Factory([&](auto& connection, const PeerAddress& peer) {
            seen = peer;
            connection.Send(Text("seen"));
        }));
    const unsigned short port = telling.ListenTcp("::1", 0);
    telling.Start();
    TcpClient client("::1", port, ampleTimeout);
    EXPECT_EQ("seen", Hear(client));
    telling.Stop();
    EXPECT_EQ("", seen.ipV4);
    EXPECT_THAT(seen.text, testing::StartsWith("[::1]:"));
}

class AcceptedSocketTest : public ServiceListenerTest, public testing::WithParamInterface<bool> {
  protected:
    // Runs the look at an accepted descriptor, over TCP or the Unix-domain socket.
    void OnAccepted(const std::function<void(int fd)>& look) {
        listener = std::make_unique<ServiceListener>(
            FunctionHandler::Factory([look](auto& connection, const PeerAddress&) {
                look(ConnectionProbe::DescriptorOf(connection));
            }),
            options);
        listener->ListenUnix(path);
        const unsigned short port = listener->ListenTcp("127.0.0.1", 0);
        listener->Start();
        if (GetParam()) {
            TcpClient client("127.0.0.1", port, ampleTimeout);
            EXPECT_TRUE(WaitForEnd(client));
        } else {
            EXPECT_TRUE(WaitForEnd(*Connect()));
        }
        listener->Stop();
    }
};

INSTANTIATE_TEST_SUITE_P(UnixAndTcp, AcceptedSocketTest, testing::Bool(),
                         [](const auto& parameter) { return parameter.param ? "Tcp" : "Unix"; });

TEST_P(AcceptedSocketTest, ItIsBlockingAndClosedOnExec) {
    OnAccepted([](int fd) {
        EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
        EXPECT_EQ(0, fcntl(fd, F_GETFL) & O_NONBLOCK);
    });
}

TEST_P(AcceptedSocketTest, ItHasTheLargeSendBuffer) {
    const OwnedDescriptor reference(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int wanted = 212992;
    ASSERT_EQ(0, setsockopt(reference.Get(), SOL_SOCKET, SO_SNDBUF, &wanted, sizeof(wanted)));
    OnAccepted([&](int fd) {
        EXPECT_EQ(OptionOf(reference.Get(), SOL_SOCKET, SO_SNDBUF),
                  OptionOf(fd, SOL_SOCKET, SO_SNDBUF));
    });
}

TEST_P(AcceptedSocketTest, TcpSendsAtOnceAndNoticesAVanishedPeer) {
    const bool isTcp = GetParam();
    OnAccepted([isTcp](int fd) {
        EXPECT_EQ(isTcp ? 1 : -1, OptionOf(fd, IPPROTO_TCP, TCP_NODELAY));
        EXPECT_EQ(isTcp ? 24'000 : -1, OptionOf(fd, IPPROTO_TCP, TCP_USER_TIMEOUT));
        EXPECT_EQ(isTcp ? 1 : 0, OptionOf(fd, SOL_SOCKET, SO_KEEPALIVE));
    });
}

TEST_F(ServiceListenerTest, TheStackOfAConnectionHasTheGivenSize) {
    std::atomic<std::size_t> found{0};
    // The largest: the system may reuse a larger stack of a thread before.
    options.stackSize = std::size_t{1024} * 1024;
    Serve([&](auto&, const PeerAddress&) {
        pthread_attr_t attributes;
        std::size_t size = 0;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &size);
        pthread_attr_destroy(&attributes);
        found = size;
    });
    EXPECT_TRUE(WaitForEnd(*Connect()));
    EXPECT_EQ(options.stackSize, found);
}

TEST_F(ServiceListenerTest, TheMessageLimitIsInForce) {
    options.messageLimit = 100;
    ServeEcho();
    EXPECT_EQ("short", Ask(*Connect(), "short"));
    EXPECT_EQ("lost", Ask(*Connect(), std::string(100, 'x')));
}

TEST_F(ServiceListenerTest, TheHandlerIsDestroyedBeforeItsConnection) {
    struct Handler : public IServiceHandler {
        explicit Handler(FileDescriptorServiceConnection& connection) : connection(connection) {}
        ~Handler() override { connection.Send(Text("goodbye")); }
        void Handle(IServiceConnection&) override {}
        FileDescriptorServiceConnection& connection;
    };
    Start([](FileDescriptorServiceConnection& connection, const PeerAddress&) {
        return std::make_unique<Handler>(connection);
    });
    const auto client = Connect();
    EXPECT_EQ("goodbye", Hear(*client));
    EXPECT_TRUE(WaitForEnd(*client));
}

TEST_F(ServiceListenerTest, AHandlerThatReturnsEndsItsConnection) {
    Serve([](auto&, const PeerAddress&) {});
    EXPECT_TRUE(WaitForEnd(*Connect()));
    const ServiceListenerCounters counters = listener->Counters();
    EXPECT_EQ(1U, counters.accepted);
    EXPECT_EQ(0U, counters.active);
    EXPECT_EQ(0U, counters.failedHandlers);
    EXPECT_EQ(0U, counters.lostConnections);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(ServiceListenerTest, AnExceptionOfAHandlerIsCountedAndReported) {
    Serve([](auto&, const PeerAddress&) { throw std::runtime_error("disk on fire"); });
    EXPECT_TRUE(WaitForEnd(*Connect()));
    EXPECT_EQ(1U, listener->Counters().failedHandlers);
    EXPECT_THAT(Events(Kind::HandlerFailed), ElementsAre("disk on fire"));
    EXPECT_EQ(1U, events.at(0).peer.connectionId);
}

TEST_F(ServiceListenerTest, AnExceptionThatIsNoStandardOneIsReportedByItsType) {
    Serve([](auto&, const PeerAddress&) { throw 5; });
    EXPECT_TRUE(WaitForEnd(*Connect()));
    EXPECT_EQ(1U, listener->Counters().failedHandlers);
    EXPECT_THAT(Events(Kind::HandlerFailed), ElementsAre("Exception of type int"));
}

TEST_F(ServiceListenerTest, AnExceptionOfTheFactoryIsCountedAndReported) {
    Start([](auto&, const PeerAddress&) -> std::unique_ptr<IServiceHandler> {
        throw std::logic_error("no handler today");
    });
    EXPECT_TRUE(WaitForEnd(*Connect()));
    EXPECT_EQ(1U, listener->Counters().failedHandlers);
    EXPECT_THAT(Events(Kind::HandlerFailed), ElementsAre("no handler today"));
}

TEST_F(ServiceListenerTest, AFactoryThatMakesNoHandlerRefusesTheConnection) {
    Start([](auto&, const PeerAddress&) { return nullptr; });
    EXPECT_TRUE(WaitForEnd(*Connect()));
    EXPECT_EQ(1U, listener->Counters().refused);
    EXPECT_THAT(Events(Kind::ConnectionRefused), ElementsAre("There is no handler for it"));
}

TEST_F(ServiceListenerTest, AHandlerThatEndsItsThreadIsCountedAndReported) {
    Serve([](auto&, const PeerAddress&) { pthread_exit(nullptr); });
    EXPECT_TRUE(WaitForEnd(*Connect()));
    EXPECT_EQ(1U, listener->Counters().failedHandlers);
    EXPECT_THAT(Events(Kind::HandlerFailed), ElementsAre("The handler ended its thread"));
    listener->Stop();
    EXPECT_EQ(0U, listener->Counters().active);
}

TEST_F(ServiceListenerTest, AClientThatGoesAwayIsALostConnectionAndNoFailure) {
    ServeEcho();
    EXPECT_EQ("hello", Ask(*Connect(), "hello"));
    EXPECT_TRUE(Eventually([&] { return listener->Counters().active == 0; }));
    EXPECT_EQ(1U, listener->Counters().lostConnections);
    EXPECT_EQ(0U, listener->Counters().failedHandlers);
    EXPECT_THAT(Events(Kind::ConnectionLost), SizeIs(1));
}

TEST_F(ServiceListenerTest, ALossThatTheHandlerKeepsToItselfIsCountedAndReportedAllTheSame) {
    Serve([](auto& connection, const PeerAddress&) { EXPECT_TRUE(WaitForEnd(connection)); });
    Connect();
    EXPECT_TRUE(Eventually([&] { return Events(Kind::ConnectionLost).size() == 1; }));
    EXPECT_THAT(Events(Kind::ConnectionLost), ElementsAre("Connection closed by the other side"));
    EXPECT_EQ(1U, listener->Counters().lostConnections);
    EXPECT_EQ(0U, listener->Counters().failedHandlers);
}

TEST_F(ServiceListenerTest, AQuietHandlerThatTheStopEndsIsNoLostConnection) {
    Serve([](auto& connection, const PeerAddress&) {
        connection.Send(Text("here"));
        EXPECT_TRUE(WaitForEnd(connection));
    });
    const auto client = Connect();
    EXPECT_EQ("here", Hear(*client));
    listener->Stop();
    EXPECT_EQ(0U, listener->Counters().lostConnections);
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(ServiceListenerTest, AResetByTheClientIsALostConnection) {
    EchoHandler echo;
    ServiceListener tcp(echo, options);
    const unsigned short port = tcp.ListenTcp("127.0.0.1", 0);
    tcp.Start();
    {
        TcpSocketConnection<ConnectionProbe> client("127.0.0.1", port, ampleTimeout);
        EXPECT_EQ("hello", Ask(client, "hello"));
        const linger reset{1, 0};
        setsockopt(ConnectionProbe::DescriptorOf(client), SOL_SOCKET, SO_LINGER, &reset,
                   sizeof(reset));
    }
    EXPECT_TRUE(Eventually([&] { return tcp.Counters().lostConnections == 1; }));
}

TEST_F(ServiceListenerTest, AfterFailuresOthersAreServedAsBefore) {
    Serve([](auto& connection, const PeerAddress& peer) {
        if (peer.connectionId <= 3) {
            throw std::runtime_error("not you");
        }
        Echo(connection);
    });
    for (int failing = 0; failing < 3; ++failing) {
        EXPECT_TRUE(WaitForEnd(*Connect()));
    }
    EXPECT_EQ("served", Ask(*Connect(), "served"));
    EXPECT_EQ(3U, listener->Counters().failedHandlers);
}

TEST_F(ServiceListenerTest, WhatTheEventFunctionThrowsIsDropped) {
    options.onEvent = [](const ServiceListenerEvent&) { throw std::runtime_error("log full"); };
    Serve([](auto&, const PeerAddress&) { throw 5; });
    EXPECT_TRUE(WaitForEnd(*Connect()));
    EXPECT_EQ(1U, listener->Counters().failedHandlers);
}

TEST_F(ServiceListenerTest, NobodyHasToListenToTheEvents) {
    options.onEvent = nullptr;
    Serve([](auto&, const PeerAddress&) { throw 5; });
    EXPECT_TRUE(WaitForEnd(*Connect()));
    EXPECT_EQ(1U, listener->Counters().failedHandlers);
}

TEST_F(ServiceListenerTest, OneConnectionOverTheMaximumIsRefusedAndCounted) {
    options.maximumConnections = 2;
    ServeEcho();
    const auto first = Connect();
    const auto second = Connect();
    EXPECT_EQ("1", Ask(*first, "1"));
    EXPECT_EQ("2", Ask(*second, "2"));
    EXPECT_TRUE(WaitForEnd(*Connect()));
    EXPECT_EQ(1U, listener->Counters().refused);
    EXPECT_EQ(2U, listener->Counters().active);
    EXPECT_THAT(Events(Kind::ConnectionRefused),
                ElementsAre("Already serving 2 connections, the limit"));
    EXPECT_EQ("still", Ask(*first, "still"));
}

TEST_F(ServiceListenerTest, AClientWhoseConnectionWasEndedFindsItsPlaceFree) {
    options.maximumConnections = 1;
    Serve([](auto& connection, const PeerAddress&) { connection.Send(Text("one answer")); });
    for (int again = 0; again < 100; ++again) {
        const auto client = Connect();
        EXPECT_EQ("one answer", Hear(*client));
        EXPECT_TRUE(WaitForEnd(*client));
    }
    EXPECT_EQ(0U, listener->Counters().refused);
}

TEST_F(ServiceListenerTest, OptionsOutOfTheirRangeAreRefused) {
    options.stackSize = std::size_t{256} * 1024 - 1;
    ExpectOptionRefused(options, "Stack size of 262143 is outside of 262144 to 1048576");
    options = {};
    options.stackSize = std::size_t{1024} * 1024 + 1;
    ExpectOptionRefused(options, "Stack size of 1048577 is outside of 262144 to 1048576");
    options = {};
    options.maximumConnections = 0;
    ExpectOptionRefused(options,
                        "Maximum number of connections of 0 is outside of 1 to 4294967295");
    options = {};
    options.messageLimit = 0;
    ExpectOptionRefused(options, "Message limit of 0 is outside of 1 to 2147483647");
    options = {};
    options.acceptPause = std::chrono::milliseconds(0);
    ExpectOptionRefused(options, "Accept pause of 0 is outside of 1 to 3600000");
    options = {};
    options.stopGrace = std::chrono::milliseconds(3'600'001);
    ExpectOptionRefused(options, "Stop grace of 3600001 is outside of 0 to 3600000");
}

TEST_F(ServiceListenerTest, OptionsAtTheEndsOfTheirRangesAreTaken) {
    options.stackSize = std::size_t{1024} * 1024;
    options.maximumConnections = 1;
    options.messageLimit = FileDescriptorServiceConnection::highestMessageLimit;
    options.acceptPause = std::chrono::hours(1);
    options.spinBudget = std::chrono::nanoseconds(0);
    ServeEcho();
    EXPECT_EQ("served", Ask(*Connect(), "served"));
}

TEST_F(ServiceListenerTest, AListenerNeedsAFactory) {
    EXPECT_EQ("The listener has no handler factory",
              RefusalOf([] { const ServiceListener none{ServiceListener::HandlerFactory()}; }));
}

TEST_F(ServiceListenerTest, WithoutAnyDescriptorLeftItCanNotBeMade) {
    EchoHandler echo;
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    ASSERT_TRUE(Tests::SetSoftLimit(RLIMIT_NOFILE, 0));
    const std::string error = RefusalOf([&] { const ServiceListener none(echo); });
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
    EXPECT_EQ("Could not make an event descriptor: Too many open files", error);
}

TEST_F(ServiceListenerTest, StartingWithoutAnAddressIsRefused) {
    EchoHandler echo;
    ServiceListener nowhere(echo);
    EXPECT_EQ("The listener has no address to listen on", RefusalOf([&] { nowhere.Start(); }));
}

TEST_F(ServiceListenerTest, AStartedListenerTakesNoMoreAddresses) {
    ServeEcho();
    const std::string refusal = "The listener has already been started";
    EXPECT_EQ(refusal, RefusalOf([&] { listener->Start(); }));
    EXPECT_EQ(refusal, RefusalOf([&] { listener->ListenTcp("127.0.0.1", 0); }));
    EXPECT_EQ(refusal, RefusalOf([&] { listener->ListenUnix(folder.File("other")); }));
    EXPECT_FALSE(std::filesystem::exists(folder.File("other")));
}

TEST_F(ServiceListenerTest, AStoppedListenerIsNotStartedAgain) {
    ServeEcho();
    listener->Stop();
    EXPECT_EQ("The listener has already been started", RefusalOf([&] { listener->Start(); }));
}

TEST_F(ServiceListenerTest, AListenerThatWasNeverStartedGivesItsAddressesBack) {
    EchoHandler echo;
    ServiceListener unused(echo);
    unused.ListenUnix(path);
    unused.Stop();
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(ServiceListenerTest, StopEndsHandlersThatWaitForTheirClients) {
    ServeEcho();
    std::vector<std::unique_ptr<UnixDomainConnection>> clients;
    for (int count = 0; count < 20; ++count) {
        clients.push_back(Connect());
        EXPECT_EQ("hello", Ask(*clients.back(), "hello"));
    }
    listener->Stop();
    EXPECT_EQ(0U, listener->Counters().active);
    EXPECT_EQ(20U, listener->Counters().lostConnections);
    for (const auto& client : clients) {
        EXPECT_TRUE(WaitForEnd(*client));
    }
}

TEST_F(ServiceListenerTest, StopRemovesTheSocketFileAndFreesThePort) {
    EchoHandler echo;
    ServiceListener stopped(echo);
    stopped.ListenUnix(path);
    const unsigned short port = stopped.ListenTcp("127.0.0.1", 0);
    stopped.Start();
    {
        TcpClient client("127.0.0.1", port, ampleTimeout);
        EXPECT_EQ("hello", Ask(client, "hello"));
        stopped.Stop();
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    ServiceListener next(echo);
    EXPECT_EQ(port, next.ListenTcp("127.0.0.1", port));
}

TEST_F(ServiceListenerTest, StoppingTwiceIsHarmless) {
    ServeEcho();
    listener->Stop();
    listener->Stop();
    EXPECT_EQ(0U, listener->Counters().active);
}

TEST_F(ServiceListenerTest, StopsAtTheSameTimeReturnWhenEverythingHasEnded) {
    Tests::Gate release;
    std::atomic<bool> ended{false};
    Serve([&](auto& connection, const PeerAddress&) {
        connection.Send(Text("here"));
        release.Wait();
        ended = true;
    });
    const auto client = Connect();
    EXPECT_EQ("here", Hear(*client));
    std::vector<std::thread> stoppers;
    stoppers.reserve(8);
    std::atomic<int> tooEarly{0};
    for (int count = 0; count < 8; ++count) {
        stoppers.emplace_back([&] {
            listener->Stop();
            tooEarly += ended ? 0 : 1;
        });
    }
    EXPECT_TRUE(WaitForEnd(*client));
    release.Open();
    for (std::thread& stopper : stoppers) {
        stopper.join();
    }
    EXPECT_EQ(0, tooEarly);
}

TEST_F(ServiceListenerTest, AHandlerThatIsEndingMayAskForAddressesAndCounters) {
    Serve([&](auto& connection, const PeerAddress&) {
        connection.Send(Text("here"));
        EXPECT_TRUE(WaitForEnd(connection));
        EXPECT_THAT(listener->Addresses(), IsEmpty());
        EXPECT_EQ(1U, listener->Counters().active);
    });
    const auto client = Connect();
    EXPECT_EQ("here", Hear(*client));
    listener->Stop();
}

TEST_F(ServiceListenerTest, AHandlerCanNotStopItsListener) {
    Serve([&](auto& connection, const PeerAddress&) {
        connection.Send(Text(RefusalOf([&] { listener->Stop(); })));
    });
    EXPECT_EQ("A listener can't be stopped by one of its own threads", Hear(*Connect()));
}

TEST_F(ServiceListenerTest, WithAStopGraceAHandlerThatWorksStillAnswers) {
    options.stopGrace = std::chrono::minutes(1);
    Tests::Gate working;
    Tests::Gate stopping;
    Serve([&](FileDescriptorServiceConnection& connection, const PeerAddress&) {
        google::protobuf::StringValue message;
        connection.Receive(message);
        working.Open();
        stopping.Wait();
        connection.Send(Text("done"));
        connection.Receive(message);
    });
    const auto client = Connect();
    const auto idle = Connect();
    client->Send(Text("do"));
    ASSERT_TRUE(working.Wait());
    std::thread stop([this] { listener->Stop(); });
    EXPECT_TRUE(WaitForEnd(*idle));
    stopping.Open();
    EXPECT_EQ("done", Hear(*client));
    EXPECT_TRUE(WaitForEnd(*client));
    stop.join();
}

TEST_F(ServiceListenerTest, AfterTheStopGraceAnAnswerThatNobodyTakesIsGivenUp) {
    options.stopGrace = std::chrono::milliseconds(1);
    std::atomic<bool> received{false};
    std::atomic<bool> sent{false};
    Serve([&](FileDescriptorServiceConnection& connection, const PeerAddress&) {
        google::protobuf::StringValue message;
        connection.Receive(message);
        received = true;
        connection.Send(Text(std::string(std::size_t{64} << 20U, 'a')));
        sent = true;
    });
    const auto client = Connect();
    client->Send(Text("much"));
    ASSERT_TRUE(Eventually([&received] { return received.load(); }));
    listener->Stop();
    EXPECT_TRUE(sent);
}

TEST_F(ServiceListenerTest, AConnectionThatEndsBecauseAMessageIsNotValidIsReported) {
    Serve([](FileDescriptorServiceConnection& connection, const PeerAddress&) {
        google::protobuf::StringValue message;
        try {
            connection.Receive(message);
        } catch (const std::runtime_error&) {
            // As a handler does that has nobody to tell.
        }
    });
    const auto client = Connect();
    // A text of 7 bytes that the message of 2 bytes does not have.
    ASSERT_EQ(3, send(ConnectionProbe::DescriptorOf(*client), "\2\12\7", 3, MSG_NOSIGNAL));
    ASSERT_TRUE(Eventually([this] { return !Events(Kind::MessageRefused).empty(); }));
    EXPECT_THAT(Events(Kind::MessageRefused),
                ElementsAre("Received 2 bytes that are not a google.protobuf.StringValue"));
    EXPECT_EQ(0U, listener->Counters().lostConnections);
}

TEST_F(ServiceListenerTest, ItServesOnASocketThatItIsGiven) {
    const Tests::PlainTcpListener passed("127.0.0.1");
    EchoHandler echo;
    ServiceListener given(echo);
    given.ListenDescriptor(fcntl(passed.Get(), F_DUPFD, 0));
    EXPECT_THAT(given.Addresses(), ElementsAre("127.0.0.1:" + std::to_string(passed.Port())));
    given.Start();
    TcpClient client("127.0.0.1", passed.Port(), ampleTimeout);
    EXPECT_EQ("here", Ask(client, "here"));
    EXPECT_EQ("The listener has already been started",
              RefusalOf([&] { given.ListenDescriptor(fcntl(passed.Get(), F_DUPFD, 0)); }));
}

TEST_F(ServiceListenerTest, StopWhileClientsKeepConnectingServesOrEndsEachOfThem) {
    ServeEcho();
    std::atomic<bool> stopped{false};
    std::atomic<int> served{0};
    std::vector<std::thread> clients;
    clients.reserve(4);
    for (int count = 0; count < 4; ++count) {
        clients.emplace_back([&] {
            while (!stopped) {
                try {
                    const std::string answer = Ask(*Connect(), "x");
                    EXPECT_TRUE(answer == "x" || answer == "lost") << answer;
                    ++served;
                } catch (const std::runtime_error&) {
                    // Nobody listens any more.
                }
            }
        });
    }
    EXPECT_TRUE(Eventually([&] { return served > 100; }));
    listener->Stop();
    stopped = true;
    for (std::thread& client : clients) {
        client.join();
    }
    const ServiceListenerCounters counters = listener->Counters();
    EXPECT_EQ(0U, counters.active);
    EXPECT_EQ(0U, counters.refused);
}

TEST_F(ServiceListenerTest, ManyConnectionsLeaveNoDescriptorAndNoThread) {
    ServeEcho();
    const std::size_t threads = Tests::RunningThreads();
    const std::size_t descriptors = Tests::OpenDescriptors();
    constexpr int rounds = 15;
    constexpr int atOnce = 100;
    for (int round = 0; round < rounds; ++round) {
        std::vector<std::unique_ptr<UnixDomainConnection>> clients;
        clients.reserve(atOnce);
        for (int count = 0; count < atOnce; ++count) {
            clients.push_back(Connect());
        }
        for (const auto& client : clients) {
            EXPECT_EQ("x", Ask(*client, "x"));
        }
    }
    EXPECT_TRUE(Eventually([&] { return Tests::RunningThreads() == threads; }));
    EXPECT_EQ(descriptors, Tests::OpenDescriptors());
    EXPECT_EQ(1U * rounds * atOnce, listener->Counters().accepted);
}

TEST_F(ServiceListenerTest, AStoppedListenerLeavesNoDescriptorAndNoThread) {
    // With its first thread a program under ThreadSanitizer gets another one, for good.
    std::thread([] {}).join();
    const std::size_t descriptors = Tests::OpenDescriptors();
    const std::size_t threads = Tests::RunningThreads();
    ServeEcho();
    EXPECT_EQ("x", Ask(*Connect(), "x"));
    listener.reset();
    EXPECT_EQ(descriptors, Tests::OpenDescriptors());
    EXPECT_EQ(threads, Tests::RunningThreads());
}

}  // namespace
}  // namespace Brantel::Services
