// What a connection takes of the memory, and what it does when there is none.
#include "ConnectionFixture.h"
#include "Support/CountedMemory.h"

#include <libServices/FileDescriptorServiceConnection.h>

#include <google/protobuf/descriptor.pb.h>

#include <fstream>

namespace Brantel::Services {
namespace {

using google::protobuf::FileDescriptorProto;
using Tests::CountedMemory;
using Tests::Frame;
using Tests::MessageOfSize;
using Tests::SocketPair;

constexpr std::size_t kibibyte = 1024;
constexpr std::size_t mebibyte = 1024 * kibibyte;
// What the objects themselves take beside the buffers.
constexpr std::size_t objects = kibibyte;

std::size_t ResidentBytes() {
    std::size_t total = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * 4 * kibibyte;
}

// What protobuf does when a type is first used takes memory that stays, and does not survive a lack
// of it.
void UseOnce(const google::protobuf::Message& type) {
    const auto* field = type.GetDescriptor()->field(0);
    EXPECT_EQ(type.GetDescriptor()->FindFieldByNumber(field->number()), field);
    EXPECT_NE(type.DebugString(), "no text");
}

class FileDescriptorServiceConnectionMemoryTest : public ConnectionFixture {
  protected:
    void SetUp() override { UseOnce(received); }
    void TearDown() override { CountedMemory::StopFailing(); }

