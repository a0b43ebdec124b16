// A connection on a stream of any bytes in any pieces, against protobuf's own parser: the same
// messages, refusals and reason of the end, whatever the peer does. Or the receiver of large
// messages alone, which then gets small ones too.
//
// The first byte chooses the type of the messages, by its highest bit the receiver alone and by the
// next one a long stream. What follows says how the stream is made, so that a short input makes a
// long one: an operation in three bits, and its argument.
#include "Support/Frames.h"
#include "Support/FuzzCheck.h"
#include "Support/MessageMutator.h"
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

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize)
    __attribute__((weak));

namespace {

using Brantel::Services::FileDescriptorServiceConnection;
using Brantel::Tests::FuzzInput;
using Brantel::Tests::MessageMutator;
using Brantel::Tests::Require;
using google::protobuf::Message;

// Of the first byte.
constexpr std::uint8_t alone = 0x80;
constexpr std::uint8_t isLong = 0x40;
// Over what the reader's buffer holds, so that all ways to receive are taken, and not far over it.
constexpr std::size_t messageLimit = 70'000;
constexpr std::size_t streamLimit = 140'000;
// Most streams are to be quick: over the length from which a text is received in place.
constexpr std::size_t shortStreamLimit = 12'288;
// Enough to find what one leaves behind for the next. More messages than frames come when the
// stream is out of step: each byte may be one then.
constexpr std::size_t mostFrames = 8;
constexpr std::size_t mostMessages = 16;

// A frame, or what stands before the first one.
struct Part {
    bool isFrame = false;
    std::string bytes;
    std::vector<std::size_t> cuts;  // where a piece ends, in the order of the bytes
};

std::vector<Part> MakeParts(FuzzInput& input, std::uint8_t kind) {
    const std::size_t limit = (kind & isLong) != 0 ? streamLimit : shortStreamLimit;
    std::vector<Part> parts(1);
    std::size_t size = 0;
    while (!input.AtEnd() && size < limit && parts.size() <= mostFrames) {
        const std::uint8_t operation = input.Byte();
        std::string& bytes = parts.back().bytes;
        const std::size_t before = bytes.size();
        switch (operation & 7U) {
            case 0: parts.back().cuts.push_back(before); continue;
            case 1: parts.push_back({true, {}, {}}); continue;
            case 2: {
                const std::size_t count = input.Short();
                bytes.append(std::min(count, limit), static_cast<char>(input.Byte()));
                break;
            }
            case 3: bytes += input.Bytes(input.Short()); break;
            default: bytes += input.Bytes(1U + (operation >> 3U)); break;
        }
        size += bytes.size() - before;
    }
    return parts;
}

struct Stream {
    std::string bytes;
    std::vector<std::size_t> cuts;
    std::vector<std::size_t> sizes;  // of the frames
};

// With each frame's length in front when frames have one.
Stream MakeStream(const std::vector<Part>& parts, bool hasLengths) {
    Stream stream;
    for (const Part& part : parts) {
        std::string length;
        if (part.isFrame) {
            stream.sizes.push_back(part.bytes.size());
            length = hasLengths ? Brantel::Tests::Varint(part.bytes.size()) : "";
        }
        for (const std::size_t cut : part.cuts) {
            stream.cuts.push_back(stream.bytes.size() + (cut == 0 ? 0 : length.size() + cut));
        }
        stream.bytes += length;
        stream.bytes += part.bytes;
    }
    return stream;
}

// What is received from a socket: the pieces of a stream, one after the other, then its end.
class Pieces {
  public:
    explicit Pieces(const Stream& stream) : stream(&stream), cut(stream.cuts.begin()) {}

    // As `recv` does.
    ssize_t Receive(void* target, std::size_t size) {
        while (cut != stream->cuts.end() && *cut <= place) {
            ++cut;
        }
        const std::size_t end = cut == stream->cuts.end() ? stream->bytes.size() : *cut;
        const std::size_t count = std::min(size, end - place);
        std::memcpy(target, stream->bytes.data() + place, count);
        place += count;
        return static_cast<ssize_t>(count);
    }

