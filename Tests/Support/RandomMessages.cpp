#include "Support/RandomMessages.h"

#include "Support/Frames.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <array>
#include <vector>

namespace Brantel::Tests {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::EnumDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;
using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

constexpr int deepestFill = 6;

std::vector<const FieldDescriptor*> FieldsOf(const Message& message) {
    const Descriptor& type = *message.GetDescriptor();
    std::vector<const FieldDescriptor*> fields;
    DescriptorPool::generated_pool()->FindAllExtensions(&type, &fields);
    for (int i = 0; i < type.field_count(); ++i) {
        fields.push_back(type.field(i));
    }
    return fields;
}

std::uint64_t Tag(std::uint32_t number, std::uint32_t wireType) {
    return (std::uint64_t{number} << 3U) | wireType;
}

// Makes the bytes the contents of a field.
void PutInto(std::string& bytes, std::uint32_t field) {
    bytes.insert(
        0,
        Varint(Tag(field, WireFormatLite::WIRETYPE_LENGTH_DELIMITED)).append(Varint(bytes.size())));
}

void PutIntoGroup(std::string& bytes, std::uint32_t field) {
    bytes.insert(0, Varint(Tag(field, WireFormatLite::WIRETYPE_START_GROUP)));
    bytes.append(Varint(Tag(field, WireFormatLite::WIRETYPE_END_GROUP)));
}

}  // namespace

std::string RandomMessages::Text(bool isText) {
    std::size_t length = Below(40);
    if (OneIn(4)) {
        // Around the size from which a field is received in place.
        length = 4090 + Below(12);
    } else if (OneIn(6)) {
        length = Below(15'000);
    }
    length = std::min(length, left);
    left -= length;
    std::string text(length, '\0');
    for (char& c : text) {
        c = static_cast<char>(isText ? ' ' + random() % 95 : random());
    }
    if (isText && length > 10 && OneIn(4)) {
        // Two bytes of one character, or only the first of them.
        text.replace(Below(length - 2), 2, mayBreakTexts && OneIn(3) ? "\xC3-" : "\xC3\xA4");
    }
    return text;
}

void RandomMessages::Fill(Message& message, std::size_t size) {
    left = size;
    mayBreakTexts = OneIn(10);
    do {
        FillPart(message, 0);
    } while (left > 0 && !OneIn(40));
}

void RandomMessages::FillPart(Message& message, int depth) {
    const std::vector<const FieldDescriptor*> fields = FieldsOf(message);
    for (const FieldDescriptor* field : fields) {
        if (field->is_required() && !OneIn(200)) {
            FillField(message, *field, depth);
        }
    }
    for (std::size_t count = fields.empty() ? 0 : 1 + Below(5); count > 0; --count) {
        FillField(message, *fields[Below(fields.size())], depth);
    }
}

void RandomMessages::FillField(Message& message, const FieldDescriptor& field, int depth) {
    const Reflection& reflection = *message.GetReflection();
    left -= std::min<std::size_t>(left, 4);
    if (field.is_map()) {
        FillMap(message, field, depth);
    } else if (field.cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) {
        for (std::size_t count = field.is_repeated() ? 1 + Below(5) : 1; count > 0; --count) {
            FillScalar(message, field);
        }
    } else if (left > 0 && depth < deepestFill) {
        FillPart(field.is_repeated() ? *reflection.AddMessage(&message, &field)
                                     : *reflection.MutableMessage(&message, &field),
                 depth + 1);
    }
}

void RandomMessages::FillMap(Message& message, const FieldDescriptor& field, int depth) {
    Message& entry = *message.GetReflection()->AddMessage(&message, &field);
    FillScalar(entry, *field.message_type()->map_key());
    FillField(entry, *field.message_type()->map_value(), depth);
}

void RandomMessages::FillScalar(Message& message, const FieldDescriptor& field) {
    const Reflection& reflection = *message.GetReflection();
    const auto set = [&](auto setter, auto adder, auto value) {
        if (field.is_repeated()) {
            (reflection.*adder)(&message, &field, value);
        } else {
            (reflection.*setter)(&message, &field, value);
        }
    };
    const std::uint64_t number = random() >> Below(64);
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
            set(&Reflection::SetInt32, &Reflection::AddInt32, static_cast<std::int32_t>(number));
            break;
        case FieldDescriptor::CPPTYPE_INT64:
            set(&Reflection::SetInt64, &Reflection::AddInt64, static_cast<std::int64_t>(number));
            break;
        case FieldDescriptor::CPPTYPE_UINT32:
            set(&Reflection::SetUInt32, &Reflection::AddUInt32, static_cast<std::uint32_t>(number));
            break;
        case FieldDescriptor::CPPTYPE_UINT64:
            set(&Reflection::SetUInt64, &Reflection::AddUInt64, number);
            break;
        case FieldDescriptor::CPPTYPE_DOUBLE:
            set(&Reflection::SetDouble, &Reflection::AddDouble, static_cast<double>(number));
            break;
        case FieldDescriptor::CPPTYPE_FLOAT:
            set(&Reflection::SetFloat, &Reflection::AddFloat, static_cast<float>(number));
            break;
        case FieldDescriptor::CPPTYPE_BOOL:
            set(&Reflection::SetBool, &Reflection::AddBool, number % 2 == 0);
            break;
        case FieldDescriptor::CPPTYPE_ENUM: {
            const EnumDescriptor& type = *field.enum_type();
            const int value = type.value(static_cast<int>(number % type.value_count()))->number();
            set(&Reflection::SetEnumValue, &Reflection::AddEnumValue, value);
            break;
        }
        case FieldDescriptor::CPPTYPE_STRING:
            set(&Reflection::SetString, &Reflection::AddString,
                Text(field.type() == FieldDescriptor::TYPE_STRING));
            break;
        case FieldDescriptor::CPPTYPE_MESSAGE: break;
    }
}

