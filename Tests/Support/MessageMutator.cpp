#include "Support/MessageMutator.h"

#include <google/protobuf/descriptor.h>

#include <array>

namespace Brantel::Tests {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

}  // namespace

std::uint64_t MessageMutator::Number() {
    constexpr std::array<std::int64_t, 26> numbers{
        0,      1,      2,       3,         4,         5,         7,         10,        11,
        20,     30,     100,     -1,        -2,        4095,      4096,      12'288,    65'536,
        99'999, 40'000, 262'144, 1'048'576, INT64_MAX, INT64_MIN, INT32_MAX, UINT32_MAX};
    return static_cast<std::uint64_t>(numbers[Below(numbers.size())]);
}

std::string MessageMutator::Text() {
    constexpr std::array<const char*, 15> texts{"",
                                                "a",
                                                "b",
                                                "c",
                                                "image",
                                                "long",
                                                "thumbnail",
                                                "width",
                                                "memory",
                                                "flush",
                                                "loop",
                                                "stop",
                                                "storage.retention",
                                                "storage.durability",
                                                "storage.unknown"};
    if (Below(6) == 0) {
        return std::string(Below(Below(4) == 0 ? 20'000 : 300), static_cast<char>(random()));
    }
    return texts[Below(texts.size())];
}

void MessageMutator::Mutate(Message& message) {
    const auto& type = *message.GetDescriptor();
    if (type.field_count() > 0) {
        MutateField(
            message,
            *type.field(static_cast<int>(Below(static_cast<std::size_t>(type.field_count())))));
    }
}

void MessageMutator::MutateField(Message& message, const FieldDescriptor& field) {
    const Reflection& reflection = *message.GetReflection();
    if (Below(12) == 0) {
        reflection.ClearField(&message, &field);
        return;
    }
    if (field.cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) {
        SetScalar(message, field);
        return;
    }
    if (!field.is_repeated()) {
        Mutate(*reflection.MutableMessage(&message, &field));
        return;
    }
    const int count = reflection.FieldSize(message, &field);
    Message& element =
        count == 0 || Below(3) == 0
            ? *reflection.AddMessage(&message, &field)
            : *reflection.MutableRepeatedMessage(
                  &message, &field, static_cast<int>(Below(static_cast<std::size_t>(count))));
    Mutate(element);
}

void MessageMutator::SetScalar(Message& message, const FieldDescriptor& field) {
    const Reflection& reflection = *message.GetReflection();
    const auto set = [&](auto setter, auto adder, auto value) {
        if (field.is_repeated()) {
            (reflection.*adder)(&message, &field, value);
        } else {
            (reflection.*setter)(&message, &field, value);
        }
    };
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT32:
            set(&Reflection::SetInt32, &Reflection::AddInt32, static_cast<std::int32_t>(Number()));
            break;
        case FieldDescriptor::CPPTYPE_INT64:
            set(&Reflection::SetInt64, &Reflection::AddInt64, static_cast<std::int64_t>(Number()));
            break;
        case FieldDescriptor::CPPTYPE_UINT32:
            set(&Reflection::SetUInt32, &Reflection::AddUInt32,
                static_cast<std::uint32_t>(Number()));
            break;
        case FieldDescriptor::CPPTYPE_UINT64:
            set(&Reflection::SetUInt64, &Reflection::AddUInt64, Number());
            break;
        case FieldDescriptor::CPPTYPE_DOUBLE:
            set(&Reflection::SetDouble, &Reflection::AddDouble, static_cast<double>(Number()));
            break;
        case FieldDescriptor::CPPTYPE_FLOAT:
            set(&Reflection::SetFloat, &Reflection::AddFloat, static_cast<float>(Number()));
            break;
        case FieldDescriptor::CPPTYPE_BOOL:
            set(&Reflection::SetBool, &Reflection::AddBool, Below(2) == 0);
            break;
        case FieldDescriptor::CPPTYPE_ENUM: {
            const auto count = static_cast<std::size_t>(field.enum_type()->value_count());
            set(&Reflection::SetEnumValue, &Reflection::AddEnumValue,
                field.enum_type()->value(static_cast<int>(Below(count)))->number());
            break;
        }
        case FieldDescriptor::CPPTYPE_STRING:
            set(&Reflection::SetString, &Reflection::AddString, Text());
            break;
        case FieldDescriptor::CPPTYPE_MESSAGE: break;
    }
}

void MessageMutator::Complete(Message& message) {
    const Reflection& reflection = *message.GetReflection();
    for (int i = 0; i < message.GetDescriptor()->field_count(); ++i) {
        const FieldDescriptor& field = *message.GetDescriptor()->field(i);
        const bool isMessage = field.cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE;
        if (field.is_required() && !isMessage && !reflection.HasField(message, &field)) {
            SetScalar(message, field);
        } else if (field.is_required() && isMessage) {
            reflection.MutableMessage(&message, &field);
        }
        if (isMessage && !field.is_repeated() && reflection.HasField(message, &field)) {
            Complete(*reflection.MutableMessage(&message, &field));
        }
        for (int j = 0;
             isMessage && field.is_repeated() && j < reflection.FieldSize(message, &field); ++j) {
            Complete(*reflection.MutableRepeatedMessage(&message, &field, j));
        }
    }
}

}  // namespace Brantel::Tests
