// A connection on a stream of any bytes in any pieces, against protobuf's own parser: the same
// messages, refusals and end, whatever the peer does.
//
// The first byte chooses the type of the messages. What follows says how the stream is made, so
// that a short input makes a long one: an operation in three bits, and its argument.
#include "Support/Frames.h"
#include "Support/FuzzCheck.h"
#include "Support/ReferenceParser.h"
#include "Support/SocketPair.h"

#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/SocketDisconnected.h>

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
    std::vector<std::size_t> cuts;  // where a piece ends
};

// Puts the length before the frame that began at `begin`.
void Close(Stream& stream, std::size_t begin) {
    const std::string length = Brantel::Tests::Varint(stream.bytes.size() - begin);
    stream.bytes.insert(begin, length);
    for (std::size_t& cut : stream.cuts) {
        cut += cut > begin ? length.size() : 0;
    }
}

Stream MakeStream(FuzzInput& input) {
    Stream stream;
    std::optional<std::size_t> frame;
    while (!input.AtEnd() && stream.bytes.size() < streamLimit) {
        const std::uint8_t operation = input.Byte();
        switch (operation & 7U) {
            case 0: stream.cuts.push_back(stream.bytes.size()); break;
            case 1:
                if (frame) {
                    Close(stream, *frame);
                }
                frame = stream.bytes.size();
                break;
            case 2: stream.bytes.append(input.Short(), static_cast<char>(input.Byte())); break;
            case 3: stream.bytes += input.Bytes(input.Short()); break;
            default: stream.bytes += input.Bytes(1U + (operation >> 3U)); break;
        }
    }
    if (frame) {
        Close(stream, *frame);
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

// The next frame of the stream; nothing when it can't be followed to there.
std::optional<std::string_view> NextFrame(std::string_view& rest) {
    std::size_t size = 0;
    for (std::size_t i = 0; i < 5 && i < rest.size(); ++i) {
        const auto byte = static_cast<unsigned char>(rest[i]);
        size |= static_cast<std::size_t>(byte & 0x7FU) << (7 * i);
        if (byte < 0x80U) {
            rest.remove_prefix(i + 1);
            if (size > messageLimit || size > rest.size()) {
                return std::nullopt;
            }
            const std::string_view frame = rest.substr(0, size);
            rest.remove_prefix(size);
            return frame;
        }
    }
    return std::nullopt;
}

enum class Outcome { Received, Refused, Lost };

Outcome Receive(FileDescriptorServiceConnection& connection, Message& message) {
    try {
        Require(connection.Receive(message), "Receive answers true or throws");
        return Outcome::Received;
    } catch (const SocketDisconnected&) {
        return Outcome::Lost;
    } catch (const std::runtime_error&) {
        return Outcome::Refused;
    }
}

void Compare(FileDescriptorServiceConnection& connection, const Message& type,
             std::string_view rest) {
    // One object for all, so that nothing of an earlier message may be left.
    const std::unique_ptr<Message> message(type.New());
    for (;;) {
        const std::optional<std::string_view> frame = NextFrame(rest);
        const Outcome outcome = Receive(connection, *message);
        if (outcome != Outcome::Received) {
            Require(Brantel::Tests::Contents(*message).empty(), "a failure leaves nothing behind");
        }
        if (!frame) {
            Require(outcome == Outcome::Lost, "a stream that can't be followed is lost");
            Require(Receive(connection, *message) == Outcome::Lost, "what is lost stays lost");
            return;
        }
        Require(outcome != Outcome::Lost, "a whole frame does not end the connection");
        const auto expected = Brantel::Tests::ContentsByProtobuf(type, *frame, true);
        Require((outcome == Outcome::Received) == expected.has_value(), "valid is what is valid");
        Require(!expected || Brantel::Tests::Contents(*message) == *expected, "same contents");
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
    const Message& type = TypeOf(input.Byte());
    const Stream stream = MakeStream(input);
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
    {
        FileDescriptorServiceConnection connection(pair.near.Take(), messageLimit, governor);
        Compare(connection, type, stream.bytes);
    }
    if (writing.joinable()) {
        writing.join();
    }
    return 0;
}
