#include "EntryTable.h"

#include <algorithm>
#include <array>

namespace Brantel::Tracks {

using Engine::ChunkEntry;

namespace {

// The fields of an entry as the differences from what is expected behind another one, each 0 in a
// regular stream. An entry is stored as a byte with one bit for each difference that is not 0, and
// these differences, zigzag, in groups of 7 bits, the lowest first.
constexpr std::size_t fieldCount = 7;
constexpr std::size_t longestNumber = 10;
constexpr std::size_t longestEntry = 1 + fieldCount * longestNumber;

using Differences = std::array<std::uint64_t, fieldCount>;

std::uint64_t Expected(std::int64_t timePoint, std::int64_t duration) {
    return static_cast<std::uint64_t>(timePoint) + static_cast<std::uint64_t>(duration);
}

Differences Compare(const ChunkEntry& entry, const ChunkEntry& before) {
    return {
        static_cast<std::uint64_t>(entry.timePoint) - Expected(before.timePoint, before.duration),
        static_cast<std::uint64_t>(entry.duration) - static_cast<std::uint64_t>(before.duration),
        entry.ordinal - (before.ordinal + 1),
        entry.front - before.front,
        std::uint64_t{entry.offset} - (std::uint64_t{before.offset} + before.length),
        std::uint64_t{entry.length} - before.length,
        std::uint64_t{entry.headLength} - before.headLength};
}

// Makes of an entry what is expected behind it. Field by field in place: a lookup walks through
// many entries, and copies of whole ones are most of what that costs.
void Expect(ChunkEntry& entry) {
    entry.timePoint = static_cast<std::int64_t>(Expected(entry.timePoint, entry.duration));
    ++entry.ordinal;
    entry.offset += entry.length;
}

void Apply(const Differences& differences, ChunkEntry& entry) {
    entry.timePoint =
        static_cast<std::int64_t>(static_cast<std::uint64_t>(entry.timePoint) + differences[0]);
    entry.duration =
        static_cast<std::int64_t>(static_cast<std::uint64_t>(entry.duration) + differences[1]);
    entry.ordinal += differences[2];
    entry.front += differences[3];
    entry.offset = static_cast<std::uint32_t>(entry.offset + differences[4]);
    entry.length = static_cast<std::uint32_t>(entry.length + differences[5]);
    entry.headLength = static_cast<std::uint32_t>(entry.headLength + differences[6]);
}

constexpr unsigned groupBits = 7;
constexpr unsigned more = 0x80;

std::uint64_t ZigZag(std::uint64_t number) {
    return (number << 1U) ^ (0 - (number >> 63U));
}

std::uint64_t UnZigZag(std::uint64_t number) {
    return (number >> 1U) ^ (0 - (number & 1U));
}

}  // namespace

EntryTable::EntryTable(const std::vector<ChunkEntry>& entries) {
    for (const ChunkEntry& entry : entries) {
        Add(entry);
    }
    bytes.shrink_to_fit();
    times.shrink_to_fit();
    blocks.shrink_to_fit();
}

EntryTable::Cursor::Cursor(const EntryTable& table, std::size_t wanted) : table(table) {
    if (wanted >= table.size) {
        index = table.size;
        durationBefore = table.durationSum;
        return;
    }
    const Block& block = table.blocks[wanted / blockSize];
    index = wanted / blockSize * blockSize;
    place = block.place;
    durationBefore = block.durationBefore;
    Decode();
    while (index < wanted) {
        Next();
    }
}

void EntryTable::Cursor::Next() {
    durationBefore += static_cast<std::uint64_t>(entry.duration);
    ++index;
    if (index < table.size) {
        if (index % blockSize == 0) {
            entry = {};
        }
        Decode();
    }
}

void EntryTable::Cursor::Decode() {
    const unsigned char* source = table.bytes.data() + place;
    const unsigned present = *source++;
    Expect(entry);
    if (present == 0) {
        ++place;
        return;
    }
    Differences differences{};
    for (std::size_t field = 0; present >> field != 0; ++field) {
        if ((present >> field & 1U) != 0) {
            std::uint64_t number = 0;
            unsigned shift = 0;
            for (; (*source & more) != 0; shift += groupBits) {
                number |= static_cast<std::uint64_t>(*source++ & (more - 1)) << shift;
            }
            number |= static_cast<std::uint64_t>(*source++) << shift;
            differences[field] = UnZigZag(number);
        }
    }
    place = static_cast<std::size_t>(source - table.bytes.data());
    Apply(differences, entry);
}

std::size_t EntryTable::FindAfter(std::size_t begin, std::size_t end,
                                  std::int64_t timePoint) const {
    if (begin >= end) {
        return end;
    }
    // The blocks that begin within (begin, end): in front of the first one after the time point
    // lies what is looked for.
    const auto from = times.begin() + static_cast<std::ptrdiff_t>(begin / blockSize + 1);
    const auto to = times.begin() + static_cast<std::ptrdiff_t>((end - 1) / blockSize + 1);
    const auto behind = std::upper_bound(from, to, timePoint);
    const auto block = static_cast<std::size_t>(behind - times.begin()) - 1;
    Cursor cursor(*this, std::max(begin, block * blockSize));
    while (cursor.GetIndex() < end && cursor.GetEntry().timePoint <= timePoint) {
        cursor.Next();
    }
    return std::min(cursor.GetIndex(), end);
}

void EntryTable::ReserveOne() {
    constexpr std::size_t fewBytes = 512;
    constexpr std::size_t fewBlocks = 8;
    if (bytes.capacity() - bytes.size() < longestEntry) {
        bytes.reserve(std::max(fewBytes, bytes.size() + bytes.size() / 2));
    }
    const std::size_t moreBlocks = std::max(fewBlocks, blocks.size() + blocks.size() / 2);
    if (times.size() == times.capacity()) {
        times.reserve(moreBlocks);
    }
    if (blocks.size() == blocks.capacity()) {
        blocks.reserve(moreBlocks);
    }
}

void EntryTable::Add(const ChunkEntry& entry) {
    ReserveOne();
    if (size % blockSize == 0) {
        times.push_back(entry.timePoint);
        blocks.push_back(Block{durationSum, bytes.size()});
        last = {};
    }
    const Differences differences = Compare(entry, last);
    const std::size_t mask = bytes.size();
    bytes.push_back(0);
    for (std::size_t field = 0; field < fieldCount; ++field) {
        if (differences[field] != 0) {
            bytes[mask] = static_cast<unsigned char>(bytes[mask] | 1U << field);
            std::uint64_t number = ZigZag(differences[field]);
            for (; number >= more; number >>= groupBits) {
                bytes.push_back(static_cast<unsigned char>(number | more));
            }
            bytes.push_back(static_cast<unsigned char>(number));
        }
    }
    last = entry;
    ++size;
    durationSum += static_cast<std::uint64_t>(entry.duration);
}

}  // namespace Brantel::Tracks
