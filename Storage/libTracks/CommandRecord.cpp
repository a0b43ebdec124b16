#include "CommandRecord.h"

#include "FieldReader.h"
#include "FieldWriter.h"

#include <stdexcept>

namespace Brantel::Tracks {

std::string CommandRecord::Encode() const {
    std::string bytes;
    FieldWriter fields(bytes);
    fields.Put(version);
    fields.Put(id);
    fields.Put(static_cast<std::uint8_t>(kind));
    fields.Put(static_cast<std::uint8_t>(state));
    fields.Put(track);
    fields.Put(capacity);
    return bytes;
}

CommandRecord CommandRecord::Decode(std::string_view bytes) {
    FieldReader fields(bytes);
    if (const auto found = fields.Get<std::uint8_t>(); found != version) {
        throw std::runtime_error("a command of version " + std::to_string(found) + ", known is " +
                                 std::to_string(version));
    }
    CommandRecord record;
    record.id = fields.Get<std::int64_t>();
    record.kind = static_cast<Kind>(fields.Get<std::uint8_t>());
    record.state = static_cast<State>(fields.Get<std::uint8_t>());
    record.track = fields.Get<std::int64_t>();
    record.capacity = fields.Get<std::uint64_t>();
    return record;
}

}  // namespace Brantel::Tracks
