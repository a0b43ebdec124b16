#pragma once

#include <google/protobuf/message.h>
#include <google/protobuf/text_format.h>

#include <stdexcept>
#include <string>

namespace Brantel::Tests {

// A message written as protocol-buffer text, such as `ids: 1 ids: 2`. Required fields may be
// missing.
template <class Message>
Message FromText(const std::string& text) {
    Message message;
    google::protobuf::TextFormat::Parser parser;
    parser.AllowPartialMessage(true);
    if (!parser.ParseFromString(text, &message)) {
        throw std::logic_error("Bad text of a message: " + text.substr(0, 200));
    }
    return message;
}

// The same in one line, for comparisons and failure reports.
inline std::string ToText(const google::protobuf::Message& message) {
    return message.ShortDebugString();
}

}  // namespace Brantel::Tests
