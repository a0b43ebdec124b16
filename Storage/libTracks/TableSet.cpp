#include "TableSet.h"

#include "EntryTable.h"
#include "ReadIndex.h"

namespace Brantel::Tracks {

const EntryTable* TableSet::Find(Engine::LogKind log, std::uint64_t segment) {
    const EntryCache::Key key{instance, log, segment};
    for (const auto& [present, table] : tables) {
        if (present == key) {
            return table.get();
        }
    }
    EntryCache::Table table = cache.Find(key);
    if (!table) {
        missing = key;
        return nullptr;
    }
    tables.emplace_back(key, std::move(table));
    return tables.back().second.get();
}

void TableSet::LoadMissing() {
    const EntryCache::Key key = *missing;
    missing.reset();
    try {
        const auto table = std::make_shared<const EntryTable>(
            ReadIndex(engine, Engine::SegmentId{track, key.log, key.segment}));
        cache.Put(key, table);
        tables.emplace_back(key, table);
    } catch (const Engine::EngineError& error) {
        if (error.GetKind() != Engine::EngineError::Kind::Gone || gone == key) {
            throw;
        }
        gone = key;
    }
}

}  // namespace Brantel::Tracks
