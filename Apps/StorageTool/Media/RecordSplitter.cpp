#include "Media/RecordSplitter.h"

#include <libProtocolX/DataChunk.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>

namespace Brantel::Tool {

bool RecordSplitter::Take(std::string& piece) {
    static const std::uint64_t smallest = ProtocolX::DataChunk().GetSizeOnFile();
    const std::string_view view = View();
    std::uint64_t size = 0;
    const bool sizeIsThere = view.size() >= sizeof(size);
    if (sizeIsThere) {
        std::memcpy(&size, view.data(), sizeof(size));
        if (size < smallest || size > limit) {
            throw std::runtime_error("The chunk record at byte " + std::to_string(Offset()) +
                                     " says it has " + std::to_string(size) +
                                     " bytes; it must have " + std::to_string(smallest) + " to " +
                                     std::to_string(limit));
        }
    }
    if (sizeIsThere && view.size() >= size) {
        Cut(size, piece);
        return true;
    }
    if (finished && !view.empty()) {
        throw std::runtime_error(
            "The stream ends at byte " + std::to_string(Offset() + view.size()) +
            ", within the chunk record that began at byte " + std::to_string(Offset()));
    }
    return false;
}

}  // namespace Brantel::Tool
