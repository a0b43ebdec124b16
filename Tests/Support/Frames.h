#pragma once

#include <google/protobuf/message.h>
#include <google/protobuf/util/delimited_message_util.h>
#include <google/protobuf/wrappers.pb.h>

#include <cstddef>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

namespace Brantel::Tests {

// A base-128 number as protobuf writes it.
inline std::string Varint(std::uint64_t value) {
    std::string bytes;
    while (value >= 0x80) {
        bytes.push_back(static_cast<char>(value | 0x80));
        value >>= 7;
    }
    bytes.push_back(static_cast<char>(value));
    return bytes;
}

// A frame of these bytes, whatever they are.
inline std::string FrameOf(std::string_view bytes) {
    return Varint(bytes.size()).append(bytes);
}

// The frame of a message as protobuf's own helper writes it.
inline std::string Frame(const google::protobuf::Message& message) {
    std::ostringstream stream;
    google::protobuf::util::SerializeDelimitedToOstream(message, &stream);
    return std::move(stream).str();
}

// A message whose serialised form has exactly `size` bytes, which differ along it (size is 0 or
// over 2, and none of those where the length's own length changes).
inline google::protobuf::BytesValue MessageOfSize(std::size_t size) {
    google::protobuf::BytesValue message;
    if (size > 0) {
        std::size_t payload = size - 2;
        while (1 + Varint(payload).size() + payload > size) {
            --payload;
        }
        std::string value(payload, '\0');
        for (std::size_t i = 0; i < payload; ++i) {
            value[i] = static_cast<char>(i * 31 + i / 251);
        }
        message.set_value(std::move(value));
    }
    return message;
}

}  // namespace Brantel::Tests
