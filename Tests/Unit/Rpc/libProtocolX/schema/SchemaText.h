#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>

#include <string>

// A schema file as text: `enum NAME` with `  NUMBER VALUE` lines, then `message NAME` with
// `  NUMBER FIELD LABEL TYPE` lines and what is nested in it, in the order of the declarations. A
// default value or an option would stand behind its field.
class SchemaText {
  public:
    explicit SchemaText(const google::protobuf::FileDescriptor& file) {
        for (int i = 0; i < file.enum_type_count(); ++i) {
            Add(*file.enum_type(i));
        }
        for (int i = 0; i < file.message_type_count(); ++i) {
            Add(*file.message_type(i));
        }
    }

    const std::string& Get() const { return text; }

  private:
    void Add(const google::protobuf::EnumDescriptor& type) {
        text += "enum " + type.full_name() + "\n";
        for (int i = 0; i < type.value_count(); ++i) {
            text +=
                "  " + std::to_string(type.value(i)->number()) + " " + type.value(i)->name() + "\n";
        }
    }

    void Add(const google::protobuf::Descriptor& type) {
        text += "message " + type.full_name() + "\n";
        for (int i = 0; i < type.field_count(); ++i) {
            Add(*type.field(i));
        }
        for (int i = 0; i < type.nested_type_count(); ++i) {
            Add(*type.nested_type(i));
        }
        for (int i = 0; i < type.enum_type_count(); ++i) {
            Add(*type.enum_type(i));
        }
    }

    void Add(const google::protobuf::FieldDescriptor& field) {
        static const char* const labels[] = {"", "optional", "required", "repeated"};
        text += "  " + std::to_string(field.number()) + " " + field.name() + " " +
                labels[field.label()] + " ";
        if (field.message_type() != nullptr) {
            text += field.message_type()->full_name();
        } else if (field.enum_type() != nullptr) {
            text += field.enum_type()->full_name();
        } else {
            text += field.type_name();
        }
        if (field.has_default_value()) {
            text += " [default]";
        }
        if (field.options().ByteSizeLong() != 0) {
            text += " [" + field.options().ShortDebugString() + "]";
        }
        text += "\n";
    }

    std::string text;
};
