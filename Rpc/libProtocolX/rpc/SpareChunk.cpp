#include "rpc/SpareChunk.h"

#include "rpc/PartMemory.h"

#include <cstddef>
#include <utility>

namespace BrantelStorageApi {

void SpareChunk::Keep(std::unique_ptr<Protocol::Chunk> chunk) noexcept {
    const PartMemory memory = MemoryOf(*chunk);
    if (memory.lists + memory.unknownFields > limit) {
        return;
    }
    chunk->Clear();
    chunk.reset(spare.exchange(chunk.release(), std::memory_order_acq_rel));
}

}  // namespace BrantelStorageApi
