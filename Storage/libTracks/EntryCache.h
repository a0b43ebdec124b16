#pragma once

#include <libEngine/EngineTypes.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <tuple>

namespace Brantel::Tracks {

class EntryTable;

// The indexes of sealed segments that were used last, up to a number of bytes for all tracks
// together. Thread-safe.
class EntryCache {
  public:
    // A track that was created again under its old identifier is another instance.
    struct Key {
        std::uint64_t instance = 0;
        Engine::LogKind log = Engine::LogKind::Ring;
        std::uint64_t segment = 0;

        auto operator<=>(const Key&) const = default;
    };
    // Shared with those who search them while they leave the cache.
    using Table = std::shared_ptr<const EntryTable>;

    explicit EntryCache(std::size_t limitBytes) : limitBytes(limitBytes) {}

    // Null when it is not there.
    Table Find(const Key& key);
    // Takes a table in and lets the longest unused ones go. One table larger than the limit is
    // kept until the next one comes. Without memory for it the table is not kept.
    void Put(const Key& key, Table table) noexcept;
    void Remove(const Key& key);
    std::size_t GetMemory();

  private:
    struct Slot {
        Key key;
        Table table;
        std::size_t bytes = 0;
    };

    void RemoveLocked(std::map<Key, std::list<Slot>::iterator>::iterator position);

    const std::size_t limitBytes;
    std::mutex mutex;
    // guarded by mutex
    std::list<Slot> slots;  // used last first
    std::map<Key, std::list<Slot>::iterator> byKey;
    std::size_t usedBytes = 0;
};

}  // namespace Brantel::Tracks
