// How a connection ends, and what must not end it.
#include "ConnectionFixture.h"
#include "Support/InterruptingSignal.h"

#include <libServices/FileDescriptorServiceConnection.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/wait.h>

#include <csignal>
#include <vector>

namespace Brantel::Services {
namespace {

using Tests::Descriptor;
using Tests::Frame;
using Tests::InterruptingSignal;
using Tests::MessageOfSize;
using Tests::RawPeer;
using Tests::SocketPair;

class FileDescriptorServiceConnectionLossTest : public ConnectionFixture {
  protected:
    void ExpectLostForGood(const std::string& text) {
        EXPECT_EQ(TextOfReceive(), text);
        EXPECT_EQ(received.ByteSizeLong(), 0U);
        EXPECT_EQ(TextOfReceive(), text);
        EXPECT_TRUE(connection.Send(MessageOfSize(5)));
        EXPECT_EQ(TextOfReceive(), text);
    }
    // What a receiver says of a peer that closes after so many bytes of a frame whose message has
    // `size` bytes.
    static std::string ClosedAfter(std::size_t bytes, std::size_t size) {
        const std::string closed = "Connection closed by the other side after ";
        const std::size_t lengthSize = Tests::Varint(size).size();
        if (bytes < lengthSize) {
            return closed + std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes") +
                   " of a message's length";
        }
        return closed + std::to_string(bytes - lengthSize) + " of " + std::to_string(size) +
               " bytes of a message";
    }
};

// --- the other side ends

TEST_F(FileDescriptorServiceConnectionLossTest, TheEndOfTheStreamIsReportedAndStays) {
    peer.Write(Frame(MessageOfSize(20)));
    peer.Close();
    EXPECT_TRUE(connection.Receive(received));
    ExpectLostForGood("Connection closed by the other side");
}

TEST_F(FileDescriptorServiceConnectionLossTest, HalfASmallFrameIsReportedAtEveryByteAndStays) {
    const std::string frame = Frame(MessageOfSize(300));
    for (std::size_t cut = 1; cut < frame.size(); ++cut) {
        SocketPair pair;
        FileDescriptorServiceConnection halved(pair.near.Take(), limit, governor);
        pair.far.Write(frame.substr(0, cut));
        pair.far.Close();
        received.set_value("former");
        const auto receive = [&] { halved.Receive(received); };
        EXPECT_EQ(TextOf<SocketDisconnected>(receive), ClosedAfter(cut, 300)) << cut << " bytes";
        EXPECT_EQ(received.value(), "") << cut << " bytes";
        EXPECT_EQ(TextOf<SocketDisconnected>(receive), ClosedAfter(cut, 300)) << cut << " bytes";
    }
}

TEST_F(FileDescriptorServiceConnectionLossTest, HalfALargeFrameIsReportedWhereverItEnds) {
    const std::string frame = Frame(MessageOfSize(150'000));
    for (std::size_t cut : {1, 2, 3, 4, 6, 100, 4096, 49'151, 49'152, 49'153, 60'000, 150'002}) {
        SocketPair pair;
        FileDescriptorServiceConnection halved(pair.near.Take(), limit, governor);
        std::thread writing([&] {
            pair.far.Write(frame.substr(0, cut));
            pair.far.Close();
        });
        received.set_value("former");
        EXPECT_EQ(TextOf<SocketDisconnected>([&] { halved.Receive(received); }),
                  ClosedAfter(cut, 150'000));
        writing.join();
        EXPECT_EQ(received.value(), "") << cut << " bytes";
    }
}

TEST_F(FileDescriptorServiceConnectionLossTest, AHalfFrameIsNotFollowedByAnything) {
    peer.Write("\x05\x0A\x03");
    peer.FinishWriting();
    ExpectLostForGood("Connection closed by the other side after 2 of 5 bytes of a message");
    EXPECT_TRUE(peer.SeesTheEnd());
}

TEST_F(FileDescriptorServiceConnectionLossTest, ALostConnectionIsNeverAnsweredWithFalse) {
    const std::function<void(SocketPair&, FileDescriptorServiceConnection&)> losses[] = {
        [](auto& pair, auto&) { pair.far.Close(); },
        [](auto& pair, auto&) { pair.far.FinishWriting(); },
        [](auto& pair, auto&) {
            pair.far.Write("\x05\x0A");
            pair.far.Close();
        },
        [](auto& pair, auto&) { pair.far.Write(Tests::Varint(limit + 1)); },
        [](auto&, auto& lost) { lost.Close(); },
    };
    for (const auto& lose : losses) {
        SocketPair pair;
        FileDescriptorServiceConnection lost(pair.near.Take(), limit, governor);
        lose(pair, lost);
        EXPECT_TRUE(lost.Send(MessageOfSize(5)));
        EXPECT_THROW(lost.Receive(received), SocketDisconnected);
        EXPECT_TRUE(lost.Send(MessageOfSize(5)));
        EXPECT_THROW(lost.Receive(received), SocketDisconnected);
    }
}

TEST_F(FileDescriptorServiceConnectionLossTest, AnEndBetweenTwoMessagesIsToldFromOneInAMessage) {
    peer.WritePiece(Frame(MessageOfSize(60'000)));
    peer.WritePiece(Frame(MessageOfSize(20)));
    peer.Close();
    EXPECT_TRUE(connection.Receive(received));
    EXPECT_TRUE(connection.Receive(received));
    EXPECT_EQ(TextOfReceive(), "Connection closed by the other side");
}

TEST_F(FileDescriptorServiceConnectionLossTest, ALostConnectionIsReportedByReceiveAndNotBySend) {
    peer.Close();
    EXPECT_TRUE(connection.Send(MessageOfSize(5)));
    EXPECT_TRUE(connection.Send(MessageOfSize(500'000)));
    EXPECT_EQ(TextOfReceive(), "Connection lost: Broken pipe");
    EXPECT_EQ(TextOfReceive(), "Connection lost: Broken pipe");
}

TEST_F(FileDescriptorServiceConnectionLossTest,
       AMessageThatCannotBeSentIsRefusedOnALostConnectionToo) {
    peer.Close();
    EXPECT_TRUE(connection.Send(MessageOfSize(5)));
    EXPECT_THROW(connection.Send(UninterpretedOption::NamePart()), std::runtime_error);
}

TEST_F(FileDescriptorServiceConnectionLossTest, APeerThatGoesDuringALargeSendIsReportedByReceive) {
    const std::string frame = Frame(MessageOfSize(limit));
    std::thread reading([&] {
        peer.Read(100'000);
        peer.Close();
    });
    EXPECT_TRUE(connection.Send(MessageOfSize(limit)));
    reading.join();
    const std::string lost = TextOfReceive();
    EXPECT_TRUE(lost == "Connection lost: Broken pipe" ||
                lost == "Connection lost: Connection reset by peer")
        << lost;
}

TEST_F(FileDescriptorServiceConnectionLossTest, APeerThatGoesDuringAMessageOfManyPartsIsReported) {
    google::protobuf::FileDescriptorProto message;
    for (int i = 0; i < 150; ++i) {
        message.add_dependency(std::string(5000, 'd'));
        message.add_dependency(std::string(1000, 's'));
    }
    std::thread reading([&] {
        peer.Read(100'000);
        peer.Close();
    });
    EXPECT_TRUE(connection.Send(message));
    reading.join();
    EXPECT_THROW(connection.Receive(received), SocketDisconnected);
}

TEST_F(FileDescriptorServiceConnectionLossTest, AFailedSendEndsAReceiveThatIsBlocked) {
    Receiving receiving(*this);
    receiving.WaitUntilBlocked();
    ASSERT_EQ(::shutdown(descriptor, SHUT_WR), 0);
    EXPECT_TRUE(connection.Send(MessageOfSize(5)));
    EXPECT_NE(receiving.Join(), "");
    EXPECT_THROW(connection.Receive(received), SocketDisconnected);
}

TEST_F(FileDescriptorServiceConnectionLossTest, NoSignalEndsTheProcessWhenThePeerIsGone) {
    const InterruptingSignal pipe(SIGPIPE);
    peer.Close();
    connection.Send(MessageOfSize(5));
    connection.Send(MessageOfSize(500'000));
    EXPECT_EQ(InterruptingSignal::count.load(), 0);
}

TEST_F(FileDescriptorServiceConnectionLossTest, WhyItWasLostIsToldOnceReceiveHasReportedIt) {
    peer.Write(Frame(MessageOfSize(5)));
    peer.Write("\x05");
    peer.Close();
    EXPECT_TRUE(connection.Receive(received));
    EXPECT_EQ(connection.WhyLost(), "");
    const std::string text = TextOfReceive();
    EXPECT_EQ(text, "Connection closed by the other side after 0 of 5 bytes of a message");
    EXPECT_EQ(connection.WhyLost(), text);
}

TEST_F(FileDescriptorServiceConnectionLossTest, WhyASendWasLostIsToldToo) {
    peer.Close();
    EXPECT_TRUE(connection.Send(MessageOfSize(5)));
    EXPECT_EQ(connection.WhyLost(), "");
    EXPECT_EQ(TextOfReceive(), "Connection lost: Broken pipe");
    EXPECT_EQ(connection.WhyLost(), "Connection lost: Broken pipe");
}

TEST_F(FileDescriptorServiceConnectionLossTest, AConnectionThatWasClosedHereIsNotLost) {
    connection.Close();
    EXPECT_EQ(TextOfReceive(), "Connection closed");
    EXPECT_EQ(connection.WhyLost(), "");
}

TEST_F(FileDescriptorServiceConnectionLossTest, AMessageThatIsNotValidIsNoLoss) {
    peer.Write(Tests::FrameOf("\xFF"));
    EXPECT_THROW(connection.Receive(received), std::runtime_error);
    EXPECT_EQ(connection.WhyLost(), "");
}

// --- a stream that can't be followed

TEST_F(FileDescriptorServiceConnectionLossTest, AFrameOfTheLimitPlusOneIsRefusedForGood) {
    peer.Write(Tests::Varint(limit + 1));
    peer.Write(Frame(MessageOfSize(5)));
    ExpectLostForGood(
        "Connection lost: message of 1000001 bytes is over the limit of 1000000 bytes");
}

TEST_F(FileDescriptorServiceConnectionLossTest, ThePeerOfARefusedFrameSeesTheEnd) {
    peer.Write(Tests::Varint(limit + 1));
    EXPECT_THROW(connection.Receive(received), SocketDisconnected);
    EXPECT_TRUE(peer.SeesTheEnd());
    EXPECT_FALSE(peer.TryWrite("more"));
}

TEST_F(FileDescriptorServiceConnectionLossTest, TheHighestLengthOfFiveBytesIsOverTheLimit) {
    peer.Write("\xFF\xFF\xFF\xFF\x7F");
    EXPECT_EQ(TextOfReceive(),
              "Connection lost: message of 34359738367 bytes is over the limit of 1000000 bytes");
}

TEST_F(FileDescriptorServiceConnectionLossTest, ALengthOfMoreThanFiveBytesIsRefusedForGood) {
    peer.Write("\x80\x80\x80\x80\x80");
    ExpectLostForGood("Connection lost: a message length of more than 5 bytes is not valid");
    EXPECT_TRUE(peer.SeesTheEnd());
}

// --- closing

TEST_F(FileDescriptorServiceConnectionLossTest, CloseEndsAReceiveThatIsBlockedAndEveryLaterOne) {
    Receiving receiving(*this);
    receiving.WaitUntilBlocked();
    connection.Close();
    EXPECT_EQ(receiving.Join(), "Connection closed");
    ExpectLostForGood("Connection closed");
}

TEST_F(FileDescriptorServiceConnectionLossTest, CloseEndsAReceiveInTheMiddleOfALargeMessage) {
    peer.Write(Frame(MessageOfSize(200'000)).substr(0, 100'000));
    Receiving receiving(*this);
    receiving.WaitUntilBlocked();
    connection.Close();
    EXPECT_EQ(receiving.Join(), "Connection closed");
    EXPECT_EQ(received.value(), "");
}

TEST_F(FileDescriptorServiceConnectionLossTest, CloseDropsWhatHasBeenBuffered) {
    peer.WritePiece(Frame(MessageOfSize(5)) + Frame(MessageOfSize(6)));
    EXPECT_TRUE(connection.Receive(received));
    connection.Close();
    ExpectLostForGood("Connection closed");
}

TEST_F(FileDescriptorServiceConnectionLossTest, CloseIsSeenByThePeerAndDoesNoHarmTwice) {
    connection.Close();
    connection.Close();
    EXPECT_TRUE(peer.SeesTheEnd());
    EXPECT_TRUE(connection.Send(MessageOfSize(5)));
}

TEST_F(FileDescriptorServiceConnectionLossTest, CloseEndsASendThatIsBlocked) {
    std::atomic<long> id{0};
    std::thread sending([&] {
        id.store(Tests::ThisThread());
        EXPECT_TRUE(connection.Send(MessageOfSize(limit)));
    });
    while (id.load() == 0) {
        std::this_thread::yield();
    }
    Tests::WaitUntilBlockedIn(id.load(), SYS_sendmsg);
    connection.Close();
    sending.join();
    EXPECT_EQ(TextOfReceive(), "Connection closed");
}

TEST_F(FileDescriptorServiceConnectionLossTest, PeerGoneTellsWithoutReading) {
    EXPECT_FALSE(connection.PeerGone());
    peer.Write(Frame(MessageOfSize(5)));
    EXPECT_FALSE(connection.PeerGone());
    peer.FinishWriting();
    EXPECT_TRUE(connection.PeerGone());
    EXPECT_TRUE(connection.Receive(received));
    EXPECT_EQ(received.value(), MessageOfSize(5).value());
}

TEST_F(FileDescriptorServiceConnectionLossTest, PeerGoneIsTrueAfterThePeerClosed) {
    peer.Close();
    EXPECT_TRUE(connection.PeerGone());
}

// --- what must not end a connection

TEST_F(FileDescriptorServiceConnectionLossTest, SignalsDoNotEndAReceive) {
    const InterruptingSignal interrupting(SIGUSR1);
    const std::string frame = Frame(MessageOfSize(200'000));
    Receiving receiving(*this);
    for (const std::size_t at : {std::size_t{0}, std::size_t{1}, std::size_t{70'000}}) {
        peer.Write(frame.substr(at, at == 0 ? 1 : at == 1 ? 69'999 : 130'003));
        for (int i = 1; at < 70'000 && i <= 5; ++i) {
            InterruptingSignal::Send(receiving.Handle(), receiving.Id(), SYS_recvfrom);
        }
    }
    EXPECT_EQ(receiving.Join(), "");
    EXPECT_TRUE(received.value() == MessageOfSize(200'000).value());
    EXPECT_EQ(InterruptingSignal::count.load(), 10);
}

TEST_F(FileDescriptorServiceConnectionLossTest, SignalsDoNotEndALargeSend) {
    const InterruptingSignal interrupting(SIGUSR1);
    const pthread_t sender = ::pthread_self();
    const long id = Tests::ThisThread();
    const std::string frame = Frame(MessageOfSize(limit));
    std::string bytes;
    std::thread reading([&] {
        for (std::size_t part = 0; part < 4; ++part) {
            // The first ends a call that has sent something, the second one that has not.
            InterruptingSignal::Send(sender, id, SYS_sendmsg);
            InterruptingSignal::Send(sender, id, SYS_sendmsg);
            bytes += peer.Read(100'000);
        }
        bytes += peer.Read(frame.size() - bytes.size());
    });
    EXPECT_TRUE(connection.Send(MessageOfSize(limit)));
    reading.join();
    EXPECT_TRUE(bytes == frame);
    EXPECT_EQ(InterruptingSignal::count.load(), 8);
}

TEST_F(FileDescriptorServiceConnectionLossTest, SignalsDoNotEndASmallSend) {
    const InterruptingSignal interrupting(SIGUSR1);
    const pthread_t sender = ::pthread_self();
    const long id = Tests::ThisThread();
    const std::string frame = Frame(MessageOfSize(200));
    constexpr std::size_t count = 10'000;  // more than the system holds for a reader
    std::string bytes;
    std::thread reading([&] {
        InterruptingSignal::Send(sender, id, SYS_sendto);
        InterruptingSignal::Send(sender, id, SYS_sendmsg);
        bytes = peer.Read(count * frame.size());
    });
    for (std::size_t i = 0; i < count; ++i) {
        EXPECT_TRUE(connection.Send(MessageOfSize(200)));
    }
    reading.join();
    std::string expected;
    for (std::size_t i = 0; i < count; ++i) {
        expected += frame;
    }
    EXPECT_TRUE(bytes == expected);
}

TEST_F(FileDescriptorServiceConnectionLossTest,
       ADescriptorMadeNonBlockingBehindOurBackStillReceives) {
    ASSERT_EQ(::fcntl(descriptor, F_SETFL, O_NONBLOCK), 0);
    const std::string frame = Frame(MessageOfSize(200'000));
    Receiving receiving(*this);
    receiving.WaitUntilBlocked(SYS_poll);
    peer.Write(frame.substr(0, 100'000));
    receiving.WaitUntilBlocked(SYS_poll);
    peer.Write(frame.substr(100'000));
    EXPECT_EQ(receiving.Join(), "");
    EXPECT_TRUE(received.value() == MessageOfSize(200'000).value());
}

TEST_F(FileDescriptorServiceConnectionLossTest, ADescriptorMadeNonBlockingBehindOurBackStillSends) {
    ASSERT_EQ(::fcntl(descriptor, F_SETFL, O_NONBLOCK), 0);
    const long id = Tests::ThisThread();
    const std::string frame = Frame(MessageOfSize(limit));
    std::string bytes;
    std::thread reading([&] {
        Tests::WaitUntilBlockedIn(id, SYS_poll);
        bytes = peer.Read(frame.size());
    });
    EXPECT_TRUE(connection.Send(MessageOfSize(limit)));
    reading.join();
    EXPECT_TRUE(bytes == frame);
}

TEST_F(FileDescriptorServiceConnectionLossTest, OneThreadSendsWhileAnotherReceives) {
    constexpr int rounds = 50;
    FileDescriptorServiceConnection other(Descriptor(::dup(peer.Get())).Take(), limit, governor);
    const auto sendAll = [](FileDescriptorServiceConnection& from) {
        for (int i = 0; i < rounds; ++i) {
            EXPECT_TRUE(from.Send(MessageOfSize(i % 5 == 0 ? 300'000 : 200)));
        }
    };
    const auto receiveAll = [](FileDescriptorServiceConnection& to) {
        BytesValue message;
        for (int i = 0; i < rounds; ++i) {
            EXPECT_TRUE(to.Receive(message));
            EXPECT_EQ(message.ByteSizeLong(), i % 5 == 0 ? 300'000U : 200U);
        }
    };
    std::thread near([&] { sendAll(connection); });
    std::thread far([&] { sendAll(other); });
    std::thread answers([&] { receiveAll(other); });
    receiveAll(connection);
    near.join();
    far.join();
    answers.join();
}

// A process that sends back whatever it reads.
class EchoProcess {
  public:
    explicit EchoProcess(SocketPair& pair) : process(::fork()) {
        if (process == 0) {
            pair.near.Close();
            std::vector<char> bytes(65536);
            for (;;) {
                const ssize_t count = ::recv(pair.far.Get(), bytes.data(), bytes.size(), 0);
                if (count <= 0 ||
                    !pair.far.TryWrite({bytes.data(), static_cast<std::size_t>(count)})) {
                    ::_exit(0);
                }
            }
        }
        pair.far.Close();
    }
    ~EchoProcess() {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }
    EchoProcess(const EchoProcess&) = delete;
    EchoProcess& operator=(const EchoProcess&) = delete;

    void Stop() const {
        int status = 0;
        ::kill(process, SIGSTOP);
        ASSERT_EQ(::waitpid(process, &status, WUNTRACED), process);
        ASSERT_TRUE(WIFSTOPPED(status));
    }
    void Continue() const { ::kill(process, SIGCONT); }
    void Kill() const { ::kill(process, SIGKILL); }

  private:
    pid_t process;
};

class StoppedPeerTest : public ::testing::Test {
  protected:
    static constexpr std::size_t large = 900'000;
    SocketPair pair;
    EchoProcess echo{pair};
    FileDescriptorServiceConnection connection{pair.near.Take()};
    BytesValue received;
};

TEST_F(StoppedPeerTest, AMessageWaitsForAPeerThatIsStoppedAndIsWhole) {
    echo.Stop();
    std::atomic<long> id{0};
    std::thread sending([&] {
        id.store(Tests::ThisThread());
        EXPECT_TRUE(connection.Send(MessageOfSize(large)));
    });
    while (id.load() == 0) {
        std::this_thread::yield();
    }
    Tests::WaitUntilBlockedIn(id.load(), SYS_sendmsg);
    echo.Continue();
    EXPECT_TRUE(connection.Receive(received));
    sending.join();
    EXPECT_TRUE(received.value() == MessageOfSize(large).value());
}

TEST_F(StoppedPeerTest, AReceiveWaitsForAPeerThatIsStopped) {
    echo.Stop();
    EXPECT_TRUE(connection.Send(MessageOfSize(100)));
    const long id = Tests::ThisThread();
    std::thread continuing([&] {
        Tests::WaitUntilBlockedIn(id, SYS_recvfrom);
        echo.Continue();
    });
    EXPECT_TRUE(connection.Receive(received));
    continuing.join();
    EXPECT_EQ(received.value(), MessageOfSize(100).value());
}

TEST_F(StoppedPeerTest, AStoppedPeerThatIsKilledIsALostConnection) {
    echo.Stop();
    const long id = Tests::ThisThread();
    std::thread killing([&] {
        Tests::WaitUntilBlockedIn(id, SYS_recvfrom);
        echo.Kill();
    });
    EXPECT_THROW(connection.Receive(received), SocketDisconnected);
    killing.join();
}

// --- TCP

class ResetTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        auto* any = reinterpret_cast<sockaddr*>(&address);
        ASSERT_EQ(::bind(listener.Get(), any, size), 0);
        ASSERT_EQ(::listen(listener.Get(), 1), 0);
        ASSERT_EQ(::getsockname(listener.Get(), any, &size), 0);
        near = Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(::connect(near.Get(), any, size), 0);
        peer = RawPeer(Descriptor(::accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
    }
    // Closing then sends a reset instead of an end.
    void Reset() {
        const linger none{1, 0};
        ASSERT_EQ(::setsockopt(peer.Get(), SOL_SOCKET, SO_LINGER, &none, sizeof(none)), 0);
        peer.Close();
    }
    Descriptor near;
    RawPeer peer{Descriptor()};
    BytesValue received;
};

TEST_F(ResetTest, AResetIsReportedByAReceiveThatIsBlockedAndStays) {
    FileDescriptorServiceConnection connection(near.Take());
    const long id = Tests::ThisThread();
    std::thread resetting([&] {
        Tests::WaitUntilBlockedIn(id, SYS_recvfrom);
        Reset();
    });
    const auto receive = [&] { connection.Receive(received); };
    EXPECT_EQ(TextOf<SocketDisconnected>(receive), "Connection lost: Connection reset by peer");
    resetting.join();
    EXPECT_EQ(TextOf<SocketDisconnected>(receive), "Connection lost: Connection reset by peer");
    EXPECT_TRUE(connection.PeerGone());
}

TEST_F(ResetTest, AResetInTheMiddleOfALargeMessageIsReported) {
    FileDescriptorServiceConnection connection(near.Take());
    const long id = Tests::ThisThread();
    std::thread resetting([&] {
        peer.Write(Frame(MessageOfSize(800'000)).substr(0, 300'000));
        Tests::WaitUntilBlockedIn(id, SYS_recvfrom);
        Reset();
    });
    const std::string text = TextOf<SocketDisconnected>([&] { connection.Receive(received); });
    resetting.join();
    EXPECT_TRUE(text.starts_with("Connection lost: Connection reset by peer after ")) << text;
    EXPECT_TRUE(text.ends_with(" of 800000 bytes of a message")) << text;
    EXPECT_EQ(received.value(), "");
}

TEST_F(ResetTest, AResetIsNotReportedBySendButByTheNextReceive) {
    FileDescriptorServiceConnection connection(near.Take());
    Reset();
    EXPECT_TRUE(connection.Send(MessageOfSize(100)));
    EXPECT_TRUE(connection.Send(MessageOfSize(100)));
    EXPECT_EQ(TextOf<SocketDisconnected>([&] { connection.Receive(received); }),
              "Connection lost: Connection reset by peer");
}

}  // namespace
}  // namespace Brantel::Services
