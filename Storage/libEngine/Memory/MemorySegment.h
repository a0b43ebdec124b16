#pragma once

#include <libEngine/IEngine.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Engine {

// One segment in memory. Thread-safe. A chunk that was stored is never changed, so a reader copies
// it out without the lock.
class MemorySegment {
  public:
    MemorySegment(const SegmentId& id, std::uint32_t size, Epoch epoch);
    // The same chunks, shared: what a crash at this instant leaves.
    MemorySegment(MemorySegment& other);
    MemorySegment& operator=(const MemorySegment&) = delete;
    ~MemorySegment() = default;

    // As the operations of IEngine.
    SegmentInfo Claim(Epoch newEpoch);
    void Append(Epoch writer, const ChunkEntry& entry, std::span<const std::string_view> parts,
                std::span<std::string* const> offered);
    void Seal(Epoch writer, std::uint64_t count);
    std::vector<ChunkEntry> ReadEntries();
    void ReadChunk(const ChunkEntry& entry, IChunkSink& sink);
    void Verify(std::uint32_t offset, IVerifyObserver& observer);

    SegmentInfo GetInfo();
    // Throws Fenced when a newer epoch has claimed the segment.
    void CheckEpoch(Epoch writer);
    // From now on reads throw Gone.
    void SetRemoved();
    // Changes one bit of a stored part's first byte (the first part's for an empty one).
    void FlipBit(const ChunkEntry& entry, std::size_t part);
    static std::string Describe(const SegmentId& id);

  private:
    struct Part {
        std::uint64_t checksum;
        const char* bytes;  // in `copied` or in one of `taken`
    };
    struct Chunk {
        ChunkEntry entry;
        std::vector<std::uint32_t> sizes;  // of the parts
        std::vector<Part> parts;
        // Of the parts, one behind the other; then the others.
        std::unique_ptr<char[]> copied;  // NOLINT(modernize-avoid-c-arrays)
        std::vector<std::string> taken;
    };

    static bool IsTaken(std::span<std::string* const> offered, std::size_t part);
    static std::shared_ptr<Chunk> Keep(const ChunkEntry& entry,
                                       std::span<const std::string_view> parts,
                                       std::span<std::string* const> offered);

    SegmentInfo InfoLocked() const;
    void CheckEpochLocked(Epoch writer) const;
    std::uint32_t EndLocked() const;
    std::shared_ptr<const Chunk> Find(const ChunkEntry& entry);
    void CheckPart(const Chunk& chunk, std::size_t part, const char* bytes) const;
    [[noreturn]] void Throw(EngineError::Kind kind, const std::string& text) const;

    const SegmentId id;
    const std::uint32_t size;

    std::mutex mutex;
    // guarded by mutex
    Epoch epoch;
    bool sealed = false;
    bool removed = false;
    std::uint64_t durationSum = 0;
    std::vector<std::shared_ptr<const Chunk>> chunks;
};

}  // namespace Brantel::Engine
