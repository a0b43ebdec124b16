#include "ElementCount.h"

#include "WireNumbers.h"

#include <google/protobuf/wire_format_lite.h>

#include <cstdint>

namespace Brantel::Services {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::internal::WireFormatLite;

// The size of a field's content without the tag. Not whole: it is cut off, or none, as the end of a
// group is.
struct Content {
    bool isWhole = false;
    std::size_t headerSize = 0;
    std::size_t payloadSize = 0;
};

Content ReadContent(WireFormatLite::WireType wireType, const unsigned char* data,
                    std::size_t size) {
    std::uint64_t number = 0;
    Content content;
    switch (wireType) {
        case WireFormatLite::WIRETYPE_VARINT:
            content.headerSize = ReadVarint(data, size, varintSizeLimit, number);
            content.isWhole = content.headerSize > 0;
            break;
        case WireFormatLite::WIRETYPE_FIXED64:
            content.headerSize = sizeof(std::uint64_t);
            content.isWhole = size >= content.headerSize;
            break;
        case WireFormatLite::WIRETYPE_FIXED32:
            content.headerSize = sizeof(std::uint32_t);
            content.isWhole = size >= content.headerSize;
            break;
        case WireFormatLite::WIRETYPE_LENGTH_DELIMITED:
            content.headerSize = ReadVarint(data, size, tagSizeLimit, number);
            content.isWhole = content.headerSize > 0 && number <= size - content.headerSize;
            content.payloadSize = static_cast<std::size_t>(number);
            break;
        default: break;
    }
    return content;
}

// Numbers that a message keeps in a place of their own take no more memory than bytes. A number of
// an enumeration that the type does not know is kept like an unknown field.
bool IsPlainNumber(const FieldDescriptor* known, WireFormatLite::WireType wireType) {
    if (known == nullptr || known->type() == FieldDescriptor::TYPE_ENUM) {
        return false;
    }
    const auto type = static_cast<WireFormatLite::FieldType>(known->type());
    const WireFormatLite::WireType expected = WireFormatLite::WireTypeForFieldType(type);
    const bool isNumber = expected == WireFormatLite::WIRETYPE_VARINT ||
                          expected == WireFormatLite::WIRETYPE_FIXED32 ||
                          expected == WireFormatLite::WIRETYPE_FIXED64;
    return isNumber &&
           (wireType == expected ||
            (wireType == WireFormatLite::WIRETYPE_LENGTH_DELIMITED && known->is_packable()));
}

bool IsPart(const FieldDescriptor* known) {
    return known != nullptr && known->type() == FieldDescriptor::TYPE_MESSAGE;
}

}  // namespace

bool ElementCount::Add(const Descriptor& type, const unsigned char* data, std::size_t size,
                       int depth) {
    Rest rest{data, size};
    return AddFields(&type, rest, depth) != Next::Over;
}

bool ElementCount::AddText() {
    tooMany = ++elements > elementLimit;
    return !IsOver();
}

bool ElementCount::AddPart(int depth) {
    tooDeep = depth + 1 > depthLimit;
    return AddText();
}

// Until nothing is left, or the end of the group whose fields these are.
ElementCount::Next ElementCount::AddFields(const Descriptor* type, Rest& rest, int depth) {
    Next next = Next::Field;
    while (next == Next::Field && rest.size > 0) {
        next = AddField(type, rest, depth);
    }
    return next;
}

ElementCount::Next ElementCount::AddField(const Descriptor* type, Rest& rest, int depth) {
    std::uint64_t number = 0;
    const std::size_t tagSize = ReadVarint(rest.data, rest.size, tagSizeLimit, number);
    const auto tag = static_cast<std::uint32_t>(number);
    if (tagSize == 0 || WireFormatLite::GetTagFieldNumber(tag) == 0) {
        return Next::End;
    }
    rest = {rest.data + tagSize, rest.size - tagSize};
    const WireFormatLite::WireType wireType = WireFormatLite::GetTagWireType(tag);
    const FieldDescriptor* const known =
        type == nullptr ? nullptr : type->FindFieldByNumber(WireFormatLite::GetTagFieldNumber(tag));
    if (wireType == WireFormatLite::WIRETYPE_START_GROUP) {
        return AddGroup(known, rest, depth);
    }
    const Content content = ReadContent(wireType, rest.data, rest.size);
    if (!content.isWhole) {
        return Next::End;
    }
    Next next = Next::Field;
    if (wireType == WireFormatLite::WIRETYPE_LENGTH_DELIMITED && IsPart(known)) {
        Rest part{rest.data + content.headerSize, content.payloadSize};
        const bool fits = AddPart(depth);
        next = fits ? AddFields(known->message_type(), part, depth + 1) : Next::Over;
    } else if (!IsPlainNumber(known, wireType)) {
        next = AddText() ? Next::Field : Next::Over;
    }
    const std::size_t size = content.headerSize + content.payloadSize;
    rest = {rest.data + size, rest.size - size};
    return next == Next::Over ? Next::Over : Next::Field;
}

// Nothing is known of what is in a group that the type does not know.
ElementCount::Next ElementCount::AddGroup(const FieldDescriptor* known, Rest& rest, int depth) {
    if (!AddPart(depth)) {
        return Next::Over;
    }
    const bool isGroup = known != nullptr && known->type() == FieldDescriptor::TYPE_GROUP;
    const Next next = AddFields(isGroup ? known->message_type() : nullptr, rest, depth + 1);
    return next == Next::Over ? Next::Over : Next::Field;
}

std::string ElementCount::Reason() const {
    if (tooDeep) {
        return "nests deeper than the limit of " + std::to_string(depthLimit);
    }
    if (tooMany) {
        return "holds more elements than the limit of " + std::to_string(elementLimit);
    }
    return {};
}

}  // namespace Brantel::Services