    // A large message goes through both ways.
    void Exchange(FileDescriptorServiceConnection& used, Tests::RawPeer& with, std::size_t size) {
        const BytesValue message = MessageOfSize(size);
        const std::string frame = Frame(message);
        std::thread answering([&] {
            with.Read(frame.size());
            with.Write(frame);
        });
        EXPECT_TRUE(used.Send(message));
        BytesValue answer;
        EXPECT_TRUE(used.Receive(answer));
        EXPECT_TRUE(answer.value() == message.value());
        answering.join();
    }
};

TEST_F(FileDescriptorServiceConnectionMemoryTest, AConnectionTakesItsBuffersWhenItUsesThem) {
    SocketPair pair;
    const std::size_t before = CountedMemory::Live();
    const FileDescriptorServiceConnection unused(pair.near.Take());
    EXPECT_LE(CountedMemory::Live() - before, objects);
}

TEST_F(FileDescriptorServiceConnectionMemoryTest, AnIdleConnectionKeepsAtMost64KiB) {
    SocketPair pair;
    const std::size_t before = CountedMemory::Live();
    FileDescriptorServiceConnection used(pair.near.Take());
    for (const std::size_t size : {100, 60'000, 5'000'000}) {
        Exchange(used, pair.far, size);
        EXPECT_LE(CountedMemory::Live() - before, 64 * kibibyte + objects);
    }
}

TEST_F(FileDescriptorServiceConnectionMemoryTest, ALargeMessageIsSentWithoutACopyOfIt) {
    const BytesValue message = MessageOfSize(900'000);
    const std::string frame = Frame(message);
    std::string bytes(frame.size(), '\0');
    std::thread reading([&] { bytes = peer.Read(frame.size()); });
    // What the reader takes besides: one more string of that size.
    CountedMemory::ForgetPeak();
    const std::size_t before = CountedMemory::Live();
    EXPECT_TRUE(connection.Send(message));
    reading.join();
    EXPECT_LE(CountedMemory::Peak() - before, 64 * kibibyte + frame.size() + objects);
}

TEST_F(FileDescriptorServiceConnectionMemoryTest, ALengthOverTheLimitTakesNoMemory) {
    peer.Write(Tests::Varint(limit + 1));
    CountedMemory::ForgetPeak();
    const std::size_t before = CountedMemory::Live();
    EXPECT_THROW(connection.Receive(received), SocketDisconnected);
    EXPECT_LE(CountedMemory::Peak() - before, 48 * kibibyte + objects);
}

TEST_F(FileDescriptorServiceConnectionMemoryTest, AnAnnouncedLengthAloneTakesNoMemory) {
    constexpr std::size_t announced = 1024 * mebibyte;
    SocketPair pair;
    FileDescriptorServiceConnection patient(pair.near.Take(), announced, governor);
    CountedMemory::ForgetPeak();
    const std::size_t before = CountedMemory::Live();
    const std::size_t residentBefore = ResidentBytes();
    const long id = Tests::ThisThread();
    std::thread announcing([&] {
        pair.far.Write(Tests::Varint(announced) + "\x0A" + Tests::Varint(announced - 6));
        pair.far.Write(std::string(100'000, 'p'));
        Tests::WaitUntilBlockedIn(id, SYS_recvfrom);
        // Address space is set aside for the first stretch, memory is not.
        EXPECT_LE(CountedMemory::Peak() - before, 17 * mebibyte);
        EXPECT_LE(ResidentBytes() - residentBefore, 4 * mebibyte);
        pair.far.Close();
    });
    EXPECT_THROW(patient.Receive(received), SocketDisconnected);
    announcing.join();
    EXPECT_LE(CountedMemory::Live() - before, 48 * kibibyte + objects);
}

TEST_F(FileDescriptorServiceConnectionMemoryTest,
       AnAnnouncedLengthOfUnknownFieldsTakesNoMemoryEither) {
    constexpr std::size_t announced = 1024 * mebibyte;
    SocketPair pair;
    FileDescriptorServiceConnection patient(pair.near.Take(), announced, governor);
    CountedMemory::ForgetPeak();
    const std::size_t before = CountedMemory::Live();
    const std::size_t residentBefore = ResidentBytes();
    // A group without end, which is gathered whole.
    pair.far.Write(Tests::Varint(announced) + "\x0B" + std::string(100'000, '\x08'));
    pair.far.Close();
    EXPECT_THROW(patient.Receive(received), SocketDisconnected);
    EXPECT_LE(CountedMemory::Peak() - before, 17 * mebibyte);
    EXPECT_LE(ResidentBytes() - residentBefore, 4 * mebibyte);
    EXPECT_LE(CountedMemory::Live() - before, 48 * kibibyte + objects);
}

TEST_F(FileDescriptorServiceConnectionMemoryTest,
       AVeryLargeMessageTakesAtMostThriceItsSizeWhileItComes) {
    constexpr std::size_t size = 40 * mebibyte;
    SocketPair pair;
    FileDescriptorServiceConnection receiver(pair.near.Take());
    const BytesValue message = MessageOfSize(size);
    const std::string head = Tests::Varint(size) + "\x0A" + Tests::Varint(message.value().size());
    std::thread writing([&] {
        pair.far.Write(head);
        pair.far.Write(message.value());
    });
    CountedMemory::ForgetPeak();
    const std::size_t before = CountedMemory::Live();
    EXPECT_TRUE(receiver.Receive(received));
    writing.join();
    EXPECT_LE(CountedMemory::Peak() - before, 3 * size);
    EXPECT_TRUE(received.value() == message.value());
}

TEST_F(FileDescriptorServiceConnectionMemoryTest,
       NoMemoryInTheMiddleOfALargeFrameEndsTheConnection) {
    const std::string frame = Frame(MessageOfSize(400'000));
    std::thread writing([&] { peer.TryWrite(frame); });
    CountedMemory::Fail(100'000);
    EXPECT_EQ(TextOfReceive(), "Connection lost in the middle of a message: std::bad_alloc");
    EXPECT_GT(CountedMemory::StopFailing(), 0U);
    EXPECT_EQ(received.ByteSizeLong(), 0U);
    EXPECT_EQ(TextOfReceive(), "Connection lost in the middle of a message: std::bad_alloc");
    writing.join();
    EXPECT_TRUE(peer.SeesTheEnd());
}

TEST_F(FileDescriptorServiceConnectionMemoryTest, NoMemoryToSendIsReportedAndNothingWritten) {
    CountedMemory::Fail(1000);
    EXPECT_THROW(connection.Send(MessageOfSize(100)), std::bad_alloc);
    EXPECT_GT(CountedMemory::StopFailing(), 0U);
    EXPECT_FALSE(peer.HasInput());
    EXPECT_TRUE(connection.Send(MessageOfSize(100)));
    EXPECT_EQ(peer.Read(101), Frame(MessageOfSize(100)));
}

// Receives the bytes again and again; each time one more allocation succeeds before one, or every
// one, fails. The stream is never out of step afterwards: the next message comes next, or the loss
// is reported.
void FailAtEveryAllocation(const google::protobuf::Message& type, const std::string& frame,
                           std::size_t size, std::size_t failures) {
    constexpr std::size_t next = 9;
    UseOnce(type);
    for (std::size_t after = 0;; ++after) {
        SocketPair pair;
        SpinGovernor governor(std::chrono::nanoseconds(0));
        FileDescriptorServiceConnection connection(pair.near.Take(), 1'000'000, governor);
        const std::unique_ptr<google::protobuf::Message> message(type.New());
        pair.far.Write(frame + Frame(MessageOfSize(next)));
        CountedMemory::Fail(size, after, failures);
        bool reported = false;
        try {
            connection.Receive(*message);
        } catch (const std::exception&) {
            reported = true;
        }
        if (CountedMemory::StopFailing() == 0) {
            EXPECT_GT(after, 1U);
            return;
        }
        ASSERT_TRUE(reported) << "allocation " << after;
        EXPECT_EQ(message->ByteSizeLong(), 0U);
        BytesValue following;
        try {
            connection.Receive(following);
            EXPECT_EQ(following.value(), MessageOfSize(next).value()) << "allocation " << after;
        } catch (const SocketDisconnected&) {
            EXPECT_TRUE(pair.far.SeesTheEnd()) << "allocation " << after;
        }
    }
}

TEST_F(FileDescriptorServiceConnectionMemoryTest,
       TheStreamIsNeverOutOfStepWhicheverAllocationFails) {
    UninterpretedOption lacking;
    lacking.add_name()->set_is_extension(true);
    lacking.set_string_value(std::string(70'000, 's'));
    const std::string lackingFrame = Tests::FrameOf(lacking.SerializePartialAsString());
    for (const std::size_t failures : {std::size_t{1}, SIZE_MAX}) {
        FailAtEveryAllocation(received, Frame(MessageOfSize(100)), 1, failures);
        FailAtEveryAllocation(received, Frame(MessageOfSize(120'000)), 1, failures);
        FailAtEveryAllocation(received, Tests::FrameOf(std::string(100'000, '\xFF')), 1, failures);
        // Without the smallest: protobuf loses an element when the list for it can't grow.
        FailAtEveryAllocation(lacking, lackingFrame, 50, failures);
    }
}

}  // namespace
}  // namespace Brantel::Services
