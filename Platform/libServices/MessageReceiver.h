#pragma once

#include "ConnectionLimits.h"
#include "ElementCount.h"
#include "SocketReader.h"

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace Brantel::Services {

// Parses one message of known length while it arrives, exactly as protobuf's own parser would parse
// the whole: large strings go from the socket straight into their field, everything else passes
// through the ordinary parser in runs of complete fields (parsing a concatenation is merging the
// parts). Whatever this class does not know how to take apart (groups, unknown or damaged fields)
// is gathered and given to the ordinary parser as it is, so that what is valid is decided there
// alone.
class MessageReceiver {
  public:
    explicit MessageReceiver(SocketReader& source) : source(source) {}
    // With a limit on how deep parts nest, and a count (borrowed, may be null) of what is about to
    // be parsed, which makes the message invalid when it is over its limits.
    MessageReceiver(SocketReader& source, int depthLimit, ElementCount* count)
        : source(source), depthLimit(depthLimit), count(count) {}

    // Merges the next `length` bytes into `message`, without looking for missing required fields.
    // Takes exactly `length` bytes from the source, also when it returns false: the bytes are not a
    // valid message, `message` holds something of them.
    bool Receive(google::protobuf::Message& message, std::size_t length);

  private:
    struct Field {
        enum class Kind { Whole, Cut, Long, Other };
        Kind kind = Kind::Other;
        std::uint32_t number = 0;
        std::size_t headerSize = 0;   // of the tag and, when Long, the length
        std::size_t payloadSize = 0;  // of what follows the header
    };

    static Field Delimit(const unsigned char* data, std::size_t size, std::size_t left);
    bool ReceiveFields(google::protobuf::Message& message, std::size_t length, int depth);
    bool ReceiveLong(google::protobuf::Message& message, const Field& field, int depth);
    bool Gather(google::protobuf::Message& message, std::size_t length, int depth);
    bool MergeBuffered(google::protobuf::Message& message, std::size_t length, int depth);
    void Consume(std::size_t size);

    bool MergePartial(google::protobuf::Message& message, const void* data, std::size_t size,
                      int depth);

    SocketReader& source;
    const int depthLimit = ConnectionLimits::highestDepth;
    ElementCount* const count = nullptr;
    std::size_t unread = 0;  // bytes of the message that the source has not given yet
};

}  // namespace Brantel::Services
