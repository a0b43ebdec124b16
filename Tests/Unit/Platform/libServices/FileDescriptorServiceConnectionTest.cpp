// What stands on the wire, and how messages are found again in whatever pieces they come.
#include "ConnectionFixture.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/MessageNotSendable.h>

#include <google/protobuf/any.pb.h>

#include <fcntl.h>
#include <netinet/in.h>

#include <algorithm>
#include <random>
#include <vector>

namespace Brantel::Services {
namespace {

using google::protobuf::FileDescriptorProto;
using Tests::Frame;
using Tests::FrameOf;
using Tests::MessageOfSize;
using Tests::SocketPair;

// Around every size at which something changes: the length's own size, the block that is referenced
// instead of copied, the sending scratch, the receiving buffer, what a socket takes at once.
std::vector<std::size_t> InterestingSizes() {
    std::vector<std::size_t> sizes{0, 3, 100, 127, 128, 4095, 4096, 4097, 65536, 200'000, 900'000};
    for (std::size_t size = 16376; size <= 16385; ++size) {
        sizes.push_back(size);
    }
    for (std::size_t size = 49146; size <= 49158; ++size) {
        sizes.push_back(size);
    }
    return sizes;
}

// Fields of all lengths side by side: small ones in runs, large ones alone, in rows and nested.
FileDescriptorProto ManyFields(std::uint32_t seed) {
    std::mt19937 random(seed);
    FileDescriptorProto message;
    for (int i = 0; i < 200; ++i) {
        const std::size_t length = random() % 4 == 0 ? random() % 9000 : random() % 200;
        const std::string text(length, static_cast<char>('a' + i % 26));
        message.add_dependency(text);
        auto* part = message.add_message_type();
        part->set_name(text.substr(0, length / 2));
        part->add_field()->set_number(i);
        part->mutable_field(0)->set_default_value(text);
    }
    return message;
}

class FileDescriptorServiceConnectionTest : public ConnectionFixture {
  protected:
    // What the peer reads of a message that is being sent.
    std::string Sent(const google::protobuf::Message& message, std::size_t size) {
        std::string bytes;
        std::thread reading([&] { bytes = peer.Read(size); });
        EXPECT_TRUE(connection.Send(message));
        reading.join();
        return bytes;
    }
    void ReceiveFrom(const std::vector<std::string>& pieces) {
        std::thread writing([&] {
            for (const std::string& piece : pieces) {
                peer.WritePiece(piece);
            }
        });
        EXPECT_TRUE(connection.Receive(received));
        writing.join();
    }
    void ExpectInStep() {
        peer.Write(Frame(MessageOfSize(7)));
        ASSERT_TRUE(connection.Receive(received));
        EXPECT_EQ(received.value(), MessageOfSize(7).value());
    }
};

// --- what is written

TEST_F(FileDescriptorServiceConnectionTest, SendWritesTheLengthAndTheBytes) {
    BytesValue message;
    message.set_value("abc");
    EXPECT_TRUE(connection.Send(message));
    EXPECT_EQ(peer.Read(6),
              "\x05\x0A\x03"
              "abc");
    EXPECT_FALSE(peer.HasInput());
}

TEST_F(FileDescriptorServiceConnectionTest, AnEmptyMessageIsOneZeroByte) {
    EXPECT_TRUE(connection.Send(BytesValue()));
    EXPECT_EQ(peer.Read(1), std::string(1, '\0'));
    EXPECT_FALSE(peer.HasInput());
}

TEST_F(FileDescriptorServiceConnectionTest, TheLengthTakesTwoBytesFrom128) {
    EXPECT_TRUE(connection.Send(MessageOfSize(127)));
    EXPECT_EQ(peer.Read(128).substr(0, 3), "\x7F\x0A\x7D");
    EXPECT_TRUE(connection.Send(MessageOfSize(128)));
    EXPECT_EQ(peer.Read(130).substr(0, 4), "\x80\x01\x0A\x7E");
}

TEST_F(FileDescriptorServiceConnectionTest, SendsEverySizeAsProtobufWritesIt) {
    for (const std::size_t size : InterestingSizes()) {
        const BytesValue message = MessageOfSize(size);
        ASSERT_EQ(message.ByteSizeLong(), size);
        const std::string expected = Frame(message);
        EXPECT_TRUE(Sent(message, expected.size()) == expected) << size << " bytes";
        EXPECT_FALSE(peer.HasInput()) << size << " bytes";
    }
}

TEST_F(FileDescriptorServiceConnectionTest, SendsMixedFieldsAsProtobufWritesThem) {
    for (std::uint32_t seed = 0; seed < 10; ++seed) {
        const FileDescriptorProto message = ManyFields(seed);
        ASSERT_GT(message.ByteSizeLong(), 200'000U);
        const std::string expected = Frame(message);
        EXPECT_TRUE(Sent(message, expected.size()) == expected) << "seed " << seed;
    }
}

TEST_F(FileDescriptorServiceConnectionTest, SendsHundredsOfLargeFieldsInOneMessage) {
    FileDescriptorProto message;
    for (int i = 0; i < 200; ++i) {
        message.add_dependency(std::string(4600, static_cast<char>('A' + i % 26)));
    }
    const std::string expected = Frame(message);
    EXPECT_TRUE(Sent(message, expected.size()) == expected);
}

TEST_F(FileDescriptorServiceConnectionTest, SendLeavesTheMessageAsItWas) {
    const FileDescriptorProto message = ManyFields(1);
    const std::string before = message.SerializeAsString();
    Sent(message, Frame(message).size());
    EXPECT_TRUE(message.SerializeAsString() == before);
}

// --- what is refused

TEST_F(FileDescriptorServiceConnectionTest, AMessageOfExactlyTheLimitIsSent) {
    const std::string expected = Frame(MessageOfSize(limit));
    EXPECT_TRUE(Sent(MessageOfSize(limit), expected.size()) == expected);
}

TEST_F(FileDescriptorServiceConnectionTest, AMessageOverTheLimitIsRefusedAndNothingWritten) {
    EXPECT_EQ(TextOf<MessageNotSendable>([&] { connection.Send(MessageOfSize(limit + 1)); }),
              "Message of 1000001 bytes is over the limit of 1000000 bytes");
    EXPECT_FALSE(peer.HasInput());
    EXPECT_TRUE(connection.Send(MessageOfSize(7)));
    EXPECT_EQ(peer.Read(8), Frame(MessageOfSize(7)));
    ExpectInStep();
}

TEST_F(FileDescriptorServiceConnectionTest, TheLimitIs256MiBUnlessSaid) {
    SocketPair pair;
    FileDescriptorServiceConnection unlimited(pair.near.Take());
    EXPECT_EQ(unlimited.MessageLimit(), std::size_t{256} * 1024 * 1024);
    EXPECT_EQ(TextOf<std::runtime_error>([&] { unlimited.Send(MessageOfSize(300'000'000)); }),
              "Message of 300000000 bytes is over the limit of 268435456 bytes");
    EXPECT_FALSE(pair.far.HasInput());
}

TEST_F(FileDescriptorServiceConnectionTest, MissingRequiredFieldsAreNamedAndNothingWritten) {
    UninterpretedOption message;
    message.add_name()->set_name_part("part");
    EXPECT_EQ(TextOf<MessageNotSendable>([&] { connection.Send(message); }),
              "Message google.protobuf.UninterpretedOption lacks required fields: "
              "name[0].is_extension");
    EXPECT_FALSE(peer.HasInput());
    EXPECT_TRUE(connection.Send(MessageOfSize(7)));
    EXPECT_EQ(peer.Read(8), Frame(MessageOfSize(7)));
}

// --- what is received

TEST_F(FileDescriptorServiceConnectionTest, ReceivesEverySize) {
    for (const std::size_t size : InterestingSizes()) {
        ReceiveFrom({Frame(MessageOfSize(size))});
        EXPECT_TRUE(received.value() == MessageOfSize(size).value()) << size << " bytes";
    }
}

TEST_F(FileDescriptorServiceConnectionTest, ReceivesAMessageOfExactlyTheLimit) {
    ReceiveFrom({Frame(MessageOfSize(limit))});
    EXPECT_TRUE(received.value() == MessageOfSize(limit).value());
}

TEST_F(FileDescriptorServiceConnectionTest, ReceivesAFrameCutAtEveryByte) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{5}, std::size_t{300}}) {
        const std::string frame = Frame(MessageOfSize(size));
        for (std::size_t cut = 1; cut < frame.size(); ++cut) {
            ReceiveFrom({frame.substr(0, cut), frame.substr(cut)});
            EXPECT_EQ(received.value(), MessageOfSize(size).value()) << "cut at " << cut;
        }
    }
}