// A number as protobuf would not write it, but reads it: with needless bytes. Seldom too many of
// them.
std::string RandomMessages::Number(std::uint64_t value) {
    std::string bytes = Varint(value);
    if (OneIn(6)) {
        const std::size_t whole =
            OneIn(20) ? 5 + Below(8) : std::min<std::size_t>(5, bytes.size() + 2);
        while (bytes.size() < whole) {
            bytes.back() = static_cast<char>(static_cast<unsigned char>(bytes.back()) | 0x80U);
            bytes.push_back('\0');
        }
    }
    return bytes;
}

std::string RandomMessages::AnyField(std::uint32_t number, int depth) {
    const auto wireType = static_cast<std::uint32_t>(OneIn(50) ? Below(8) : Below(6));
    std::string bytes = Number(Tag(number, wireType));
    switch (wireType) {
        case WireFormatLite::WIRETYPE_VARINT: return bytes + Number(random() >> Below(64));
        case WireFormatLite::WIRETYPE_FIXED64: return bytes + std::string(8, '8');
        case WireFormatLite::WIRETYPE_FIXED32: return bytes + std::string(4, '4');
        case WireFormatLite::WIRETYPE_LENGTH_DELIMITED: {
            left += 6000;
            const std::string text = Text(OneIn(2));
            return bytes + Number(text.size()) + text;
        }
        case WireFormatLite::WIRETYPE_START_GROUP:
            for (std::size_t count = Below(3); count > 0 && depth < 4; --count) {
                bytes += AnyField(static_cast<std::uint32_t>(1 + Below(70)), depth + 1);
            }
            return OneIn(30) ? bytes
                             : bytes + Number(Tag(number, WireFormatLite::WIRETYPE_END_GROUP));
        default: return OneIn(10) ? bytes : std::string();
    }
}

