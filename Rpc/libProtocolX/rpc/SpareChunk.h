#pragma once

#include <CommonMessages.pb.h>

#include <atomic>
#include <cstddef>
#include <memory>

namespace BrantelStorageApi {

// One empty chunk whose memory the next answer uses again, so that reading into the same chunk over
// and over takes no memory. It is borrowed for the length of a call: of calls at the same time one
// gets it, and the others go without. Thread-safe.
class SpareChunk {
  public:
    // What it may keep, in bytes: a client may have very many readers.
    static constexpr std::size_t limit = std::size_t{16} * 1024;

    SpareChunk() = default;
    ~SpareChunk() { Take(); }
    SpareChunk(const SpareChunk&) = delete;
    SpareChunk& operator=(const SpareChunk&) = delete;

    // Empty; null when there is none.
    std::unique_ptr<Protocol::Chunk> Take() noexcept {
        return std::unique_ptr<Protocol::Chunk>(spare.exchange(nullptr, std::memory_order_acq_rel));
    }
    // Clears the chunk and keeps it, unless it would keep more than the limit.
    void Keep(std::unique_ptr<Protocol::Chunk> chunk) noexcept;

  private:
    std::atomic<Protocol::Chunk*> spare = nullptr;
};

}  // namespace BrantelStorageApi