TEST_F(FileDescriptorServiceConnectionTest, ReceivesAFrameByteByByte) {
    const std::string frame = Frame(MessageOfSize(300));
    std::vector<std::string> pieces;
    for (const char byte : frame) {
        pieces.emplace_back(1, byte);
    }
    ReceiveFrom(pieces);
    EXPECT_EQ(received.value(), MessageOfSize(300).value());
}

TEST_F(FileDescriptorServiceConnectionTest, ReceivesSeveralFramesInOnePiece) {
    peer.WritePiece(Frame(MessageOfSize(3)) + Frame(BytesValue()) + Frame(MessageOfSize(40'000)) +
                    Frame(MessageOfSize(60'000)) + Frame(MessageOfSize(9)));
    for (const std::size_t size : {3, 0, 40'000, 60'000, 9}) {
        ASSERT_TRUE(connection.Receive(received));
        EXPECT_TRUE(received.value() == MessageOfSize(size).value()) << size << " bytes";
    }
}

TEST_F(FileDescriptorServiceConnectionTest, ReceivesALargeMessageInRandomPieces) {
    for (std::uint32_t seed = 0; seed < 20; ++seed) {
        std::mt19937 random(seed);
        const FileDescriptorProto message = ManyFields(seed);
        const std::string frame = Frame(message) + Frame(MessageOfSize(11));
        std::thread writing([&] {
            for (std::size_t at = 0; at < frame.size();) {
                const std::size_t longest = random() % 3 == 0 ? 60'000 : 900;
                const std::string piece = frame.substr(at, 1 + random() % longest);
                peer.WritePiece(piece);
                at += piece.size();
            }
        });
        FileDescriptorProto whole;
        EXPECT_TRUE(connection.Receive(whole));
        EXPECT_TRUE(whole.SerializeAsString() == message.SerializeAsString()) << "seed " << seed;
        EXPECT_TRUE(connection.Receive(received));
        EXPECT_EQ(received.value(), MessageOfSize(11).value()) << "seed " << seed;
        writing.join();
    }
}

TEST_F(FileDescriptorServiceConnectionTest, ReceiveReplacesFormerContents) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{60}, std::size_t{60'000}}) {
        google::protobuf::Any any;
        any.set_type_url("former");
        any.set_value("former");
        google::protobuf::Any next;
        next.set_value(std::string(size, 'n'));
        peer.Write(Frame(next));
        ASSERT_TRUE(connection.Receive(any));
        EXPECT_EQ(any.type_url(), "");
        EXPECT_TRUE(any.value() == next.value()) << size << " bytes";
    }
}

TEST_F(FileDescriptorServiceConnectionTest, ALengthWithNeedlessBytesIsALength) {
    peer.Write(std::string("\x85\x80\x00\x0A\x03", 5) + "abc");
    ASSERT_TRUE(connection.Receive(received));
    EXPECT_EQ(received.value(), "abc");
    ExpectInStep();
}

// --- whole frames that are no valid message

TEST_F(FileDescriptorServiceConnectionTest, AFrameOfGarbageIsReportedAndLeavesTheStreamInStep) {
    for (const std::size_t size : {std::size_t{5}, std::size_t{49'152}, std::size_t{120'000}}) {
        received.set_value("former");
        std::thread writing([&] { peer.Write(FrameOf(std::string(size, '\xFF'))); });
        EXPECT_EQ(TextOfRefusal(received), "Received " + std::to_string(size) +
                                               " bytes that are not a google.protobuf.BytesValue");
        writing.join();
        EXPECT_EQ(received.value(), "");
        ExpectInStep();
    }
}

TEST_F(FileDescriptorServiceConnectionTest, GarbageAfterALargeFieldClearsTheMessage) {
    std::string bytes = MessageOfSize(90'000).SerializeAsString();
    bytes += '\xFF';
    std::thread writing([&] { peer.Write(FrameOf(bytes)); });
    EXPECT_EQ(TextOfRefusal(received),
              "Received 90001 bytes that are not a google.protobuf.BytesValue");
    writing.join();
    EXPECT_EQ(received.value(), "");
    ExpectInStep();
}

TEST_F(FileDescriptorServiceConnectionTest, AFrameWithoutRequiredFieldsLeavesTheStreamInStep) {
    for (const std::size_t size : {std::size_t{4}, std::size_t{100'000}}) {
        UninterpretedOption lacking;
        lacking.add_name()->set_is_extension(true);
        lacking.set_string_value(std::string(size, 's'));
        UninterpretedOption message;
        message.set_identifier_value("former");
        std::thread writing([&] { peer.Write(FrameOf(lacking.SerializePartialAsString())); });
        EXPECT_EQ(TextOfRefusal(message),
                  "Received a google.protobuf.UninterpretedOption that lacks required fields: "
                  "name[0].name_part");
        writing.join();
        EXPECT_EQ(message.ByteSizeLong(), 0U);
        ExpectInStep();
    }
}

TEST_F(FileDescriptorServiceConnectionTest, ALargeTextThatIsNotUtf8IsRefusedAsASmallOneIs) {
    for (const std::size_t size : {std::size_t{20}, std::size_t{100'000}}) {
        google::protobuf::Any any;
        std::string bytes = "\x0A" + Tests::Varint(size) + std::string(size, '\xC0');
        std::thread writing([&] { peer.Write(FrameOf(bytes)); });
        EXPECT_EQ(TextOfRefusal(any), "Received " + std::to_string(bytes.size()) +
                                          " bytes that are not a google.protobuf.Any");
        writing.join();
        ExpectInStep();
    }
}

// --- construction

TEST_F(FileDescriptorServiceConnectionTest, TheDescriptorBecomesBlockingAndCloseOnExec) {
    SocketPair pair;
    ASSERT_EQ(::fcntl(pair.near.Get(), F_SETFL, O_NONBLOCK), 0);
    ASSERT_EQ(::fcntl(pair.near.Get(), F_SETFD, 0), 0);
    const int fd = pair.near.Take();
    const FileDescriptorServiceConnection prepared(fd);
    EXPECT_EQ(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
}

TEST_F(FileDescriptorServiceConnectionTest, ALimitOutsideTheRangeIsRefusedAndTheDescriptorClosed) {
    for (const std::size_t wrong : {std::size_t{0}, std::size_t{2'147'483'648}}) {
        SocketPair pair;
        EXPECT_EQ(
            TextOf<std::invalid_argument>(
                [&] { const FileDescriptorServiceConnection refused(pair.near.Take(), wrong); }),
            "Message limit of " + std::to_string(wrong) + " bytes is not between 1 and 2147483647");
        EXPECT_TRUE(pair.far.SeesTheEnd());
    }
}

TEST_F(FileDescriptorServiceConnectionTest, TheLowestAndTheHighestLimitAreTaken) {
    SocketPair pair;
    FileDescriptorServiceConnection lowest(pair.near.Take(), 1);
    EXPECT_TRUE(lowest.Send(BytesValue()));
    EXPECT_THROW(lowest.Send(MessageOfSize(3)), MessageNotSendable);
    SocketPair other;
    FileDescriptorServiceConnection highest(other.near.Take(), 2'147'483'647);
    other.far.Write(Frame(MessageOfSize(100)));
    EXPECT_TRUE(highest.Receive(received));
}

TEST_F(FileDescriptorServiceConnectionTest, ADescriptorThatIsNotOneIsRefused) {
    const std::string text =
        TextOf<std::system_error>([] { const FileDescriptorServiceConnection refused(-1); });
    EXPECT_EQ(text, "Could not use descriptor -1: Bad file descriptor");
}

TEST_F(FileDescriptorServiceConnectionTest, TheDestructorClosesTheDescriptor) {
    SocketPair pair;
    { const FileDescriptorServiceConnection shortLived(pair.near.Take()); }
    EXPECT_TRUE(pair.far.SeesTheEnd());
}

}  // namespace
}  // namespace Brantel::Services
