#include "Local/EntryLog.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace Brantel::Engine {

namespace {

constexpr unsigned groupBits = 7;
constexpr unsigned groupMask = 0x7f;
constexpr unsigned moreGroups = 0x80;
constexpr std::size_t fieldCount = 7;
constexpr std::size_t maxEncodedSize = 1 + fieldCount * 10;
constexpr unsigned estimatedBit = 1U << fieldCount;

using Fields = std::array<std::uint64_t, fieldCount>;

Fields Split(const ChunkEntry& entry) {
    return {static_cast<std::uint64_t>(entry.timePoint),
            static_cast<std::uint64_t>(entry.duration),
            entry.ordinal,
            entry.front,
            entry.offset,
            entry.length,
            entry.headLength};
}

ChunkEntry Join(const Fields& fields) {
    return {static_cast<std::int64_t>(fields[0]),
            static_cast<std::int64_t>(fields[1]),
            fields[2],
            fields[3],
            static_cast<std::uint32_t>(fields[4]),
            static_cast<std::uint32_t>(fields[5]),
            static_cast<std::uint32_t>(fields[6])};
}

// What the entry after `last` most probably is: contiguous in time and place, and alike.
Fields Expect(const ChunkEntry& last) {
    Fields fields = Split(last);
    fields[0] += fields[1];
    ++fields[2];
    fields[4] += fields[5];
    return fields;
}

}  // namespace

void EntryLog::ReserveOne() {
    if (bytes.capacity() - bytes.size() < maxEncodedSize) {
        bytes.reserve(std::max(bytes.size() + bytes.size() / 2, bytes.size() + 4 * maxEncodedSize));
    }
}

void EntryLog::Add(const ChunkEntry& entry, bool estimated) noexcept {
    const Fields values = Split(entry);
    const Fields expected = Expect(last);
    const std::size_t flagsPlace = bytes.size();
    unsigned flags = estimated ? estimatedBit : 0U;
    bytes.push_back(0);
    for (std::size_t field = 0; field < fieldCount; ++field) {
        const std::uint64_t difference = values[field] - expected[field];
        if (difference == 0) {
            continue;
        }
        flags |= 1U << field;
        const bool negative = static_cast<std::int64_t>(difference) < 0;
        std::uint64_t rest = (difference << 1U) ^ (negative ? UINT64_MAX : 0);
        while (rest > groupMask) {
            bytes.push_back(static_cast<unsigned char>((rest & groupMask) | moreGroups));
            rest >>= groupBits;
        }
        bytes.push_back(static_cast<unsigned char>(rest));
    }
    bytes[flagsPlace] = static_cast<unsigned char>(flags);
    last = entry;
    ++count;
}

std::vector<SegmentFormat::Entry> EntryLog::Get(std::size_t number) const {
    std::vector<SegmentFormat::Entry> entries;
    entries.reserve(number);
    const unsigned char* place = bytes.data();
    ChunkEntry entry;
    while (entries.size() < number) {
        Fields values = Expect(entry);
        const unsigned flags = *place++;
        for (std::size_t field = 0; field < fieldCount; ++field) {
            if ((flags & (1U << field)) == 0) {
                continue;
            }
            std::uint64_t zigzag = 0;
            unsigned shift = 0;
            do {
                zigzag |= static_cast<std::uint64_t>(*place & groupMask) << shift;
                shift += groupBits;
            } while ((*place++ & moreGroups) != 0);
            values[field] += (zigzag >> 1U) ^ ((zigzag & 1U) != 0 ? UINT64_MAX : 0);
        }
        entry = Join(values);
        entries.push_back(SegmentFormat::Pack(entry, (flags & estimatedBit) != 0));
    }
    return entries;
}

}  // namespace Brantel::Engine
