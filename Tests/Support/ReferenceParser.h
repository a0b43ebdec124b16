#pragma once

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/message.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Brantel::Tests {

// The serialised message in bytes that can be compared: the elements of maps in an order.
inline std::string Contents(const google::protobuf::Message& message) {
    std::string bytes;
    {
        google::protobuf::io::StringOutputStream output(&bytes);
        google::protobuf::io::CodedOutputStream stream(&output);
        stream.SetSerializationDeterministic(true);
        message.SerializePartialToCodedStream(&stream);
    }
    return bytes;
}

// What protobuf's own parser makes of the bytes: the contents, or nothing when it refuses them.
inline std::optional<std::string> ContentsByProtobuf(const google::protobuf::Message& type,
                                                     std::string_view bytes, bool withRequired) {
    const std::unique_ptr<google::protobuf::Message> message(type.New());
    const bool valid =
        message->ParsePartialFromArray(bytes.data(), static_cast<int>(bytes.size())) &&
        (!withRequired || message->IsInitialized());
    return valid ? std::optional(Contents(*message)) : std::nullopt;
}

}  // namespace Brantel::Tests
