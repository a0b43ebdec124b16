#include "MessageReceiver.h"

#include "WireNumbers.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <utility>

namespace Brantel::Services {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::internal::WireFormatLite;

// A payload of at least this size that is not wholly buffered is received in place.
constexpr std::size_t longPayload = std::size_t{4} * 1024;

// The ordinary parser refuses a text (not bytes) of a proto3 file that is not UTF-8.
bool IsValid(const std::string& value, const FieldDescriptor& field) {
    return field.type() != FieldDescriptor::TYPE_STRING ||
           field.file()->syntax() != google::protobuf::FileDescriptor::SYNTAX_PROTO3 ||
           WireFormatLite::VerifyUtf8String(value.data(), static_cast<int>(value.size()),
                                            WireFormatLite::PARSE, field.full_name().c_str());
}

}  // namespace

bool MessageReceiver::Receive(Message& message, std::size_t length) {
    unread = length;
    const bool valid = ReceiveFields(message, length, 0);
    source.Discard(unread);
    return valid;
}

bool MessageReceiver::MergePartial(Message& message, const void* data, std::size_t size,
                                   int depth) {
    if (count != nullptr && !count->Add(*message.GetDescriptor(),
                                        static_cast<const unsigned char*>(data), size, depth)) {
        return false;
    }
    google::protobuf::io::CodedInputStream input(static_cast<const std::uint8_t*>(data),
                                                 static_cast<int>(size));
    input.SetRecursionLimit(depthLimit - depth);
    return message.MergePartialFromCodedStream(&input) && input.ConsumedEntireMessage();
}

// Looks at the field that begins at `data`, of which `size` bytes are there and `left` belong to
// the message.
MessageReceiver::Field MessageReceiver::Delimit(const unsigned char* data, std::size_t size,
                                                std::size_t left) {
    const auto whenShort = [size, left](std::size_t needed) {
        return size < needed && size < left ? Field::Kind::Cut : Field::Kind::Other;
    };
    Field field;
    std::uint64_t tag = 0;
    const std::size_t tagSize = ReadVarint(data, size, tagSizeLimit, tag);
    if (tagSize == 0) {
        field.kind = whenShort(tagSizeLimit);
        return field;
    }
    field.number = WireFormatLite::GetTagFieldNumber(static_cast<std::uint32_t>(tag));
    std::uint64_t number = 0;
    std::size_t numberSize = 0;
    switch (WireFormatLite::GetTagWireType(static_cast<std::uint32_t>(tag))) {
        case WireFormatLite::WIRETYPE_VARINT:
            numberSize = ReadVarint(data + tagSize, size - tagSize, varintSizeLimit, number);
            if (numberSize == 0) {
                field.kind = whenShort(tagSize + varintSizeLimit);
                return field;
            }
            field.headerSize = tagSize + numberSize;
            break;
        case WireFormatLite::WIRETYPE_FIXED64:
            field.headerSize = tagSize + sizeof(std::uint64_t);
            break;
        case WireFormatLite::WIRETYPE_FIXED32:
            field.headerSize = tagSize + sizeof(std::uint32_t);
            break;
        case WireFormatLite::WIRETYPE_LENGTH_DELIMITED:
            numberSize = ReadVarint(data + tagSize, size - tagSize, tagSizeLimit, number);
            if (numberSize == 0) {
                field.kind = whenShort(tagSize + tagSizeLimit);
                return field;
            }
            field.headerSize = tagSize + numberSize;
            field.payloadSize = number;
            break;
        default: return field;
    }
    if (field.number == 0 || field.headerSize > left ||
        field.payloadSize > left - field.headerSize) {
        return field;
    }
    const std::size_t whole = field.headerSize + field.payloadSize;
    if (whole <= size) {
        field.kind = Field::Kind::Whole;
    } else {
        field.kind = field.payloadSize >= longPayload ? Field::Kind::Long : Field::Kind::Cut;
    }
    return field;
}

bool MessageReceiver::ReceiveFields(Message& message, std::size_t length, int depth) {
    // The buffer begins with `run` bytes of whole fields that have not been parsed yet.
    std::size_t run = 0;
    while (run < length) {
        const std::size_t buffered = std::min(source.Available(), length);
        const Field field = Delimit(source.Data() + run, buffered - run, length - run);
        switch (field.kind) {
            case Field::Kind::Whole: run += field.headerSize + field.payloadSize; break;
            case Field::Kind::Cut:
                if (run > 0) {
                    if (!MergeBuffered(message, run, depth)) {
                        return false;
                    }
                    length -= run;
                    run = 0;
                }
                source.Fill(source.Available() + 1);
                break;
            case Field::Kind::Long:
                if (!MergeBuffered(message, run, depth) || !ReceiveLong(message, field, depth)) {
                    return false;
                }
                length -= run + field.headerSize + field.payloadSize;
                run = 0;
                break;
            case Field::Kind::Other: return Gather(message, length, depth);
        }
    }
    return MergeBuffered(message, run, depth);
}

// Receives one length-delimited field, whose header is the first that is buffered.
bool MessageReceiver::ReceiveLong(Message& message, const Field& field, int depth) {
    const FieldDescriptor* known =
        message.GetDescriptor()->FindFieldByNumber(static_cast<int>(field.number));
    const google::protobuf::Reflection& reflection = *message.GetReflection();
    const bool isString = known != nullptr && known->cpp_type() == FieldDescriptor::CPPTYPE_STRING;
    const bool isMessage =
        known != nullptr && known->type() == FieldDescriptor::TYPE_MESSAGE && !known->is_map();
    if (isString) {
        if (count != nullptr && !count->AddText()) {
            return false;
        }
        Consume(field.headerSize);
        std::string value;
        source.Append(value, field.payloadSize);
        unread -= field.payloadSize;
        if (!IsValid(value, *known)) {
            return false;
        }
        if (known->is_repeated()) {
            reflection.AddString(&message, known, std::move(value));
        } else {
            reflection.SetString(&message, known, std::move(value));
        }
        return true;
    }
    if (isMessage && depth < depthLimit) {
        if (count != nullptr && !count->AddPart(depth)) {
            return false;
        }
        Consume(field.headerSize);
        Message* part = known->is_repeated() ? reflection.AddMessage(&message, known)
                                             : reflection.MutableMessage(&message, known);
        return ReceiveFields(*part, field.payloadSize, depth + 1);
    }
    return Gather(message, field.headerSize + field.payloadSize, depth);
}

// Reads the next `length` bytes whole and leaves them to the ordinary parser.
bool MessageReceiver::Gather(Message& message, std::size_t length, int depth) {
    std::string bytes;
    source.Append(bytes, length);
    unread -= length;
    return MergePartial(message, bytes.data(), bytes.size(), depth);
}

bool MessageReceiver::MergeBuffered(Message& message, std::size_t length, int depth) {
    const bool valid = length == 0 || MergePartial(message, source.Data(), length, depth);
    Consume(length);
    return valid;
}

void MessageReceiver::Consume(std::size_t size) {
    source.Consume(size);
    unread -= size;
}

}  // namespace Brantel::Services
