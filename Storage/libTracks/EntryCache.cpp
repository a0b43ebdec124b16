#include "EntryCache.h"

#include "EntryTable.h"

#include <new>
#include <utility>

namespace Brantel::Tracks {

EntryCache::Table EntryCache::Find(const Key& key) {
    const std::lock_guard lock(mutex);
    const auto position = byKey.find(key);
    if (position == byKey.end()) {
        return nullptr;
    }
    slots.splice(slots.begin(), slots, position->second);
    return position->second->table;
}

void EntryCache::Put(const Key& key, Table table) noexcept {
    const std::size_t bytes = table->GetMemory();
    std::list<Slot> added;
    const std::lock_guard lock(mutex);
    try {
        added.push_back(Slot{key, std::move(table), bytes});
        if (!byKey.try_emplace(key, added.begin()).second) {
            return;
        }
    } catch (const std::bad_alloc&) {
        return;
    }
    slots.splice(slots.begin(), added);
    usedBytes += bytes;
    while (usedBytes > limitBytes && slots.size() > 1) {
        RemoveLocked(byKey.find(slots.back().key));
    }
}

void EntryCache::Remove(const Key& key) {
    const std::lock_guard lock(mutex);
    const auto position = byKey.find(key);
    if (position != byKey.end()) {
        RemoveLocked(position);
    }
}

void EntryCache::RemoveLocked(std::map<Key, std::list<Slot>::iterator>::iterator position) {
    usedBytes -= position->second->bytes;
    slots.erase(position->second);
    byKey.erase(position);
}

std::size_t EntryCache::GetMemory() {
    const std::lock_guard lock(mutex);
    return usedBytes;
}

}  // namespace Brantel::Tracks
