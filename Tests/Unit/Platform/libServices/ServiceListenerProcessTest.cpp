#include "ConnectionProbe.h"
#include "ListenerFixture.h"
#include "Support/ChildProcess.h"
#include "Support/ProcessState.h"

#include <libServices/OwnedDescriptor.h>
#include <libServices/ServiceListener.h>
#include <libServices/SocketAddress.h>
#include <libServices/TcpSocketConnection.h>

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// What concerns the whole process: limits, signals, peers in other processes.
namespace Brantel::Services {
namespace {

using std::chrono::milliseconds;
using Tests::ChildProcess;
using Tests::Eventually;

// Waits for a message at most so long; "silence" when none comes.
std::string HearWithin(FileDescriptorServiceConnection& connection, milliseconds time) {
    pollfd watched{ConnectionProbe::DescriptorOf(connection), POLLIN, 0};
    const int ready = poll(&watched, 1, static_cast<int>(time.count()));
    return ready == 1 ? Hear(connection) : "silence";
}

// A listener in a process of its own that does what its clients tell it, one word a message.
class ServerProcessTest : public ListenerFixture {
  protected:
    using Clients = std::vector<std::unique_ptr<UnixDomainConnection>>;

    // Starts the server; `prepare` runs in it before the listener is made.
    void StartServer(const std::function<bool()>& prepare = [] { return true; }) {
        child = std::make_unique<ChildProcess>([this, prepare](int channel) {
            if (!prepare()) {
                return cannotPrepare;
            }
            Serve([this](auto& connection, const PeerAddress&) { Obey(connection); });
            ChildProcess::Say(channel);
            ChildProcess::Hear(channel);
            listener->Stop();
            return AfterStop() ? 0 : 1;
        });
        running = child->Hear();
    }
    bool CanNotPrepare() { return !running && child->Wait() == cannotPrepare; }

    // Stops the listener; true when the process ended as it should.
    bool StopServer() {
        child->Say();
        return child->Wait() == 0;
    }

    Clients ConnectAndGreet(int count) {
        Clients clients;
        for (int number = 0; number < count; ++number) {
            clients.push_back(Connect());
            EXPECT_EQ("hello", Ask(*clients.back(), "hello"));
        }
        return clients;
    }

    // Two clients that are being served, and a third that has left: a sanitizer that sees the first
    // exception of a kind needs a descriptor for a moment, and there must be none left later.
    Clients ConnectTwo() {
        Clients clients = ConnectAndGreet(3);
        clients.pop_back();
        EXPECT_TRUE(Eventually([&] { return Ask(*clients[0], "active") == "2"; }));
        return clients;
    }

    // The processor time that the server takes while nothing is asked of it.
    std::chrono::nanoseconds CostOfWaiting(milliseconds time) const {
        const auto before = Tests::ProcessorTime(child->Id());
        poll(nullptr, 0, static_cast<int>(time.count()));
        return Tests::ProcessorTime(child->Id()) - before;
    }

    std::unique_ptr<ChildProcess> child;
    bool running = false;

  private:
    static constexpr int cannotPrepare = 77;

    void Obey(FileDescriptorServiceConnection& connection) {
        google::protobuf::StringValue message;
        while (connection.Receive(message)) {
            connection.Send(Text(Answer(message.value())));
        }
    }

    // The server's side of the conversation; an unknown word is sent back.
    std::string Answer(const std::string& word) {
        if (word == "no more descriptors") {
            // The lowest free number is the next one to be taken.
            const OwnedDescriptor next(dup(0));
            return Done(Tests::SetSoftLimit(RLIMIT_NOFILE, static_cast<rlim_t>(next.Get())));
        }
        if (word == "no descriptor at all") {
            return Done(Tests::SetSoftLimit(RLIMIT_NOFILE, 0));
        }
        if (word == "descriptors again") {
            return Done(Restore(RLIMIT_NOFILE));
        }
        if (word == "no more threads") {
            return Done(Tests::SetSoftLimit(RLIMIT_NPROC, 0));
        }
        if (word == "threads again") {
            return Done(Restore(RLIMIT_NPROC));
        }
        if (word == "pauses") {
            return std::to_string(Events(Kind::AcceptPaused).size());
        }
        if (word == "last event") {
            const std::lock_guard guard(eventsMutex);
            return events.empty() ? "none" : events.back().text;
        }
        if (word == "refused") {
            return std::to_string(listener->Counters().refused);
        }
        if (word == "active") {
            return std::to_string(listener->Counters().active);
        }
        return word;
    }

    static std::string Done(bool success) { return success ? "done" : "failed"; }
    static bool Restore(__rlimit_resource_t resource) {
        rlimit limit{};
        return getrlimit(resource, &limit) == 0 && Tests::SetSoftLimit(resource, limit.rlim_max);
    }
    // Back to who the process was, so that it may write what it has to at its end.
    bool AfterStop() const { return geteuid() == user || setresuid(user, user, user) == 0; }

