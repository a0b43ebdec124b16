// The receiver against protobuf's own parser: thousands of random messages, a third of them
// damaged, in random pieces of a socket (BRANTEL_SEED=<number> repeats a run,
// BRANTEL_MESSAGES=<number> makes it longer); and texts in every encoding and place.
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

#include <array>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
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

// Where a text can lie in a message, and whether protobuf minds what is no UTF-8 there.
struct TextPlace {
    const char* name;
    const Message* type;
    std::vector<std::uint32_t> path;  // numbers of the fields around it, then its own
    bool isJudged;
};

class MessageReceiverTextTest : public ::testing::TestWithParam<TextPlace> {
  protected:
    // The text in its place, in front of another field.
    static std::string Placed(std::string text) {
        const std::vector<std::uint32_t>& path = GetParam().path;
        // Range views, which the check wants here, are not for clang 14.
        // NOLINTNEXTLINE(modernize-loop-convert)
        for (auto number = path.rbegin(); number != path.rend(); ++number) {
            const std::uint64_t tag = std::uint64_t{*number} << 3U | 2U;
            text.insert(0, Tests::Varint(tag) + Tests::Varint(text.size()));
        }
        return text + std::string("\xFA\x3F\x01!", 4);
    }

    // What the receiver makes of the bytes when they come in two pieces.
    static std::optional<std::string> Received(const std::string& bytes, std::size_t cut) {
        SocketPair pair;
        std::thread writing([&] {
            pair.far.WritePiece(bytes.substr(0, cut));
            pair.far.WritePiece(bytes.substr(cut));
        });
        SpinGovernor governor(std::chrono::microseconds(0));
        const int near = pair.near.Get();
        SocketReader reader(near, governor);
        const std::unique_ptr<Message> message(GetParam().type->New());
        const bool valid = MessageReceiver(reader).Receive(*message, bytes.size());
        writing.join();
        return valid ? std::optional(Contents(*message)) : std::nullopt;
    }

    // With the character at the beginning, in the middle and at the end of a text.
    static void Compare(std::size_t size, const std::string& character, bool isTaken) {
        for (const std::size_t place : {std::size_t{0}, size / 2, size - character.size()}) {
            std::string text(size, '.');
            text.replace(place, character.size(), character);
            const std::string bytes = Placed(text);
            const auto expected = ContentsByProtobuf(*GetParam().type, bytes, false);
            ASSERT_EQ(isTaken, expected.has_value());
            // Cut in the middle of the text, often of the character.
            EXPECT_EQ(expected, Received(bytes, bytes.size() - size / 2 - 3));
        }
    }

    // A short text, one that may be received in place, and one that needs more than the buffer.
    static constexpr std::array<std::size_t, 4> sizes{30, 4096, 5000, 100'000};
};

TEST_P(MessageReceiverTextTest, AnyTextIsTakenOrRefusedAsProtobufDoes) {
    const google::protobuf::LogSilencer noLinePerBadText;
    const std::vector<std::string> valid{"a", std::string(1, '\0'), "\xC3\xA4", "\xE2\x82\xAC",
                                         "\xF0\x9F\x8E\xA5"};
    // An end alone, a beginning alone, longer than needed, half of a pair of UTF-16, too high.
    const std::vector<std::string> wrong{"\xA4", "\xC3-", "\xC0\x80", "\xED\xA0\x80",
                                         "\xF4\x90\x80\x80"};
    for (const std::size_t size : sizes) {
        for (const std::string& character : valid) {
            Compare(size, character, true);
        }
        for (const std::string& character : wrong) {
            Compare(size, character, !GetParam().isJudged);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    , MessageReceiverTextTest,
    ::testing::Values(
        TextPlace{"Proto2", &EveryField::default_instance(), {14}, false},
        TextPlace{"Proto2Repeated", &EveryField::default_instance(), {37}, false},
        TextPlace{"Proto2Choice", &EveryField::default_instance(), {61}, false},
        TextPlace{"Proto2Extension", &EveryField::default_instance(), {1002}, false},
        TextPlace{"Proto2Key", &EveryField::default_instance(), {51, 1}, false},
        TextPlace{"Proto2Nested", &EveryField::default_instance(), {17, 39, 18, 3}, false},
        TextPlace{"Proto3", &Tests::EveryField3::default_instance(), {1}, true},
        TextPlace{"Proto3Optional", &Tests::EveryField3::default_instance(), {3}, true},
        TextPlace{"Proto3Repeated", &Tests::EveryField3::default_instance(), {7}, true},
        TextPlace{"Proto3Choice", &Tests::EveryField3::default_instance(), {21}, true},
        TextPlace{"Proto3Key", &Tests::EveryField3::default_instance(), {11, 1}, true},
        TextPlace{"Proto3Value", &Tests::EveryField3::default_instance(), {11, 2}, true},
        TextPlace{"Proto3Nested", &Tests::EveryField3::default_instance(), {9, 10, 7}, true},
        TextPlace{"Proto3Bytes", &Tests::EveryField3::default_instance(), {2}, false},
        TextPlace{"Unknown", &Tests::EveryField3::default_instance(), {99}, false}),
    [](const auto& place) { return place.param.name; });

}  // namespace
}  // namespace Brantel::Services
