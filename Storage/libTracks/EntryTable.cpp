#include "EntryTable.h"

#include <algorithm>

namespace Brantel::Tracks {

EntryTable::EntryTable(const std::vector<Engine::ChunkEntry>& entries) {
    items.reserve(entries.size());
    for (const Engine::ChunkEntry& entry : entries) {
        Add(entry);
    }
}

std::size_t EntryTable::FindAfter(std::size_t begin, std::size_t end,
                                  std::int64_t timePoint) const {
    const auto first = items.begin();
    const auto found = std::upper_bound(
        first + static_cast<std::ptrdiff_t>(begin), first + static_cast<std::ptrdiff_t>(end),
        timePoint, [](std::int64_t t, const Item& item) { return t < item.entry.timePoint; });
    return static_cast<std::size_t>(found - first);
}

void EntryTable::ReserveOne() {
    constexpr std::size_t smallest = 64;
    if (items.size() == items.capacity()) {
        items.reserve(std::max(smallest, items.size() * 2));
    }
}

void EntryTable::Add(const Engine::ChunkEntry& entry) {
    items.push_back(Item{entry, durationSum});
    durationSum += static_cast<std::uint64_t>(entry.duration);
}

}  // namespace Brantel::Tracks
