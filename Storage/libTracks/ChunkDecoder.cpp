#include "ChunkDecoder.h"

#include "EncodedChunk.h"
#include "FieldReader.h"
#include "ResizeForOverwrite.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace Brantel::Tracks {

bool ChunkDecoder::IsWanted(std::string_view key) const {
    return keys.keys().empty() ||
           std::find(keys.keys().begin(), keys.keys().end(), key) != keys.keys().end();
}

void ChunkDecoder::Begin(std::string_view firstPart, std::span<const std::uint32_t> sizes,
                         std::span<char*> destinations) {
    FieldReader fields(firstPart);
    const auto version = fields.Get<std::uint8_t>();
    if (version != EncodedChunk::version) {
        throw std::runtime_error("its form has version " + std::to_string(version) + ", known is " +
                                 std::to_string(EncodedChunk::version));
    }
    auto& properties = *chunk.mutable_properties();
    for (auto rest = fields.Get<std::uint32_t>(); rest > 0; --rest) {
        auto& property = *properties.add_items();
        const std::string_view key = fields.GetText();
        const std::string_view value = fields.GetText();
        property.mutable_key()->assign(key);
        property.mutable_value()->assign(value);
        payloadBytes += value.size();
    }
    const auto blocks = fields.Get<std::uint32_t>();
    if (std::size_t{blocks} + 1 != sizes.size()) {
        throw std::runtime_error("it names " + std::to_string(blocks) + " data blocks and has " +
                                 std::to_string(sizes.size() - 1));
    }
    auto& data = *chunk.mutable_data();
    for (std::size_t part = 1; part < sizes.size(); ++part) {
        const std::string_view key = fields.GetText();
        if (IsWanted(key)) {
            auto& block = *data.add_items();
            block.mutable_key()->assign(key);
            ResizeForOverwrite(*block.mutable_value(), sizes[part]);
            destinations[part] = block.mutable_value()->data();
            payloadBytes += sizes[part];
        }
    }
}

}  // namespace Brantel::Tracks
