#include "ConnectionProbe.h"
#include "CrowdListenerFixture.h"
#include "Support/ProcessState.h"

#include <libServices/TcpSocketConnection.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Services {
namespace {

using testing::ElementsAre;
using Tests::Eventually;
using TcpClient = TcpSocketConnection<FileDescriptorServiceConnection>;

constexpr unsigned int ampleTimeout = 60'000;

class ServiceListenerCrowdTest : public CrowdListenerFixture {
  protected:
    // Echoes, but waits with the text "block" until the gate opens.
    void ServeWithGate() {
        Serve([this](FileDescriptorServiceConnection& connection, const PeerAddress&) {
            google::protobuf::StringValue message;
            while (connection.Receive(message)) {
                if (message.value() == "block") {
                    gate.get_future().wait();
                }
                connection.Send(message);
            }
        });
    }
    // Bytes on their way to the server, as they are.
    static void SendBytes(const FileDescriptorServiceConnection& client, const std::string& bytes) {
        const int fd = ConnectionProbe::DescriptorOf(client);
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
                  ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }
    static std::string Frame(const std::string& text) {
        const std::string body = Text(text).SerializeAsString();
        return std::string(1, static_cast<char>(body.size())) + body;
    }

    std::promise<void> gate;
};

TEST_F(ServiceListenerCrowdTest, AConnectionThatAsksForQuickThingsOnlyNeedsNoThread) {
    ServeEcho();
    const std::size_t threads = Tests::CountEntries("/proc/self/task");
    const auto client = ConnectToCrowd();
    EXPECT_TRUE(Eventually([&] { return Tests::CountEntries("/proc/self/task") == threads; }));
    EXPECT_EQ("quicker", Ask(*client, "quicker"));
    EXPECT_EQ(1U, InCrowd());
    EXPECT_EQ(1U, listener->Counters().active);
    EXPECT_EQ(1U, listener->Counters().accepted);
}

TEST_F(ServiceListenerCrowdTest, WhatIsNotQuickGetsAThreadAgain) {
    ServeEcho();
    const auto client = ConnectToCrowd();
    EXPECT_EQ("slow", Ask(*client, "slow"));
    EXPECT_EQ(0U, InCrowd());
    AskQuickly(*client);
    EXPECT_TRUE(WaitForCrowd(1));
    EXPECT_EQ(1U, listener->Counters().accepted);
}

TEST_F(ServiceListenerCrowdTest, WhoAsksForSomethingElseNowAndThenKeepsItsThread) {
    ServeEcho();
    const auto client = Connect();
    for (int count = 0; count < 40; ++count) {
        const std::string text = count % 4 == 3 ? "slow" : "quick";
        EXPECT_EQ(text, Ask(*client, text));
        EXPECT_EQ(0U, InCrowd());
    }
}

TEST_F(ServiceListenerCrowdTest, WithoutACrowdEachKeepsItsThread) {
    options.crowd = 1;
    ServeEcho();
    const auto client = Connect();
    for (int count = 0; count < 100; ++count) {
        EXPECT_EQ("quick", Ask(*client, "quick"));
        EXPECT_EQ(0U, InCrowd());
    }
}

TEST_F(ServiceListenerCrowdTest, ACrowdThatHasGoneLeavesItsConnectionsToThreads) {
    options.crowd = 3;
    ServeEcho();
    std::vector<std::unique_ptr<UnixDomainConnection>> clients;
    for (int count = 0; count < 20; ++count) {
        clients.push_back(Connect());
    }
    const auto askAll = [&] {
        for (const auto& client : clients) {
            client->Send(Text("quick"));
        }
        for (const auto& client : clients) {
            EXPECT_EQ("quick", Hear(*client));
        }
        return InCrowd() >= 10;
    };
    EXPECT_TRUE(Eventually(askAll));
    EXPECT_TRUE(Eventually([&] {
        for (const auto& client : clients) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            EXPECT_EQ("quick", Ask(*client, "quick"));
        }
        return InCrowd() == 0;
    }));
}

TEST_F(ServiceListenerCrowdTest, WhatLastsLongDoesNotHoldUpTheCrowd) {
    ServeWithGate();
    const auto slow = ConnectToCrowd();
    const auto quick = ConnectToCrowd();
    slow->Send(Text("block"));
    EXPECT_TRUE(WaitForCrowd(1));
    AskQuickly(*quick);
    EXPECT_EQ(1U, InCrowd());
    gate.set_value();
    EXPECT_EQ("block", Hear(*slow));
}

TEST_F(ServiceListenerCrowdTest, TheHandlerStaysTheSame) {
    class Counting : public IServiceHandler {
      public:
        void Handle(IServiceConnection& connection) override {
            google::protobuf::StringValue message;
            while (connection.Receive(message)) {
                connection.Send(Text(std::to_string(++served)));
            }
        }

      private:
        int served = 0;
    };
    Start([](auto&, const PeerAddress&) { return std::make_unique<Counting>(); });
    const auto client = Connect();
    for (int count = 1; count <= 40; ++count) {
        EXPECT_EQ(std::to_string(count), Ask(*client, count % 20 == 0 ? "slow" : "quick"));
    }
    EXPECT_EQ(1U, listener->Counters().accepted);
}

TEST_F(ServiceListenerCrowdTest, AMessageInPiecesGetsAThread) {
    ServeEcho();
    const auto client = ConnectToCrowd();
    const std::string frame = Frame("quick");
    SendBytes(*client, frame.substr(0, 4));
    EXPECT_TRUE(WaitForCrowd(0));
    SendBytes(*client, frame.substr(4));
    EXPECT_EQ("quick", Hear(*client));
}

