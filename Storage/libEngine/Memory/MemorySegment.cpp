#include "Memory/MemorySegment.h"

#include "Checksum.h"
#include "Memory/CopyPastCache.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

namespace Brantel::Engine {

namespace {

constexpr std::size_t leastPastCache = std::size_t{512} << 10U;

}  // namespace

MemorySegment::MemorySegment(const SegmentId& id, std::uint32_t size, Epoch epoch)
    : id(id), size(size), epoch(epoch) {}

MemorySegment::MemorySegment(MemorySegment& other)
    : id(other.id), size(other.size), epoch(other.epoch) {
    const std::lock_guard lock(other.mutex);
    sealed = other.sealed;
    durationSum = other.durationSum;
    chunks = other.chunks;
    epoch = other.epoch;
}

std::string MemorySegment::Describe(const SegmentId& id) {
    return "memory/" + std::to_string(id.track) + (id.log == LogKind::Ring ? "/ring/" : "/held/") +
           std::to_string(id.number);
}

void MemorySegment::Throw(EngineError::Kind kind, const std::string& text) const {
    throw EngineError(kind, Describe(id) + ": " + text);
}

void MemorySegment::CheckEpochLocked(Epoch writer) const {
    if (writer < epoch) {
        Throw(EngineError::Kind::Fenced,
              "epoch " + std::to_string(epoch) + " has taken over from " + std::to_string(writer));
    }
}

void MemorySegment::CheckEpoch(Epoch writer) {
    const std::lock_guard lock(mutex);
    CheckEpochLocked(writer);
}

std::uint32_t MemorySegment::EndLocked() const {
    return chunks.empty() ? ChunkLayout::segmentHeaderSize
                          : chunks.back()->entry.offset + chunks.back()->entry.length;
}

SegmentInfo MemorySegment::InfoLocked() const {
    SegmentInfo info;
    info.id = id;
    info.epoch = epoch;
    info.sealed = sealed;
    info.count = chunks.size();
    info.end = EndLocked();
    info.durationSum = durationSum;
    if (!chunks.empty()) {
        info.first = chunks.front()->entry;
        info.last = chunks.back()->entry;
    }
    return info;
}

SegmentInfo MemorySegment::GetInfo() {
    const std::lock_guard lock(mutex);
    return InfoLocked();
}

SegmentInfo MemorySegment::Claim(Epoch newEpoch) {
    const std::lock_guard lock(mutex);
    CheckEpochLocked(newEpoch);
    epoch = newEpoch;
    return InfoLocked();
}

// Small texts are cheaper to copy, and others may have much more memory than they use. Large ones
// would be received into memory that is in no cache, because it was some other chunk's: that takes
// longer than a copy past the cache of what is received into the same place again and again.
bool MemorySegment::IsTaken(std::span<std::string* const> offered, std::size_t part) {
    constexpr std::size_t excess = 8;  // an eighth
    if (part >= offered.size() || offered[part] == nullptr) {
        return false;
    }
    const std::string& text = *offered[part];
    return text.size() >= IEngine::leastTaken && text.size() < leastPastCache &&
           text.capacity() <= text.size() + text.size() / excess;
}

// The chunk, with everything but the texts that are to be taken, for which there is room.
std::shared_ptr<MemorySegment::Chunk> MemorySegment::Keep(const ChunkEntry& entry,
                                                          std::span<const std::string_view> parts,
                                                          std::span<std::string* const> offered) {
    auto chunk = std::make_shared<Chunk>();
    chunk->entry = entry;
    std::size_t copied = 0;
    std::size_t taken = 0;
    for (std::size_t part = 0; part < parts.size(); ++part) {
        const bool isTaken = IsTaken(offered, part);
        copied += isTaken ? 0 : parts[part].size();
        taken += isTaken ? 1 : 0;
    }
    using Bytes = char[];  // NOLINT(modernize-avoid-c-arrays)
    chunk->copied = std::make_unique_for_overwrite<Bytes>(copied);
    chunk->taken.reserve(taken);
    chunk->sizes.reserve(parts.size());
    chunk->parts.reserve(parts.size());
    char* place = chunk->copied.get();
    for (std::size_t part = 0; part < parts.size(); ++part) {
        const std::string_view bytes = parts[part];
        const bool isTaken = IsTaken(offered, part);
        chunk->sizes.push_back(static_cast<std::uint32_t>(bytes.size()));
        chunk->parts.push_back(Part{Checksum(bytes), isTaken ? bytes.data() : place});
        if (bytes.size() >= leastPastCache) {
            CopyPastCache(place, bytes.data(), bytes.size());
        } else if (!isTaken) {
            std::copy(bytes.begin(), bytes.end(), place);
        }
        place += isTaken ? 0 : bytes.size();
    }
    return chunk;
}

void MemorySegment::Append(Epoch writer, const ChunkEntry& entry,
                           std::span<const std::string_view> parts,
                           std::span<std::string* const> offered) {
    if (!ChunkLayout::HasLengths(entry, parts)) {
        Throw(EngineError::Kind::Refused, "lengths do not fit the parts of the chunk");
    }
    const std::shared_ptr<Chunk> chunk = Keep(entry, parts, offered);

    const std::lock_guard lock(mutex);
    CheckEpochLocked(writer);
    if (sealed) {
        Throw(EngineError::Kind::Closed, "the segment is sealed");
    }
    if (entry.offset != EndLocked()) {
        Throw(EngineError::Kind::Refused, "a chunk at " + std::to_string(entry.offset) +
                                              " is not at the end, " + std::to_string(EndLocked()));
    }
    const std::uint64_t taken = entry.offset - ChunkLayout::segmentHeaderSize + entry.length +
                                (chunks.size() + 1) * ChunkLayout::indexEntrySize;
    if (taken > ChunkLayout::Usable(size)) {
        Throw(EngineError::Kind::NoSpace, "a chunk of " + std::to_string(entry.length) +
                                              " bytes does not fit behind " +
                                              std::to_string(entry.offset));
    }
    chunks.push_back(chunk);
    // Nothing fails any more. A text of this size keeps its bytes where they are when it moves.
    for (std::size_t part = 0; part < parts.size(); ++part) {
        if (IsTaken(offered, part)) {
            chunk->taken.push_back(std::move(*offered[part]));
            offered[part]->clear();
        }
    }
    durationSum += static_cast<std::uint64_t>(entry.duration);
}

void MemorySegment::Seal(Epoch writer, std::uint64_t count) {
    const std::lock_guard lock(mutex);
    CheckEpochLocked(writer);
    if (count > chunks.size() || (sealed && count != chunks.size())) {
        Throw(EngineError::Kind::Refused, "can't be sealed with " + std::to_string(count) +
                                              " chunks, it has " + std::to_string(chunks.size()));
    }
    while (chunks.size() > count) {
        durationSum -= static_cast<std::uint64_t>(chunks.back()->entry.duration);
        chunks.pop_back();
    }
    sealed = true;
}

std::vector<ChunkEntry> MemorySegment::ReadEntries() {
    const std::lock_guard lock(mutex);
    std::vector<ChunkEntry> entries;
    entries.reserve(chunks.size());
    for (const auto& chunk : chunks) {
        entries.push_back(chunk->entry);
    }
    return entries;
}

std::shared_ptr<const MemorySegment::Chunk> MemorySegment::Find(const ChunkEntry& entry) {
    const std::lock_guard lock(mutex);
    if (removed) {
        Throw(EngineError::Kind::Gone, "the segment was removed");
    }
    const auto position = std::lower_bound(
        chunks.begin(), chunks.end(), entry.offset,
        [](const auto& chunk, std::uint32_t offset) { return chunk->entry.offset < offset; });
    if (position == chunks.end() || (*position)->entry != entry) {
        Throw(EngineError::Kind::Refused, "no such chunk at " + std::to_string(entry.offset));
    }
    return *position;
}

void MemorySegment::CheckPart(const Chunk& chunk, std::size_t part, const char* bytes) const {
    if (Checksum({bytes, chunk.sizes[part]}) != chunk.parts[part].checksum) {
        Throw(EngineError::Kind::Damaged, "the checksum of part " + std::to_string(part) +
                                              " of the chunk at " +
                                              std::to_string(chunk.entry.offset) + " is wrong");
    }
}

void MemorySegment::ReadChunk(const ChunkEntry& entry, IChunkSink& sink) {
    const std::shared_ptr<const Chunk> chunk = Find(entry);
    CheckPart(*chunk, 0, chunk->parts[0].bytes);

    std::array<char*, 16> few{};
    std::vector<char*> many;
    std::span<char*> destinations(few);
    if (chunk->sizes.size() > few.size()) {
        many.resize(chunk->sizes.size());
        destinations = many;
    }
    destinations = destinations.first(chunk->sizes.size());
    sink.Begin({chunk->parts[0].bytes, chunk->sizes[0]}, chunk->sizes, destinations);
    for (std::size_t part = 1; part < chunk->sizes.size(); ++part) {
        if (destinations[part] != nullptr) {
            std::memcpy(destinations[part], chunk->parts[part].bytes, chunk->sizes[part]);
            CheckPart(*chunk, part, destinations[part]);
        }
    }
}

void MemorySegment::Verify(std::uint32_t offset, IVerifyObserver& observer) {
    const std::vector<ChunkEntry> entries = ReadEntries();
    for (std::size_t index = 0; index < entries.size(); ++index) {
        if (!observer.Report(index, entries.size())) {
            return;
        }
        if (entries[index].offset < offset) {
            continue;
        }
        const std::shared_ptr<const Chunk> chunk = Find(entries[index]);
        for (std::size_t part = 0; part < chunk->sizes.size(); ++part) {
            try {
                CheckPart(*chunk, part, chunk->parts[part].bytes);
            } catch (const EngineError& error) {
                observer.OnDamage(Damage{id, entries[index].offset, entries[index], error.what()});
                break;
            }
        }
    }
}

void MemorySegment::SetRemoved() {
    const std::lock_guard lock(mutex);
    removed = true;
}

void MemorySegment::FlipBit(const ChunkEntry& entry, std::size_t part) {
    const std::shared_ptr<const Chunk> whole = Find(entry);
    std::vector<std::string_view> parts;
    for (std::size_t index = 0; index < whole->parts.size(); ++index) {
        parts.emplace_back(whole->parts[index].bytes, whole->sizes[index]);
    }
    const std::shared_ptr<Chunk> damaged = Keep(entry, parts, {});
    const char* const hit = damaged->parts[damaged->sizes[part] > 0 ? part : 0].bytes;
    const auto position = hit - damaged->copied.get();
    damaged->copied[static_cast<std::size_t>(position)] ^= 1;

    const std::lock_guard lock(mutex);
    for (auto& chunk : chunks) {
        if (chunk->entry.offset == entry.offset) {
            chunk = damaged;
        }
    }
}

}  // namespace Brantel::Engine