  private:
    const Stream* stream;
    std::vector<std::size_t>::const_iterator cut;
    std::size_t place = 0;
};

std::optional<Pieces> arriving;

// A socket that nothing is received from but what is arriving; it stands for any other.
int AnySocket() {
    static const Brantel::Tests::SocketPair pair;
    return ::dup(pair.near.Get());
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
    for (std::size_t count = 0; count < mostMessages; ++count) {
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

const Message& TypeOf(std::uint8_t kind) {
    static const std::array<const Message*, 6> types{
        &Brantel::Tests::EveryField::default_instance(),
        &Brantel::Tests::EveryField3::default_instance(),
        &Brantel::Tests::ExtensionSet::default_instance(),
        &google::protobuf::FileDescriptorProto::default_instance(),
        &google::protobuf::UninterpretedOption::default_instance(),
        &google::protobuf::Struct::default_instance()};
    return *types[(kind & (isLong - 1U)) % types.size()];
}

void PutPlain(std::string& input, std::string_view bytes) {
    if (!bytes.empty()) {
        input.push_back(static_cast<char>((bytes.size() - 1) << 3U | 4U));
        input += bytes;
    }
}

// As operations; runs of one byte in their short form.
void PutBytes(std::string& input, std::string_view bytes) {
    constexpr std::size_t leastRun = 8;
    constexpr std::size_t mostPlain = 32;
    std::size_t plain = 0;  // bytes at the front that are not put yet
    while (plain < bytes.size()) {
        const char byte = bytes[plain];
        std::size_t run = 1;
        while (plain + run < bytes.size() && bytes[plain + run] == byte && run < UINT16_MAX) {
            ++run;
        }
        if (run >= leastRun || plain + run > mostPlain) {
            PutPlain(input, bytes.substr(0, plain));
            bytes.remove_prefix(plain);
            plain = 0;
        }
        if (run >= leastRun) {
            input += {'\2', static_cast<char>(run), static_cast<char>(run >> 8U), byte};
            bytes.remove_prefix(run);
        } else {
            plain += run;
        }
    }
    PutPlain(input, bytes);
}

std::string InputOf(std::uint8_t kind, const std::vector<Part>& parts) {
    std::string input(1, static_cast<char>(kind));
    for (const Part& part : parts) {
        if (part.isFrame) {
            input.push_back('\1');
        }
        std::size_t place = 0;
        for (const std::size_t cut : part.cuts) {
            const std::size_t end = std::min(cut, part.bytes.size());
            PutBytes(input, std::string_view(part.bytes).substr(place, end - place));
            input.push_back('\0');
            place = end;
        }
        PutBytes(input, std::string_view(part.bytes).substr(place));
    }
    return input;
}

// Makes another message of a part's bytes, or takes another place to cut it.
void Change(Part& part, const Message& type, MessageMutator& mutator) {
    if (mutator.Below(4) == 0) {
        part.cuts.clear();
        for (std::size_t count = mutator.Below(4); count > 0; --count) {
            part.cuts.push_back(mutator.Below(part.bytes.size() + 1));
        }
        std::sort(part.cuts.begin(), part.cuts.end());
        return;
    }
    const std::unique_ptr<Message> message(type.New());
    message->ParsePartialFromString(part.bytes);  // as far as it goes
    for (std::size_t count = 1 + mutator.Below(4); count > 0; --count) {
        mutator.Mutate(*message);
    }
    if (mutator.Below(8) != 0) {
        mutator.Complete(*message);
    }
    part.bytes = message->SerializePartialAsString();
}

}  // namespace

// In the place of the system's, by the linker's --wrap.
extern "C" ssize_t __wrap_recv(int, void* target, std::size_t size, int) {
    return arriving->Receive(target, size);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const google::protobuf::LogSilencer noLinePerBadText;
    FuzzInput input(data, size);
    const std::uint8_t kind = input.Byte();
    const bool isBare = (kind & alone) != 0;
    const Message& type = TypeOf(kind);
    const Stream stream = MakeStream(MakeParts(input, kind), !isBare);
    arriving.emplace(stream);
    Brantel::Services::SpinGovernor governor(std::chrono::nanoseconds(0));
    if (isBare) {
        const Brantel::Tests::Descriptor near(AnySocket());
        CompareBare(near.Get(), governor, type, stream);
    } else {
        FileDescriptorServiceConnection connection(AnySocket(), messageLimit, governor);
        CompareFramed(connection, type, stream.bytes);
    }
    return 0;
}

// Every second time the fuzzer's own changes, otherwise a change of one frame.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed) {
    const google::protobuf::LogSilencer noLinePerBadText;
    MessageMutator mutator(seed);
    if (mutator.Below(2) == 0 || size == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    FuzzInput input(data, size);
    const std::uint8_t kind = input.Byte();
    std::vector<Part> parts = MakeParts(input, kind);
    if (parts.size() == 1 || mutator.Below(8) == 0) {
        parts.push_back({true, {}, {}});
    }
    Change(parts[1 + mutator.Below(parts.size() - 1)], TypeOf(kind), mutator);
    const std::string changed = InputOf(kind, parts);
    if (changed.size() > maxSize) {
        return size;
    }
    changed.copy(reinterpret_cast<char*>(data), changed.size());
    return changed.size();
}