TEST_F(ServiceListenerCrowdTest, ManyMessagesAtOnceAreAnsweredInTheirOrder) {
    ServeEcho();
    const auto client = ConnectToCrowd();
    std::string frames;
    for (int count = 0; count < 100; ++count) {
        frames += Frame("q" + std::to_string(count));
    }
    SendBytes(*client, frames);
    for (int count = 0; count < 100; ++count) {
        EXPECT_EQ("q" + std::to_string(count), Hear(*client));
    }
}

TEST_F(ServiceListenerCrowdTest, WhoTakesNoAnswersHoldsUpNobodyAndLosesNone) {
    constexpr int questions = 3000;
    const std::string longText(10'000, 'x');
    Serve([&](FileDescriptorServiceConnection& connection, const PeerAddress&) {
        google::protobuf::StringValue message;
        while (connection.Receive(message)) {
            connection.Send(Text(message.value() + longText));
        }
    });
    const auto greedy = Connect();
    for (int count = 0; count < 4; ++count) {
        EXPECT_EQ("q" + longText, Ask(*greedy, "q"));
    }
    EXPECT_TRUE(WaitForCrowd(1));
    std::thread asker([&] {
        for (int count = 0; count < questions; ++count) {
            greedy->Send(Text("q" + std::to_string(count)));
        }
    });
    EXPECT_TRUE(WaitForCrowd(0));
    const auto other = Connect();
    for (int count = 0; count < 20; ++count) {
        EXPECT_EQ("q" + longText, Ask(*other, "q"));
    }
    for (int count = 0; count < questions; ++count) {
        ASSERT_EQ("q" + std::to_string(count) + longText, Hear(*greedy));
    }
    asker.join();
}

TEST_F(ServiceListenerCrowdTest, ALossIsReportedAsEverywhere) {
    ServeEcho();
    ConnectToCrowd().reset();
    EXPECT_TRUE(Eventually([&] { return listener->Counters().active == 0; }));
    EXPECT_THAT(Events(Kind::ConnectionLost), ElementsAre("Connection closed by the other side"));
    EXPECT_EQ(0U, InCrowd());
}

TEST_F(ServiceListenerCrowdTest, AResetIsReportedAsSuch) {
    listener = std::make_unique<ServiceListener>(FunctionHandler::Factory(&Echo), options);
    const unsigned short port = listener->ListenTcp("127.0.0.1", 0);
    listener->Start();
    {
        TcpClient client("127.0.0.1", port, ampleTimeout);
        AskQuickly(client);
        EXPECT_TRUE(WaitForCrowd(1));
        // Closing then sends a reset instead of an end.
        const linger reset{1, 0};
        EXPECT_EQ(0, setsockopt(ConnectionProbe::DescriptorOf(client), SOL_SOCKET, SO_LINGER,
                                &reset, sizeof(reset)));
    }
    EXPECT_TRUE(Eventually([&] { return listener->Counters().active == 0; }));
    EXPECT_THAT(Events(Kind::ConnectionLost),
                ElementsAre("Connection lost: Connection reset by peer"));
}

TEST_F(ServiceListenerCrowdTest, AMessageThatIsNotValidEndsItsConnectionAlone) {
    ServeEcho();
    const auto bad = ConnectToCrowd();
    const auto good = ConnectToCrowd();
    // A text that is not UTF-8.
    SendBytes(*bad, std::string("\x04\x0a\x02q\xff", 5));
    EXPECT_TRUE(WaitForEnd(*bad));
    EXPECT_EQ(1U, listener->Counters().failedHandlers);
    EXPECT_EQ("quick", Ask(*good, "quick"));
    EXPECT_EQ(1U, InCrowd());
}

TEST_F(ServiceListenerCrowdTest, StopEndsThoseOfTheCrowd) {
    ServeEcho();
    const auto one = ConnectToCrowd();
    const auto other = ConnectToCrowd();
    listener->Stop();
    EXPECT_TRUE(WaitForEnd(*one));
    EXPECT_TRUE(WaitForEnd(*other));
    EXPECT_EQ(0U, listener->Counters().active);
    EXPECT_EQ(0U, InCrowd());
    EXPECT_THAT(Events(Kind::ConnectionLost),
                ElementsAre("Connection closed", "Connection closed"));
}

TEST_F(ServiceListenerCrowdTest, StopWithAGraceEndsThoseOfTheCrowdAtOnce) {
    options.stopGrace = std::chrono::minutes(10);
    ServeEcho();
    const auto one = ConnectToCrowd();
    listener->Stop();
    EXPECT_TRUE(WaitForEnd(*one));
    EXPECT_EQ(0U, listener->Counters().active);
}

TEST_F(ServiceListenerCrowdTest, ManyComeLeaveAskAndStopAtOnce) {
    ServeEcho();
    std::atomic<bool> isOver{false};
    std::vector<std::thread> clients;
    for (int number = 0; number < 8; ++number) {
        clients.emplace_back([&, number] {
            while (!isOver) {
                try {
                    const auto client = Connect();
                    for (int count = 0; count < 10 + number; ++count) {
                        const std::string text = count % 10 == 9 ? "slow" : "quick";
                        const std::string answer = Ask(*client, text);
                        EXPECT_TRUE(answer == text || answer == "lost") << answer;
                    }
                } catch (const std::runtime_error&) {
                    // The listener has stopped.
                }
            }
        });
    }
    EXPECT_TRUE(Eventually([&] { return listener->Counters().accepted > 200; }));
    listener->Stop();
    isOver = true;
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(0U, listener->Counters().active);
    EXPECT_EQ(0U, InCrowd());
}

}  // namespace
}  // namespace Brantel::Services
