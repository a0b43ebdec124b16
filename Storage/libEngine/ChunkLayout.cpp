#include "ChunkLayout.h"

namespace Brantel::Engine {

namespace {

std::uint64_t BytesOf(std::span<const std::string_view> parts) {
    std::uint64_t bytes = 0;
    for (const std::string_view part : parts) {
        bytes += part.size();
    }
    return bytes;
}

}  // namespace

static_assert(ChunkLayout::Length(1, 1) % ChunkLayout::alignment == 0);
static_assert(ChunkLayout::Usable(1U << 20U) == 1040384);

void ChunkLayout::SetLengths(ChunkEntry& entry, std::span<const std::string_view> parts) {
    entry.length = static_cast<std::uint32_t>(Length(parts.size(), BytesOf(parts)));
    entry.headLength = static_cast<std::uint32_t>(HeadLength(parts.size(), parts[0].size()));
}

bool ChunkLayout::HasLengths(const ChunkEntry& entry, std::span<const std::string_view> parts) {
    return !parts.empty() && entry.length == Length(parts.size(), BytesOf(parts)) &&
           entry.headLength == HeadLength(parts.size(), parts[0].size());
}

}  // namespace Brantel::Engine
