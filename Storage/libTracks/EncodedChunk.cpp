#include "EncodedChunk.h"

#include "FieldWriter.h"
#include "TrackError.h"

#include <libEngine/ChunkLayout.h>
#include <libEngine/IEngine.h>

#include <algorithm>
#include <limits>

namespace Brantel::Tracks {

namespace {

template <typename Items>
void CheckKeys(std::int64_t track, const Items& items, const char* kind) {
    constexpr int fewItems = 16;
    std::vector<std::string_view> sorted;
    for (int index = 0; index < items.size(); ++index) {
        const std::string& key = items[index].key();
        if (key.empty()) {
            throw TrackError(track, std::string(kind) + " " + std::to_string(index) +
                                        " of the chunk has an empty key");
        }
        if (items.size() > fewItems) {
            sorted.push_back(key);
            continue;
        }
        for (int other = 0; other < index; ++other) {
            if (items[other].key() == key) {
                throw TrackError(track,
                                 std::string(kind) + " key " + key + " occurs twice in the chunk");
            }
        }
    }
    std::sort(sorted.begin(), sorted.end());
    const auto twice = std::adjacent_find(sorted.begin(), sorted.end());
    if (twice != sorted.end()) {
        throw TrackError(track, std::string(kind) + " key " + std::string(*twice) +
                                    " occurs twice in the chunk");
    }
}

void CheckTimes(std::int64_t track, std::int64_t timePoint, std::int64_t duration) {
    if (timePoint < 0) {
        throw TrackError(track, "time point " + std::to_string(timePoint) + " is below 0");
    }
    if (duration < 0) {
        throw TrackError(track, "duration " + std::to_string(duration) + " is below 0");
    }
    const std::int64_t longest = std::numeric_limits<std::int64_t>::max() - timePoint;
    if (duration > longest) {
        throw TrackError(track, "duration " + std::to_string(duration) + " at time point " +
                                    std::to_string(timePoint) + " is over the longest there, " +
                                    std::to_string(longest));
    }
}

}  // namespace

void EncodedChunk::Encode(std::int64_t track, const Protocol::Chunk& chunk) {
    timePoint = static_cast<std::int64_t>(chunk.timecode().nanoseconds());
    duration = static_cast<std::int64_t>(chunk.duration().nanoseconds());
    CheckTimes(track, timePoint, duration);
    const auto& properties = chunk.properties().items();
    const auto& blocks = chunk.data().items();
    CheckKeys(track, properties, "property");
    CheckKeys(track, blocks, "data block");

    payloadBytes = 0;
    first.clear();
    FieldWriter fields(first);
    fields.Put(version);
    fields.Put(static_cast<std::uint32_t>(properties.size()));
    for (const auto& property : properties) {
        fields.PutText(property.key());
        fields.PutText(property.value());
        payloadBytes += property.value().size();
    }
    fields.Put(static_cast<std::uint32_t>(blocks.size()));
    for (const auto& block : blocks) {
        fields.PutText(block.key());
    }

    parts.clear();
    offered.clear();
    firstSize = first.size();
    parts.emplace_back(first);
    bytes = first.size();
    for (const auto& block : blocks) {
        parts.emplace_back(block.value());
        bytes += block.value().size();
        payloadBytes += block.value().size();
    }
}

void EncodedChunk::Offer(Protocol::Chunk& chunk) {
    constexpr std::size_t least = Engine::IEngine::leastTaken;
    if (payloadBytes < least || !chunk.has_data()) {
        return;
    }
    offered.reserve(parts.size());
    offered.push_back(nullptr);
    for (auto& block : *chunk.mutable_data()->mutable_items()) {
        offered.push_back(block.value().size() < least ? nullptr : block.mutable_value());
    }
}

bool EncodedChunk::AlignTo(std::uint64_t offset) {
    constexpr std::size_t line = 64;
    constexpr std::size_t large = std::size_t{64} << 10U;
    Unalign();
    std::uint64_t place = offset + Engine::ChunkLayout::HeadLength(parts.size(), firstSize);
    for (std::size_t index = 1; index < parts.size(); ++index) {
        if (parts[index].size() >= large) {
            const auto address = reinterpret_cast<std::uintptr_t>(parts[index].data());
            const std::size_t missing = (address - place) % line;
            first.append(missing, '\0');
            parts[0] = first;
            bytes += missing;
            return missing > 0;
        }
        place += parts[index].size();
    }
    return false;
}

void EncodedChunk::Unalign() {
    bytes -= first.size() - firstSize;
    first.resize(firstSize);
    parts[0] = first;
}

}  // namespace Brantel::Tracks
