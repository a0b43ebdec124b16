// What the other side of a connection may take: time, elements, depth, room.
#include "ConnectionFixture.h"
#include "Support/Waiting.h"

#include <libServices/ArrivalRoom.h>
#include <libServices/LimitCounts.h>
#include <libServices/MessageRefused.h>

#include <google/protobuf/struct.pb.h>

#include <sys/socket.h>

#include <chrono>
#include <string>
#include <thread>

namespace Brantel::Services {
namespace {

using google::protobuf::FileDescriptorProto;
using std::chrono::milliseconds;
using Tests::Frame;
using Tests::FrameOf;
using Tests::MessageOfSize;

class FileDescriptorServiceConnectionLimitsTest : public ConnectionFixture {
  protected:
    static constexpr std::size_t slow = 10'000;
    static constexpr std::uint64_t roomSize = 200'000;

    // The room ends before the connection.
    void TearDown() override { connection.GiveRoomBack(); }

    void Limit(std::uint64_t bytesPerSecond, milliseconds grace) {
        limits.bytesPerSecond = bytesPerSecond;
        limits.grace = grace;
        connection.SetLimits(limits, &room, &counts);
    }
    void LimitElements(std::size_t elements, int depth) {
        limits.elements = elements;
        limits.depth = depth;
        connection.SetLimits(limits, &room, &counts);
    }
    // Nested groups that no type knows.
    static std::string Groups(int depth) {
        std::string bytes;
        for (int i = 0; i < depth; ++i) {
            bytes = "\xA3\x06" + bytes + "\xA4\x06";
        }
        return bytes;
    }
    std::string TextOfRefused(google::protobuf::Message& message) {
        return TextOf<MessageRefused>([&] { connection.Receive(message); });
    }
    // Another message has so much of the room.
    void KeepRoom(std::uint64_t bytes) {
        bool waited = false;
        room.Enter(other, bytes);
        EXPECT_TRUE(room.Take(
            other, bytes, [] { return true; }, waited));
    }
    void ExpectInStep() {
        peer.Write(Frame(MessageOfSize(20)));
        EXPECT_TRUE(connection.Receive(received));
        EXPECT_EQ(received.ByteSizeLong(), 20U);
    }

