#pragma once

#include "TrackContext.h"

#include <libEngine/ChunkLayout.h>
#include <libEngine/EngineTypes.h>

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace Brantel::Tracks {

// The writing end of one log: which segments exist, and the one that takes the next chunk, its
// tail. Guarded by the track's gate; everything that blocks is called without the track's state.
class LogWriter {
  public:
    // `context` is borrowed.
    LogWriter(const TrackContext& context, Engine::LogKind kind) : context(context), kind(kind) {}

    // ---- segments ----

    // In order of their numbers, the tail included.
    const std::vector<std::uint64_t>& GetSegments() const { return segments; }
    Engine::SegmentId GetId(std::uint64_t number) const { return {context.track, kind, number}; }
    // The number that the next segment gets.
    std::uint64_t GetNext() const { return next; }
    bool HasTail() const { return tail != 0; }
    // 0: none.
    std::uint64_t GetTail() const { return tail; }
    // Where the next chunk goes in the tail, or will go in the next one.
    std::uint32_t GetEnd() const {
        return tail == 0 ? Engine::ChunkLayout::segmentHeaderSize : end;
    }
    // Chunks in the tail, readable or not.
    std::uint32_t GetTailCount() const { return count; }

    // At the start: a segment that exists; numbers below `number` are not given out again.
    void Adopt(std::uint64_t number);
    // At the start: an open one goes on as the tail.
    void AdoptTail(const Engine::SegmentInfo& info);
    void SkipNumbersBelow(std::uint64_t number);

    // Makes an empty segment that becomes the tail; there is none before (blocks).
    void CreateTail();
    // A number for Create.
    std::uint64_t TakeNumber() { return next++; }
    // Makes an empty segment beside the tail, for its caller to fill and seal (blocks).
    void Create(std::uint64_t number);
    // Seals the tail (blocks). One that can't be sealed fails this call once and is then given up:
    // the next start finds out what it holds.
    void SealTail();
    // Leaves the tail as it is, open: all its chunks have been dropped.
    void AbandonTail() { tail = 0; }
    // The tail takes no more, and will be sealed with its first `kept` chunks.
    void BreakTail(std::uint32_t kept);
    // Removes a segment whose chunks have all been dropped (blocks), the ring beginning at
    // `ringFront` by now; false: it could not be removed, which is logged, and it stays listed.
    bool Remove(std::uint64_t number, std::uint64_t ringFront);

    // ---- chunks ----

    // Whether the tail has room for a chunk of this length.
    bool Takes(std::uint64_t length) const;
    // What chunks can still take of the tail, their index entries included.
    std::uint64_t GetRoom() const;
    // The entry of a chunk behind the tail's last one; ordinal and front are left to the caller.
    Engine::ChunkEntry Place(std::int64_t timePoint, std::int64_t duration,
                             std::span<const std::string_view> parts) const;
    // Appends to the tail (blocks). After a failure of the medium the tail takes no more.
    // `offered`: see IEngine::AppendTaking.
    void Append(const Engine::ChunkEntry& entry, std::span<const std::string_view> parts,
                const Engine::Durability& durability, std::span<std::string* const> offered = {});
    void FlushTail();

  private:
    const TrackContext& context;
    const Engine::LogKind kind;
    std::vector<std::uint64_t> segments;
    std::uint64_t next = 1;
    std::uint64_t tail = 0;
    bool broken = false;      // the tail takes no more chunks
    bool sealFailed = false;  // the tail could not be sealed
    std::uint32_t count = 0;  // of chunks in the tail
    std::uint32_t end = 0;    // where the next one goes in the tail
};

}  // namespace Brantel::Tracks
