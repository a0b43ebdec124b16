// A connection on a stream of any bytes in any pieces, against protobuf's own parser: the same
// messages, refusals and reason of the end, whatever the peer does. Or the receiver of large
// messages alone, which then gets small ones too.
//
// The first byte chooses the type of the messages and, by its highest bit, the receiver alone. What
// follows says how the stream is made, so that a short input makes a long one: an operation in
// three bits, and its argument.
#include "Support/Frames.h"
#include "Support/FuzzCheck.h"
#include "Support/ReferenceParser.h"
#include "Support/SocketPair.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/MessageReceiver.h>
#include <libServices/SocketDisconnected.h>
#include <libServices/SocketReader.h>

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/stubs/logging.h>

#include <EveryField.pb.h>
#include <EveryField3.pb.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using Brantel::Services::FileDescriptorServiceConnection;
using Brantel::Tests::FuzzInput;
using Brantel::Tests::Require;
using google::protobuf::Message;

constexpr std::size_t messageLimit = 200'000;
constexpr std::size_t streamLimit = 400'000;

struct Stream {
    std::string bytes;
    std::vector<std::size_t> cuts;   // where a piece ends
    std::vector<std::size_t> sizes;  // of the frames
};

// Ends the frame that began at `begin`, with its length in front when frames have one.
void Close(Stream& stream, std::size_t begin, bool hasLengths) {
    stream.sizes.push_back(stream.bytes.size() - begin);
    if (hasLengths) {
        const std::string length = Brantel::Tests::Varint(stream.sizes.back());
        stream.bytes.insert(begin, length);
        for (std::size_t& cut : stream.cuts) {
            cut += cut > begin ? length.size() : 0;
        }
    }
}

Stream MakeStream(FuzzInput& input, bool hasLengths) {
    Stream stream;
    std::optional<std::size_t> frame;
    while (!input.AtEnd() && stream.bytes.size() < streamLimit) {
        const std::uint8_t operation = input.Byte();
        switch (operation & 7U) {
            case 0: stream.cuts.push_back(stream.bytes.size()); break;
            case 1:
                if (frame) {
                    Close(stream, *frame, hasLengths);
                }
                frame = stream.bytes.size();
                break;
            case 2: stream.bytes.append(input.Short(), static_cast<char>(input.Byte())); break;
            case 3: stream.bytes += input.Bytes(input.Short()); break;
            default: stream.bytes += input.Bytes(1U + (operation >> 3U)); break;
        }
    }
    if (frame) {
        Close(stream, *frame, hasLengths);
    }
    return stream;
}

void Write(Brantel::Tests::RawPeer& peer, const Stream& stream) {
    std::size_t begin = 0;
    const std::string_view bytes = stream.bytes;
    for (const std::size_t cut : stream.cuts) {
        if (!peer.TryWritePiece(bytes.substr(begin, cut - begin))) {
            return;
        }
        begin = cut;
    }
    peer.TryWritePiece(bytes.substr(begin));
    peer.FinishWriting();
}

// The next frame of a stream, or why there is none.
struct Next {
    std::optional<std::string_view> frame;
    std::string loss;
};

std::string EndAfter(std::size_t came, const std::string& rest) {
    return "Connection closed by the other side after " + std::to_string(came) + rest;
}

Next TakeFrame(std::string_view& rest) {
    constexpr std::size_t longestLength = 5;
    std::size_t size = 0;
    for (std::size_t i = 0; i < longestLength; ++i) {
        if (i == rest.size()) {
            return {std::nullopt, i == 0 ? "Connection closed by the other side"
                                         : EndAfter(i, i == 1 ? " byte of a message's length"
                                                              : " bytes of a message's length")};
        }
        const auto byte = static_cast<unsigned char>(rest[i]);
        size |= static_cast<std::size_t>(byte & 0x7FU) << (7 * i);
        if (byte < 0x80U) {
            rest.remove_prefix(i + 1);
            if (size > messageLimit) {
                return {std::nullopt, "Connection lost: message of " + std::to_string(size) +
                                          " bytes is over the limit of " +
                                          std::to_string(messageLimit) + " bytes"};
            }
            if (size > rest.size()) {
                return {std::nullopt, EndAfter(rest.size(), " of " + std::to_string(size) +
                                                                " bytes of a message")};
            }
            const std::string_view frame = rest.substr(0, size);
            rest.remove_prefix(size);
            return {frame, {}};
        }
    }
    return {std::nullopt, "Connection lost: a message length of more than 5 bytes is not valid"};
}

