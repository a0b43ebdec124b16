#include "StoredChunk.h"

#include "ResizeForOverwrite.h"

#include <algorithm>
#include <numeric>

namespace Brantel::Tracks {

void StoredChunk::Begin(std::string_view firstPart, std::span<const std::uint32_t> sizes,
                        std::span<char*> destinations) {
    bytes.clear();
    ResizeForOverwrite(bytes, std::accumulate(sizes.begin(), sizes.end(), std::size_t{0}));
    std::copy(firstPart.begin(), firstPart.end(), bytes.begin());
    parts.clear();
    std::size_t position = 0;
    for (std::size_t part = 0; part < sizes.size(); ++part) {
        if (part > 0) {
            destinations[part] = bytes.data() + position;
        }
        parts.emplace_back(bytes.data() + position, sizes[part]);
        position += sizes[part];
    }
}

}  // namespace Brantel::Tracks
