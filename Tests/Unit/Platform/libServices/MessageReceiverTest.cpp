// The receiver against protobuf's own parser: thousands of random messages, a third of them
// damaged, in random pieces of a socket. BRANTEL_SEED=<number> repeats a run,
// BRANTEL_MESSAGES=<number> makes it longer.
#include "Support/Frames.h"
#include "Support/RandomMessages.h"
#include "Support/ReferenceParser.h"
#include "Support/SocketPair.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/MessageReceiver.h>
#include <libServices/SocketDisconnected.h>

#include <google/protobuf/any.pb.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <EveryField.pb.h>
#include <EveryField3.pb.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace Brantel::Services {
namespace {

using google::protobuf::Message;
using Tests::Contents;
using Tests::ContentsByProtobuf;
using Tests::EveryField;
using Tests::RandomMessages;
using Tests::SocketPair;

std::uint64_t NumberFromEnvironment(const char* name, std::uint64_t otherwise) {
    const char* text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

struct Example {
    const Message* type;
    std::string bytes;
};

Example MakeExample(RandomMessages& random) {
    static const std::vector<const Message*> types{
        &EveryField::default_instance(),
        &EveryField::default_instance(),
        &Tests::EveryField3::default_instance(),
        &Tests::ExtensionSet::default_instance(),
        &google::protobuf::FileDescriptorProto::default_instance(),
        &google::protobuf::UninterpretedOption::default_instance(),
        &google::protobuf::Any::default_instance(),
        &google::protobuf::Struct::default_instance()};
    if (random.OneIn(30)) {
        const auto levels = static_cast<int>(97 + random.Below(7));
        return {types[0], random.Nested(levels, random.OneIn(2) ? 60'000 : 6'000)};
    }
    const Message* type = types[random.Below(types.size())];
    const std::unique_ptr<Message> message(type->New());
    random.Fill(*message, random.Below(random.OneIn(10)  ? 120'000
                                       : random.OneIn(2) ? 20'000
                                                         : 800));
    std::string bytes = message->SerializePartialAsString();
    if (random.OneIn(3)) {
        switch (random.Below(3)) {
            case 0: random.Damage(bytes); break;
            case 1: random.Damage(bytes = random.Rewritten(bytes, *type->GetDescriptor())); break;
            default: bytes = random.Rewritten(bytes, *type->GetDescriptor()); break;
        }
    }
    return {type, std::move(bytes)};
}

// Writes the bytes in pieces of random sizes as long as the other side takes them.
void WriteInPieces(Tests::RawPeer& peer, std::string_view bytes, std::uint64_t seed) {
    RandomMessages random(seed);
    std::size_t longest = 1;
    while (!bytes.empty()) {
        if (random.OneIn(10)) {
            constexpr std::array<std::size_t, 6> longestPieces{8, 100, 1000, 2500, 5000, 5000};
            longest =
                random.OneIn(60) ? 100'000 : longestPieces[random.Below(longestPieces.size())];
        }
        const std::string_view piece = bytes.substr(0, 1 + random.Below(longest));
        if (!peer.TryWritePiece(piece)) {
            return;
        }
        bytes.remove_prefix(piece.size());
    }
}

class MessageReceiverTest : public ::testing::Test {
  protected:
    // Compares a batch of messages that are all received from one stream, one after the other.
    void Compare(std::uint64_t seed) {
        RandomMessages random(seed);
        std::vector<Example> examples;
        const bool framed = random.OneIn(3);
        std::string stream;
        for (int i = 0; i < messagesPerBatch; ++i) {
            examples.push_back(MakeExample(random));
            stream += framed ? Tests::FrameOf(examples.back().bytes) : examples.back().bytes;
        }
        SocketPair pair;
        std::thread writing([&] { WriteInPieces(pair.far, stream, seed); });
        SpinGovernor governor(std::chrono::microseconds(random.OneIn(2) ? 30 : 0));
        if (framed) {
            CompareFramed(pair.near.Take(), governor, examples);
        } else {
            const Tests::Descriptor near(pair.near.Take());
            CompareBare(near.Get(), governor, examples);
        }
        writing.join();
    }

    static constexpr int messagesPerBatch = 40;
    std::size_t accepted = 0;
    std::size_t refused = 0;

  private:
    // As they come through a connection, with their lengths.
    void CompareFramed(int fd, SpinGovernor& governor, const std::vector<Example>& examples) {
        FileDescriptorServiceConnection connection(fd, std::size_t{64} * 1024 * 1024, governor);
        for (const Example& example : examples) {
            const std::unique_ptr<Message> message(example.type->New());
            std::optional<std::string> actual;
            try {
                connection.Receive(*message);
                actual = Contents(*message);
            } catch (const SocketDisconnected& failure) {
                FAIL() << failure.what();
            } catch (const std::runtime_error&) {
                ASSERT_EQ(message->ByteSizeLong(), 0U);
            }
            Check(example, actual, ContentsByProtobuf(*example.type, example.bytes, true));
        }
    }
    // By the receiver alone, which gets small messages too then.
    void CompareBare(const int& fd, SpinGovernor& governor, const std::vector<Example>& examples) {
        SocketReader reader(fd, governor);
        for (const Example& example : examples) {
            const std::unique_ptr<Message> message(example.type->New());
            std::optional<std::string> actual;
            if (MessageReceiver(reader).Receive(*message, example.bytes.size())) {
                actual = Contents(*message);
            }
            Check(example, actual, ContentsByProtobuf(*example.type, example.bytes, false));
        }
    }
    void Check(const Example& example, const std::optional<std::string>& actual,
               const std::optional<std::string>& expected) {
        ++(expected ? accepted : refused);
        EXPECT_TRUE(actual == expected)
            << example.type->GetTypeName() << " of " << example.bytes.size() << " bytes is "
            << (expected ? "valid" : "not valid") << ", was " << (actual ? "accepted" : "refused");
    }
};

TEST_F(MessageReceiverTest, ParsesAsProtobufDoesWhateverComesInWhateverPieces) {
    const google::protobuf::LogSilencer noLinePerBadText;
    const std::uint64_t first = NumberFromEnvironment("BRANTEL_SEED", std::random_device()());
    const std::uint64_t messages = NumberFromEnvironment("BRANTEL_MESSAGES", 20'000);
    std::cout << "BRANTEL_SEED=" << first << " repeats this run\n";
    for (std::uint64_t seed = first; (seed - first) * messagesPerBatch < messages; ++seed) {
        Compare(seed);
        ASSERT_FALSE(HasFailure()) << "BRANTEL_MESSAGES=1 BRANTEL_SEED=" << seed << " repeats this";
    }
    std::cout << accepted << " accepted, " << refused << " refused\n";
    // Otherwise the examples are not worth their name.
    EXPECT_GT(accepted, messages / 2);
    EXPECT_GT(refused, messages / 20);
}

}  // namespace
}  // namespace Brantel::Services