enum class Outcome { Received, Refused, Lost };

Outcome Receive(FileDescriptorServiceConnection& connection, Message& message, std::string& why) {
    try {
        Require(connection.Receive(message), "Receive answers true or throws");
        return Outcome::Received;
    } catch (const SocketDisconnected& lost) {
        why = lost.what();
        return Outcome::Lost;
    } catch (const std::runtime_error& refused) {
        why = refused.what();
        return Outcome::Refused;
    }
}

// As they come through a connection, with their lengths.
void CompareFramed(FileDescriptorServiceConnection& connection, const Message& type,
                   std::string_view rest) {
    // One object for all, so that nothing of an earlier message may be left.
    const std::unique_ptr<Message> message(type.New());
    for (;;) {
        const Next next = TakeFrame(rest);
        std::string why;
        const Outcome outcome = Receive(connection, *message, why);
        if (outcome != Outcome::Received) {
            Require(Brantel::Tests::Contents(*message).empty(), "a failure leaves nothing behind");
        }
        if (!next.frame) {
            Require(outcome == Outcome::Lost, "a stream that can't be followed is lost");
            Require(why == next.loss, "the end has its reason");
            Require(Receive(connection, *message, why) == Outcome::Lost && why == next.loss,
                    "what is lost stays lost");
            return;
        }
        Require(outcome != Outcome::Lost, "a whole frame does not end the connection");
        const auto expected = Brantel::Tests::ContentsByProtobuf(type, *next.frame, true);
        Require((outcome == Outcome::Received) == expected.has_value(), "valid is what is valid");
        Require(!expected || Brantel::Tests::Contents(*message) == *expected, "same contents");
    }
}

// By the receiver alone, which is told their lengths.
void CompareBare(const int& fd, Brantel::Services::SpinGovernor& governor, const Message& type,
                 const Stream& stream) {
    Brantel::Services::SocketReader reader(fd, governor);
    std::string_view rest = stream.bytes;
    for (const std::size_t size : stream.sizes) {
        const std::unique_ptr<Message> message(type.New());
        const bool valid = Brantel::Services::MessageReceiver(reader).Receive(*message, size);
        const auto expected = Brantel::Tests::ContentsByProtobuf(type, rest.substr(0, size), false);
        Require(valid == expected.has_value(), "valid is what is valid");
        Require(!expected || Brantel::Tests::Contents(*message) == *expected, "same contents");
        rest.remove_prefix(size);
    }
}

const Message& TypeOf(std::uint8_t number) {
    static const std::array<const Message*, 6> types{
        &Brantel::Tests::EveryField::default_instance(),
        &Brantel::Tests::EveryField3::default_instance(),
        &Brantel::Tests::ExtensionSet::default_instance(),
        &google::protobuf::FileDescriptorProto::default_instance(),
        &google::protobuf::UninterpretedOption::default_instance(),
        &google::protobuf::Struct::default_instance()};
    return *types[number % types.size()];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const google::protobuf::LogSilencer noLinePerBadText;
    FuzzInput input(data, size);
    const std::uint8_t kind = input.Byte();
    const bool isBare = kind >= 0x80U;
    const Message& type = TypeOf(kind & 0x7FU);
    const Stream stream = MakeStream(input, !isBare);
    // What fits into the socket needs no second thread.
    const bool fits = stream.bytes.size() < 60'000 && stream.cuts.size() < 60;
    Brantel::Tests::SocketPair pair;
    Brantel::Services::SpinGovernor governor(std::chrono::nanoseconds(0));
    std::thread writing;
    if (fits) {
        Write(pair.far, stream);
    } else {
        writing = std::thread([&] { Write(pair.far, stream); });
    }
    if (isBare) {
        const Brantel::Tests::Descriptor near(pair.near.Take());
        CompareBare(near.Get(), governor, type, stream);
    } else {
        FileDescriptorServiceConnection connection(pair.near.Take(), messageLimit, governor);
        CompareFramed(connection, type, stream.bytes);
    }
    if (writing.joinable()) {
        writing.join();
    }
    return 0;
}
