#include "LogWriter.h"

#include "StorageOptions.h"

#include <libEngine/IEngine.h>

#include <algorithm>
#include <string>

namespace Brantel::Tracks {

using Engine::ChunkLayout;
using Engine::EngineError;

void LogWriter::Adopt(std::uint64_t number) {
    segments.push_back(number);
    SkipNumbersBelow(number + 1);
}

void LogWriter::AdoptTail(const Engine::SegmentInfo& info) {
    tail = info.id.number;
    count = static_cast<std::uint32_t>(info.count);
    end = info.end;
    broken = false;
    sealFailed = false;
}

void LogWriter::SkipNumbersBelow(std::uint64_t number) {
    next = std::max(next, number);
}

void LogWriter::Create(std::uint64_t number) {
    segments.reserve(segments.size() + 1);
    context.engine.CreateSegment(GetId(number), context.epoch);
    segments.push_back(number);
}

void LogWriter::BreakTail(std::uint32_t kept) {
    broken = true;
    count = kept;
}

void LogWriter::CreateTail() {
    // A number whose creation failed is not tried again: the medium may remember half of it.
    const std::uint64_t number = TakeNumber();
    Create(number);
    tail = number;
    count = 0;
    end = ChunkLayout::segmentHeaderSize;
    broken = false;
    sealFailed = false;
}

void LogWriter::SealTail() {
    try {
        context.engine.Seal(GetId(tail), context.epoch, count);
    } catch (const EngineError& error) {
        if (!sealFailed) {
            broken = true;
            sealFailed = true;
            throw;
        }
        context.options.log("a segment stays without its index: " + std::string(error.what()));
    }
    tail = 0;
}

bool LogWriter::Remove(std::uint64_t number, std::uint64_t ringFront) {
    try {
        context.engine.RemoveSegment(GetId(number), context.epoch, ringFront);
    } catch (const EngineError& error) {
        context.options.log("a segment could not be removed: " + std::string(error.what()));
        return false;
    }
    std::erase(segments, number);
    return true;
}

bool LogWriter::Takes(std::uint64_t length) const {
    return ChunkLayout::Cost(length) <= GetRoom();
}

std::uint64_t LogWriter::GetRoom() const {
    const std::uint64_t taken =
        end - ChunkLayout::segmentHeaderSize + std::uint64_t{count} * ChunkLayout::indexEntrySize;
    return tail == 0 || broken ? 0 : ChunkLayout::Usable(context.segmentSize) - taken;
}

Engine::ChunkEntry LogWriter::Place(std::int64_t timePoint, std::int64_t duration,
                                    std::span<const std::string_view> parts) const {
    Engine::ChunkEntry entry;
    entry.timePoint = timePoint;
    entry.duration = duration;
    entry.offset = end;
    ChunkLayout::SetLengths(entry, parts);
    return entry;
}

void LogWriter::Append(const Engine::ChunkEntry& entry, std::span<const std::string_view> parts,
                       const Engine::Durability& durability,
                       std::span<std::string* const> offered) {
    try {
        context.engine.AppendTaking(GetId(tail), context.epoch, entry, parts, offered, durability);
    } catch (const EngineError& error) {
        broken = error.GetKind() != EngineError::Kind::NoSpace;
        throw;
    }
    ++count;
    end += entry.length;
}

void LogWriter::FlushTail() {
    try {
        context.engine.Flush(GetId(tail));
    } catch (const EngineError&) {
        broken = true;
        throw;
    }
}

}  // namespace Brantel::Tracks
