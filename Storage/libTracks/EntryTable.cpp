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

// The last block of (first, last] that begins at or before the time point, or `first`.
std::size_t EntryTable::FindBlock(std::size_t first, std::size_t last,
                                  std::int64_t timePoint) const {
    const std::int64_t from = blocks[first].timePoint;
    const std::int64_t to = blocks[last].timePoint;
    if (first == last || timePoint <= from) {
        return first;
    }
    if (timePoint >= to) {
        return last;
    }
    // `low` begins at or before it, `high` behind it. The first look is where it lies in a regular
    // stream; from there in steps that double, until it is between two looks.
    std::size_t low = first;
    std::size_t high = last;
    const auto distance = [from](std::int64_t time) {
        return static_cast<double>(static_cast<std::uint64_t>(time) -
                                   static_cast<std::uint64_t>(from));
    };
    const double share = distance(timePoint) / distance(to);
    const std::size_t guess =
        std::clamp(first + static_cast<std::size_t>(share * static_cast<double>(last - first)),
                   first, last - 1);
    const bool isBehind = blocks[guess].timePoint <= timePoint;
    (isBehind ? low : high) = guess;
    for (std::size_t stride = 1; low + stride < high; stride *= 2) {
        const std::size_t look = isBehind ? low + stride : high - stride;
        const bool isLow = blocks[look].timePoint <= timePoint;
        (isLow ? low : high) = look;
        if (isLow != isBehind) {
            break;
        }
    }
    while (high - low > 1) {
        const std::size_t middle = low + (high - low) / 2;
        (blocks[middle].timePoint <= timePoint ? low : high) = middle;
    }
    return low;
}

EntryTable::Cursor EntryTable::SeekAfter(std::size_t begin, std::size_t end,
                                         std::int64_t timePoint) const {
    const std::size_t block = FindBlock(begin / blockSize, (end - 1) / blockSize, timePoint);
    Cursor cursor(*this, std::max(begin, block * blockSize));
    while (cursor.GetIndex() < end && cursor.GetEntry().timePoint <= timePoint) {
        cursor.Next();
    }
    return cursor;
}

std::optional<ChunkEntry> EntryTable::FindUpTo(std::size_t begin, std::size_t end,
                                               std::int64_t timePoint) const {
    std::optional<ChunkEntry> found;
    if (begin >= end) {
        return found;
    }
    const std::size_t block = FindBlock(begin / blockSize, (end - 1) / blockSize, timePoint);
    Cursor cursor(*this, std::max(begin, block * blockSize));
    while (cursor.GetIndex() < end && cursor.GetEntry().timePoint <= timePoint) {
        found = cursor.GetEntry();
        cursor.Next();
    }
    return found;
}

void EntryTable::ReserveOne() {
    constexpr std::size_t fewBytes = 512;
    constexpr std::size_t fewBlocks = 8;
    if (bytes.capacity() - bytes.size() < longestEntry) {
        bytes.reserve(std::max(fewBytes, bytes.size() + bytes.size() / 2));
    }
    const std::size_t moreBlocks = std::max(fewBlocks, blocks.size() + blocks.size() / 2);
    if (blocks.size() == blocks.capacity()) {
        blocks.reserve(moreBlocks);
    }
}

void EntryTable::Add(const ChunkEntry& entry) {
    ReserveOne();
    if (size % blockSize == 0) {
        blocks.push_back(Block{entry.timePoint, durationSum, bytes.size()});
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