// A field that does not belong there: unknown, of the wrong wire type, or with no valid number.
std::string RandomMessages::Junk(const Descriptor& type) {
    if (OneIn(60)) {
        return std::string(1, '\0');
    }
    std::uint32_t number = 1 + static_cast<std::uint32_t>(Below(OneIn(3) ? 536'870'911 : 2100));
    if (OneIn(2) && type.field_count() > 0) {
        number = static_cast<std::uint32_t>(
            type.field(static_cast<int>(Below(static_cast<std::size_t>(type.field_count()))))
                ->number());
    }
    return AnyField(number, 0);
}

std::string RandomMessages::Rewritten(std::string_view bytes, const Descriptor& type) {
    CodedInputStream input(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                           static_cast<int>(bytes.size()));
    std::string rewritten;
    while (const std::uint32_t tag = input.ReadTag()) {
        const auto begin = static_cast<std::size_t>(input.CurrentPosition());
        std::string field = Number(tag);
        std::uint32_t length = 0;
        if (WireFormatLite::GetTagWireType(tag) == WireFormatLite::WIRETYPE_LENGTH_DELIMITED) {
            if (!input.ReadVarint32(&length)) {
                break;
            }
            const auto at = static_cast<std::size_t>(input.CurrentPosition());
            std::string payload(bytes.substr(at, length));
            const FieldDescriptor* known =
                type.FindFieldByNumber(WireFormatLite::GetTagFieldNumber(tag));
            if (known != nullptr && known->type() == FieldDescriptor::TYPE_MESSAGE && !OneIn(5)) {
                payload = Rewritten(payload, *known->message_type());
            }
            const std::size_t said = OneIn(200) ? payload.size() + Below(3) - 1 : payload.size();
            field += Number(said) + payload;
            input.Skip(static_cast<int>(length));
        } else {
            if (!WireFormatLite::SkipField(&input, tag)) {
                break;
            }
            field += bytes.substr(begin, static_cast<std::size_t>(input.CurrentPosition()) - begin);
        }
        if (OneIn(8)) {
            rewritten += Junk(type);
        }
        if (OneIn(12)) {
            rewritten += field;
        }
        rewritten += field;
    }
    return OneIn(8) ? rewritten + Junk(type) : rewritten;
}

void RandomMessages::Damage(std::string& bytes) {
    for (std::size_t count = 1 + Below(3); count > 0 && !bytes.empty(); --count) {
        const std::size_t at = Below(bytes.size());
        switch (Below(5)) {
            case 0: bytes.resize(at); break;
            case 1: bytes.erase(at, 1 + Below(20)); break;
            case 2: bytes.insert(at, 1 + Below(20), static_cast<char>(random())); break;
            default: bytes[at] = static_cast<char>(bytes[at] ^ (1 << Below(8))); break;
        }
    }
}

std::string RandomMessages::Nested(int levels, std::size_t size) {
    constexpr std::uint32_t bytesField = 15;
    constexpr std::uint32_t group = 19;
    constexpr std::uint32_t map = 52;
    constexpr std::uint32_t unknown = 99;
    // A child, one of several, the chosen one.
    constexpr std::array<std::uint32_t, 3> children{17, 39, 63};
    constexpr std::uint32_t extendedChild = 1001;
    std::string bytes(size, 'g');
    PutInto(bytes, bytesField);
    const bool onlyOneWay = OneIn(2);
    for (int level = 0; level < levels; ++level) {
        switch (onlyOneWay ? 0 : Below(24)) {
            case 20: PutIntoGroup(bytes, unknown); break;
            case 21:  // a group with a child in it: two levels
                PutInto(bytes, 2);
                PutIntoGroup(bytes, group);
                break;
            case 22:  // the value of an entry of a map: two levels
                PutInto(bytes, 2);
                bytes.insert(0, "\x08\x01");
                PutInto(bytes, map);
                break;
            case 23: PutInto(bytes, extendedChild); break;
            default: PutInto(bytes, children[Below(children.size())]); break;
        }
    }
    return bytes;
}

}  // namespace Brantel::Tests