    const uid_t user = geteuid();
};

// A tenth of the time of one processor would be much for a thread that looks ten times a second.
constexpr milliseconds waitingTime{500};
constexpr milliseconds waitingCost{50};

TEST_F(ServerProcessTest, WithoutDescriptorsItPausesWithoutSpinningAndServesAfterwards) {
    StartServer();
    Clients clients = ConnectTwo();
    ASSERT_EQ("done", Ask(*clients[0], "no more descriptors"));
    const auto waiting = Connect();
    waiting->Send(Text("served in the end"));
    EXPECT_TRUE(Eventually([&] { return Ask(*clients[0], "pauses") == "1"; }));
    EXPECT_LT(CostOfWaiting(waitingTime), waitingCost);
    EXPECT_EQ("silence", HearWithin(*waiting, milliseconds(0)));
    EXPECT_EQ("1", Ask(*clients[0], "pauses"));
    EXPECT_EQ("Too many open files", Ask(*clients[0], "last event"));
    ASSERT_EQ("done", Ask(*clients[0], "descriptors again"));
    EXPECT_EQ("served in the end", HearWithin(*waiting, Tests::patience));
    EXPECT_TRUE(StopServer());
}

TEST_F(ServerProcessTest, TheEndOfAConnectionEndsThePause) {
    options.acceptPause = std::chrono::hours(1);
    StartServer();
    Clients clients = ConnectTwo();
    ASSERT_EQ("done", Ask(*clients[0], "no more descriptors"));
    const auto waiting = Connect();
    waiting->Send(Text("served at once"));
    EXPECT_TRUE(Eventually([&] { return Ask(*clients[0], "pauses") == "1"; }));
    clients.pop_back();
    EXPECT_EQ("served at once", HearWithin(*waiting, Tests::patience));
    EXPECT_TRUE(StopServer());
}

TEST_F(ServerProcessTest, ItCanBeStoppedDuringAPause) {
    options.acceptPause = std::chrono::hours(1);
    StartServer();
    Clients clients = ConnectTwo();
    ASSERT_EQ("done", Ask(*clients[0], "no more descriptors"));
    const auto waiting = Connect();
    EXPECT_TRUE(Eventually([&] { return Ask(*clients[0], "pauses") == "1"; }));
    EXPECT_TRUE(StopServer());
    EXPECT_TRUE(WaitForEnd(*waiting));
}

TEST_F(ServerProcessTest, AProcessThatMayWatchNoDescriptorDoesNotSpinEither) {
    StartServer();
    Clients clients = ConnectTwo();
    ASSERT_EQ("done", Ask(*clients[0], "no descriptor at all"));
    clients.pop_back();
    EXPECT_TRUE(Eventually([&] { return Ask(*clients[0], "active") == "1"; }));
    EXPECT_LT(CostOfWaiting(waitingTime), waitingCost);
    ASSERT_EQ("done", Ask(*clients[0], "descriptors again"));
    EXPECT_EQ("served", Ask(*Connect(), "served"));
    EXPECT_TRUE(StopServer());
}

TEST_F(ServerProcessTest, WithoutThreadsAConnectionIsRefusedAndLaterOnesServed) {
    constexpr uid_t plainUser = 65534;
    // A privileged user has no limit of threads.
    StartServer([this] {
        return geteuid() != 0 || (chown(folder.Path().c_str(), plainUser, plainUser) == 0 &&
                                  setresuid(plainUser, plainUser, 0) == 0);
    });
    if (CanNotPrepare()) {
        GTEST_SKIP() << "No right to become another user";
    }
    Clients clients = ConnectAndGreet(1);
    ASSERT_EQ("done", Ask(*clients[0], "no more threads"));
    EXPECT_TRUE(WaitForEnd(*Connect()));
    EXPECT_EQ("1", Ask(*clients[0], "refused"));
    EXPECT_EQ("1", Ask(*clients[0], "active"));
    EXPECT_EQ("Could not start a thread: Resource temporarily unavailable",
              Ask(*clients[0], "last event"));
    ASSERT_EQ("done", Ask(*clients[0], "threads again"));
    EXPECT_EQ("served", Ask(*Connect(), "served"));
    EXPECT_TRUE(StopServer());
}

TEST_F(ServerProcessTest, AThousandConnectionsAtOnceAreServed) {
    rlimit limit{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    constexpr int count = 1000;
    constexpr rlim_t needed = 2000;
    if (limit.rlim_max < needed || !Tests::SetSoftLimit(RLIMIT_NOFILE, limit.rlim_max)) {
        GTEST_SKIP() << "The process may have only " << limit.rlim_max << " descriptors";
    }
    StartServer();
    Clients clients = ConnectAndGreet(count);
    EXPECT_EQ("1000", Ask(*clients[0], "active"));
    clients.erase(clients.begin() + 1, clients.end());
    EXPECT_TRUE(Eventually([&] { return Ask(*clients[0], "active") == "1"; }));
    EXPECT_TRUE(StopServer());
}

TEST_F(ServerProcessTest, AClientThatVanishesBeforeItsAnswerDoesNotEndTheProcess) {
    StartServer();
    const std::string large(std::size_t{4} * 1024 * 1024, 'x');
    for (int client = 0; client < 20; ++client) {
        Connect()->Send(Text(large));
    }
    EXPECT_EQ("served", Ask(*Connect(), "served"));
    EXPECT_TRUE(StopServer());
}

TEST_F(ServerProcessTest, AKilledServerIsALostConnectionAndItsFileIsReplaced) {
    StartServer();
    Clients clients = ConnectAndGreet(1);
    child.reset();
    EXPECT_TRUE(WaitForEnd(*clients[0]));
    StartServer();
    EXPECT_EQ("served", Ask(*Connect(), "served"));
    EXPECT_TRUE(StopServer());
}

class ListenerSignalTest : public ListenerFixture {};

TEST_F(ListenerSignalTest, SignalHandlersDoNotRunOnTheListenersThreads) {
    static std::atomic<int> handled{0};
    static std::atomic<int> elsewhere{0};
    handled = 0;
    elsewhere = 0;
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {
        elsewhere += gettid() == getpid() ? 0 : 1;
        ++handled;
    };
    sigaction(SIGUSR1, &action, &before);
    ServeEcho();
    const auto client = Connect();
    for (int count = 1; count <= 100; ++count) {
        EXPECT_EQ("x", Ask(*client, "x"));
        kill(getpid(), SIGUSR1);
        EXPECT_TRUE(Eventually([&] { return handled == count; }));
    }
    listener->Stop();
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_EQ(0, elsewhere);
}

// A client in another process that is stopped (SIGSTOP), over either transport.
class StoppedPeerTest : public ListenerFixture, public testing::WithParamInterface<bool> {
  protected:
    using Connection = FileDescriptorServiceConnection;
    using Client = std::function<int(Connection& connection, int channel)>;

    // The client is made before the listener has threads, and connects when it is told to.
    void StartBoth(const FunctionHandler::Function& serve, const Client& client) {
        listener = std::make_unique<ServiceListener>(FunctionHandler::Factory(serve), options);
        listener->ListenUnix(path);
        const unsigned short port = listener->ListenTcp("127.0.0.1", 0);
        child = std::make_unique<ChildProcess>([this, port, client](int channel) {
            ChildProcess::Hear(channel);
            if (GetParam()) {
                TcpSocketConnection<Connection> connection("127.0.0.1", port, 0);
                return client(connection, channel);
            }
            return client(*Connect(), channel);
        });
        listener->Start();
        child->Say();
    }

    std::unique_ptr<ChildProcess> child;
};

INSTANTIATE_TEST_SUITE_P(UnixAndTcp, StoppedPeerTest, testing::Bool(),
                         [](const auto& parameter) { return parameter.param ? "Tcp" : "Unix"; });

TEST_P(StoppedPeerTest, OneInTheMiddleOfAMessageHoldsUpNobodyAndIsServedWhenItGoesOn) {
    const std::string frame("\x07\x0a\x05hello");
    constexpr std::size_t half = 3;
    StartBoth(&Echo, [&](Connection& connection, int channel) {
        const int fd = ConnectionProbe::DescriptorOf(connection);
        send(fd, frame.data(), half, MSG_NOSIGNAL);
        ChildProcess::Say(channel);
        ChildProcess::Hear(channel);
        send(fd, frame.data() + half, frame.size() - half, MSG_NOSIGNAL);
        return Hear(connection) == "hello" ? 0 : 1;
    });
    ASSERT_TRUE(child->Hear());
    ASSERT_TRUE(child->Stop());
    EXPECT_EQ("x", Ask(*Connect(), "x"));
    ASSERT_TRUE(child->Continue());
    child->Say();
    EXPECT_EQ(0, child->Wait());
}

TEST_P(StoppedPeerTest, OneThatTakesNoMoreOfItsAnswerHoldsUpNeitherOthersNorTheStop) {
    Tests::Gate stopped;
    std::atomic<pid_t> sender{0};
    const auto serve = [&](auto& connection, const PeerAddress& peer) {
        if (peer.connectionId == 1) {
            EXPECT_EQ("slow", Hear(connection));
            EXPECT_TRUE(stopped.Wait());
            sender = gettid();
            connection.Send(Text(std::string(std::size_t{64} * 1024 * 1024, 'x')));
        }
        Echo(connection);
    };
    StartBoth(serve, [](Connection& connection, int channel) {
        connection.Send(Text("slow"));
        ChildProcess::Say(channel);
        ChildProcess::Hear(channel);
        return 0;
    });
    ASSERT_TRUE(child->Hear());
    ASSERT_TRUE(child->Stop());
    stopped.Open();
    EXPECT_TRUE(Eventually([&] { return sender != 0 && Tests::IsAsleep(sender); }));
    EXPECT_EQ("x", Ask(*Connect(), "x"));
    listener->Stop();
    EXPECT_EQ(0U, listener->Counters().active);
}

}  // namespace
}  // namespace Brantel::Services