    ArrivalRoom room{roomSize};
    ArrivingMessage other;
    LimitCounts counts;
    ConnectionLimits limits;
    FileDescriptorProto file;
};

// --- how fast

TEST_F(FileDescriptorServiceConnectionLimitsTest, AMessageThatStopsInTheMiddleEndsTheConnection) {
    Limit(slow, milliseconds(50));
    peer.Write(Frame(MessageOfSize(5000)).substr(0, 100));
    EXPECT_EQ(TextOfReceive(),
              "Connection lost: slower than 10000 bytes a second after 98 of 5000 bytes of a "
              "message");
    EXPECT_EQ(counts.slowMessages, 1U);
    EXPECT_TRUE(peer.SeesTheEnd());
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, ALargeMessageThatStopsEndsTheConnection) {
    Limit(slow, milliseconds(50));
    peer.Write(Frame(MessageOfSize(150'000)).substr(0, 100'003));
    EXPECT_EQ(TextOfReceive(),
              "Connection lost: slower than 10000 bytes a second after 100000 of 150000 bytes of a "
              "message");
    EXPECT_EQ(counts.slowMessages, 1U);
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, ALengthThatStopsEndsTheConnection) {
    Limit(slow, milliseconds(50));
    peer.Write("\x80");
    EXPECT_EQ(TextOfReceive(),
              "Connection lost: slower than 10000 bytes a second after 1 byte of a message's "
              "length");
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, AMessageThatDripsEndsTheConnection) {
    Limit(slow, milliseconds(50));
    const std::string frame = Frame(MessageOfSize(5000));
    std::thread dripping([&] {
        std::size_t sent = 0;
        while (peer.TryWrite(frame.substr(sent++, 1))) {
            std::this_thread::sleep_for(milliseconds(2));
        }
    });
    EXPECT_NE(TextOfReceive().find("Connection lost: slower than 10000 bytes a second after "),
              std::string::npos);
    dripping.join();
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, ASlowMessageThatKeepsThePaceArrives) {
    Limit(1000, milliseconds(100));
    const std::string frame = Frame(MessageOfSize(20'000));
    std::thread writing([&] {
        for (std::size_t sent = 0; sent < frame.size(); sent += 1000) {
            peer.Write(frame.substr(sent, 1000));
            std::this_thread::sleep_for(milliseconds(20));
        }
    });
    EXPECT_TRUE(connection.Receive(received));
    writing.join();
    EXPECT_EQ(received.ByteSizeLong(), 20'000U);
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, BetweenTwoMessagesItMayBeSilent) {
    Limit(slow, milliseconds(20));
    Receiving receiving(*this);
    receiving.WaitUntilBlocked(SYS_poll);
    std::this_thread::sleep_for(milliseconds(60));
    peer.Write(Frame(MessageOfSize(20)));
    EXPECT_EQ(receiving.Join(), "");
    EXPECT_EQ(received.ByteSizeLong(), 20U);
    EXPECT_EQ(counts.slowMessages, 0U);
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, APeerThatTakesNothingLosesTheConnection) {
    Limit(slow, milliseconds(50));
    for (const std::size_t size : {10'000, 500'000}) {
        Tests::SocketPair pair;
        FileDescriptorServiceConnection sending(pair.near.Take(), limit, governor);
        sending.SetLimits(limits, nullptr, &counts);
        const auto before = counts.slowReceivers.load();
        while (counts.slowReceivers == before) {
            EXPECT_TRUE(sending.Send(MessageOfSize(size)));
        }
        EXPECT_EQ(TextOf<SocketDisconnected>([&] { sending.Receive(received); }),
                  "Connection lost: the other side takes less than 10000 bytes a second");
    }
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, APeerThatTakesSlowlyButKeepsThePaceGetsAll) {
    Limit(1000, milliseconds(100));
    std::string bytes;
    const std::string frame = Frame(MessageOfSize(900'000));
    std::thread reading([&] {
        while (bytes.size() < frame.size()) {
            bytes += peer.Read(std::min<std::size_t>(50'000, frame.size() - bytes.size()));
            std::this_thread::sleep_for(milliseconds(20));
        }
    });
    EXPECT_TRUE(connection.Send(MessageOfSize(900'000)));
    reading.join();
    EXPECT_EQ(bytes, frame);
    EXPECT_EQ(counts.slowReceivers, 0U);
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, WithoutLimitsNothingIsTooSlow) {
    Receiving receiving(*this);
    peer.Write(Frame(MessageOfSize(5000)).substr(0, 100));
    receiving.WaitUntilBlocked();
    peer.Write(Frame(MessageOfSize(5000)).substr(100));
    EXPECT_EQ(receiving.Join(), "");
}

// --- how much

TEST_F(FileDescriptorServiceConnectionLimitsTest, TooManyElementsAreRefusedAndTheNextIsReceived) {
    constexpr int most = 40'000;
    LimitElements(most, 8);
    for (int i = 0; i < most; ++i) {
        file.add_dependency();
    }
    std::thread writing([this] {
        peer.Write(Frame(file));
        file.add_dependency();
        peer.Write(Frame(file));
    });
    FileDescriptorProto got;
    EXPECT_TRUE(connection.Receive(got));
    EXPECT_EQ(got.dependency_size(), most);
    EXPECT_EQ(TextOfRefused(got),
              "Message of 80002 bytes holds more elements than the limit of 40000");
    writing.join();
    EXPECT_EQ(got.ByteSizeLong(), 0U);
    EXPECT_EQ(counts.refusedMessages, 1U);
    ExpectInStep();
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, TooManyElementsInAGroupAreRefused) {
    LimitElements(40'000, 8);
    std::string group = "\xA3\x06";
    for (int i = 0; i < 40'000; ++i) {
        group += "\x08\x01";
    }
    std::thread writing([&] { peer.Write(FrameOf(group + "\xA4\x06")); });
    EXPECT_EQ(TextOfRefused(file),
              "Message of 80004 bytes holds more elements than the limit of 40000");
    writing.join();
    ExpectInStep();
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, ALongTextOrPartThatIsOneTooManyIsRefused) {
    LimitElements(40'000, 8);
    for (int i = 0; i < 40'000; ++i) {
        file.add_dependency();
    }
    FileDescriptorProto withPart = file;
    file.add_dependency(std::string(100'000, 't'));
    withPart.add_message_type()->set_name(std::string(100'000, 'p'));
    std::thread writing([&] {
        peer.Write(Frame(file));
        peer.Write(Frame(withPart));
    });
    FileDescriptorProto got;
    EXPECT_EQ(TextOfRefused(got),
              "Message of 180004 bytes holds more elements than the limit of 40000");
    EXPECT_EQ(TextOfRefused(got),
              "Message of 180008 bytes holds more elements than the limit of 40000");
    writing.join();
    ExpectInStep();
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, LongPartsThatNestTooDeepAreRefused) {
    LimitElements(40'000, 3);
    auto* part = file.add_message_type();
    part = part->add_nested_type()->add_nested_type();
    part->set_name(std::string(60'000, 'n'));
    const FileDescriptorProto deepest = file;
    part->add_nested_type()->set_name(std::string(60'000, 'n'));
    std::thread writing([&] {
        peer.Write(Frame(deepest));
        peer.Write(Frame(file));
    });
    FileDescriptorProto got;
    EXPECT_TRUE(connection.Receive(got));
    EXPECT_EQ(got.ByteSizeLong(), deepest.ByteSizeLong());
    EXPECT_EQ(TextOfRefused(got), "Message of " + std::to_string(file.ByteSizeLong()) +
                                      " bytes nests deeper than the limit of 3");
    writing.join();
    ExpectInStep();
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, ASmallMessageThatNestsTooDeepIsRefused) {
    LimitElements(40'000, 8);
    peer.Write(FrameOf(Groups(8)));
    EXPECT_TRUE(connection.Receive(received));
    peer.Write(FrameOf(Groups(9)));
    EXPECT_EQ(TextOfRefused(received), "Message of 36 bytes nests deeper than the limit of 8");
    EXPECT_EQ(counts.refusedMessages, 1U);
    ExpectInStep();
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, ALargeMessageThatNestsTooDeepIsRefused) {
    LimitElements(40'000, 8);
    const std::string text = Frame(MessageOfSize(100'000)).substr(3);
    std::thread writing([&] {
        peer.Write(FrameOf(text + Groups(8)));
        peer.Write(FrameOf(text + Groups(9)));
    });
    EXPECT_TRUE(connection.Receive(received));
    EXPECT_EQ(TextOfRefused(received), "Message of 100036 bytes nests deeper than the limit of 8");
    writing.join();
    ExpectInStep();
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, WhatIsNotValidIsNotTakenForARefusal) {
    LimitElements(40'000, 8);
    peer.Write(FrameOf("\x0A\x05"));
    EXPECT_EQ(TextOfRefusal(received),
              "Received 2 bytes that are not a google.protobuf.BytesValue");
    EXPECT_EQ(counts.refusedMessages, 0U);
    ExpectInStep();
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, AMessageOverTheLongestIsCounted) {
    Limit(0, milliseconds(1000));
    peer.Write(Tests::Varint(limit + 1));
    EXPECT_EQ(TextOfReceive(),
              "Connection lost: message of 1000001 bytes is over the limit of 1000000 bytes");
    EXPECT_EQ(counts.oversizedMessages, 1U);
}

// --- how much of all connections together

TEST_F(FileDescriptorServiceConnectionLimitsTest, ALargeMessageTakesRoomUntilTheNextReceive) {
    Limit(0, milliseconds(1000));
    std::thread writing([&] {
        peer.Write(Frame(MessageOfSize(150'000)));
        peer.Write(Frame(MessageOfSize(20)));
    });
    EXPECT_TRUE(connection.Receive(received));
    EXPECT_EQ(room.Taken(), 150'000U);
    EXPECT_TRUE(connection.Receive(received));
    EXPECT_EQ(room.Taken(), 0U);
    writing.join();
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, ASmallMessageTakesNoRoom) {
    Limit(0, milliseconds(1000));
    peer.Write(Frame(MessageOfSize(65'536)));
    EXPECT_TRUE(connection.Receive(received));
    EXPECT_EQ(room.Taken(), 0U);
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, AMessageWaitsForRoomAndIsNotTooSlowForThat) {
    Limit(slow, milliseconds(20));
    KeepRoom(100'000);
    std::thread writing([&] { peer.Write(Frame(MessageOfSize(150'000))); });
    Receiving receiving(*this);
    receiving.WaitUntilBlocked(SYS_futex);
    // Long enough that it has looked more than once whether its connection is still there.
    std::this_thread::sleep_for(milliseconds(350));
    room.Leave(other);
    EXPECT_EQ(receiving.Join(), "");
    writing.join();
    EXPECT_EQ(received.ByteSizeLong(), 150'000U);
    EXPECT_EQ(counts.delayedMessages, 1U);
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, ALostConnectionGivesItsRoomBack) {
    Limit(0, milliseconds(1000));
    {
        Tests::SocketPair pair;
        FileDescriptorServiceConnection lost(pair.near.Take(), limit, governor);
        lost.SetLimits(limits, &room, &counts);
        pair.far.Write(Frame(MessageOfSize(150'000)).substr(0, 1000));
        pair.far.FinishWriting();
        EXPECT_THROW(lost.Receive(received), SocketDisconnected);
        EXPECT_EQ(room.Taken(), 150'000U);
    }
    EXPECT_EQ(room.Taken(), 0U);
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, WhoIsClosedWhileItWaitsForRoomEnds) {
    Limit(0, milliseconds(1000));
    KeepRoom(roomSize);
    peer.Write(Frame(MessageOfSize(150'000)).substr(0, 1000));
    Receiving receiving(*this);
    receiving.WaitUntilBlocked(SYS_futex);
    connection.Close();
    EXPECT_EQ(receiving.Join(), "Connection closed");
    room.Leave(other);
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, WhoGoesWhileItWaitsForRoomIsLost) {
    Limit(0, milliseconds(1000));
    KeepRoom(roomSize);
    peer.Write(Frame(MessageOfSize(150'000)).substr(0, 1000));
    Receiving receiving(*this);
    receiving.WaitUntilBlocked(SYS_futex);
    peer.Close();
    EXPECT_EQ(receiving.Join(),
              "Connection lost while a message waited for room after 997 of "
              "150000 bytes of a message");
    room.Leave(other);
}

TEST_F(FileDescriptorServiceConnectionLimitsTest, TheRoomOfAMessageThatWasFreedIsGivenBackAtOnce) {
    Limit(0, milliseconds(1000));
    std::thread writing([this] { peer.Write(Frame(MessageOfSize(150'000))); });
    EXPECT_TRUE(connection.Receive(received));
    writing.join();
    connection.GiveRoomBack();
    EXPECT_EQ(room.Taken(), 0U);
    ExpectInStep();
}

// --- who keeps room that others wait for

class AwaitedRoomTest : public FileDescriptorServiceConnectionLimitsTest {
  protected:
    // Another message waits for all of the room.
    std::thread WaitForAll() {
        std::thread waiting([this] {
            bool waited = false;
            room.Enter(other, roomSize);
            EXPECT_TRUE(room.Take(
                other, roomSize, [] { return false; }, waited));
            room.Leave(other);
        });
        EXPECT_TRUE(Tests::Eventually([this] { return room.IsAwaited(); }));
        return waiting;
    }
};

TEST_F(AwaitedRoomTest, AMessageThatKeepsThePaceButKeepsRoomFromOthersEndsTheConnection) {
    Limit(1, milliseconds(500));
    peer.Write(Frame(MessageOfSize(150'000)).substr(0, 1000));
    Receiving receiving(*this);
    ASSERT_TRUE(Tests::Eventually([this] { return room.Taken() > 0; }));
    std::thread waiting = WaitForAll();
    EXPECT_EQ(receiving.Join(),
              "Connection lost: slower than 150000 bytes a second while others wait for room after "
              "997 of 150000 bytes of a message");
    EXPECT_EQ(counts.slowMessages, 1U);
    connection.GiveRoomBack();
    waiting.join();
}

TEST_F(AwaitedRoomTest, WhoTakesAnAnswerSlowlyAfterALargeRequestIsLostWhenOthersWait) {
    Limit(1, milliseconds(500));
    std::thread writing([this] { peer.Write(Frame(MessageOfSize(150'000))); });
    EXPECT_TRUE(connection.Receive(received));
    writing.join();
    std::thread waiting = WaitForAll();
    // More than the buffers of the socket hold.
    connection.Send(MessageOfSize(limit));
    EXPECT_EQ(TextOfReceive(),
              "Connection lost: the other side takes less than 150000 bytes a second while others "
              "wait for room");
    EXPECT_EQ(counts.slowReceivers, 1U);
    connection.GiveRoomBack();
    waiting.join();
}

// --- messages that take room in several steps, of about a mebibyte

class WideRoomTest : public FileDescriptorServiceConnectionLimitsTest {
  protected:
    static constexpr std::uint64_t mebibyte = 1U << 20U;

    WideRoomTest() { large.SetLimits(limits, &wide, &counts); }

    // Another message has so much of the room, and needs no more.
    void KeepWide(ArrivingMessage& message, std::uint64_t bytes) {
        bool waited = false;
        wide.Enter(message, bytes);
        EXPECT_TRUE(wide.Take(
            message, bytes, [] { return true; }, waited));
    }
    bool IsAwaited() {
        return Tests::Eventually([this] { return wide.IsAwaited(); });
    }

    ArrivalRoom wide{4 * mebibyte};
    Tests::SocketPair pair;
    FileDescriptorServiceConnection large{pair.near.Take(), 4 * mebibyte, governor};
};

TEST_F(WideRoomTest, AVeryLargeMessageTakesRoomAsItComes) {
    const std::string frame = Frame(MessageOfSize(wide.Size()));
    std::thread receiving([&] { EXPECT_TRUE(large.Receive(received)); });
    pair.far.Write(frame.substr(0, 1000));
    EXPECT_TRUE(Tests::Eventually([&] { return wide.Taken() > 0; }));
    EXPECT_LE(wide.Taken(), wide.Size() / 3);
    pair.far.Write(frame.substr(1000));
    receiving.join();
    EXPECT_EQ(wide.Taken(), wide.Size());
    EXPECT_EQ(received.SerializeAsString(), MessageOfSize(wide.Size()).SerializeAsString());
}

TEST_F(WideRoomTest, AMessageThatWaitsForRoomAgainIsCountedOnce) {
    ArrivingMessage half;
    ArrivingMessage rest;
    KeepWide(half, 2 * mebibyte);
    KeepWide(rest, 2 * mebibyte);
    std::thread writing([&] { pair.far.TryWrite(Frame(MessageOfSize(3 * mebibyte))); });
    std::thread receiving([&] { EXPECT_TRUE(large.Receive(received)); });
    EXPECT_TRUE(IsAwaited());
    EXPECT_EQ(wide.Taken(), wide.Size());
    // Enough for its first step, and not for the second.
    wide.Leave(rest);
    EXPECT_TRUE(IsAwaited());
    EXPECT_GT(wide.Taken(), 3 * mebibyte);
    wide.Leave(half);
    receiving.join();
    writing.join();
    EXPECT_EQ(received.ByteSizeLong(), 3 * mebibyte);
    EXPECT_EQ(counts.delayedMessages, 1U);
}

}  // namespace
}  // namespace Brantel::Services
