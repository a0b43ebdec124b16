#include <libTracks/EntryTable.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace Brantel::Tracks {

namespace {

using Entries = std::vector<Engine::ChunkEntry>;

// A stream of equal chunks, as cameras and sound make them, in a ring that is full.
Entries RegularEntries(std::size_t count) {
    Entries entries;
    Engine::ChunkEntry entry;
    entry.timePoint = std::int64_t{1700000000} * 1000000000;
    entry.duration = 40000000;
    entry.ordinal = 123456789;
    entry.front = 122456789;
    entry.offset = 4096;
    entry.length = 256;
    entry.headLength = 130;
    for (std::size_t index = 0; index < count; ++index) {
        entries.push_back(entry);
        entry.timePoint += entry.duration;
        ++entry.ordinal;
        ++entry.front;
        entry.offset += entry.length;
    }
    return entries;
}

// Everything differs from chunk to chunk, the edges of the types included.
Entries WildEntries(std::size_t count) {
    std::mt19937_64 random(7);
    Entries entries;
    std::int64_t time = 0;
    for (std::size_t index = 0; index < count; ++index) {
        Engine::ChunkEntry entry;
        time += 1 + static_cast<std::int64_t>(random() >> (random() % 16 + 40));
        entry.timePoint = time;
        entry.duration = static_cast<std::int64_t>(random() >> (1 + random() % 63));
        entry.ordinal = random() >> random() % 64;
        entry.front = random();
        entry.offset = static_cast<std::uint32_t>(random());
        entry.length = static_cast<std::uint32_t>(random());
        entry.headLength = static_cast<std::uint32_t>(random() >> random() % 64);
        entries.push_back(entry);
    }
    return entries;
}

// Of all sizes, each right behind the one before, but for a pause here and there.
Entries PausedEntries(std::size_t count) {
    Entries entries = RegularEntries(count);
    std::mt19937_64 random(11);
    std::int64_t pause = 0;
    std::uint32_t offset = 4096;
    for (std::size_t index = 0; index < count; ++index) {
        pause += index % 1500 == 1499 ? 3600000000000 : 0;
        entries[index].timePoint += pause;
        entries[index].offset = offset;
        entries[index].length = 256 + 8 * static_cast<std::uint32_t>(random() % 32);
        offset += entries[index].length;
    }
    return entries;
}

// At 30 a second, which no whole number of nanoseconds makes.
Entries UnevenEntries(std::size_t count) {
    Entries entries = RegularEntries(count);
    std::int64_t time = entries[0].timePoint;
    for (std::size_t index = 0; index < count; ++index) {
        entries[index].timePoint = time;
        entries[index].duration = index % 3 == 0 ? 33333334 : 33333333;
        time += entries[index].duration;
    }
    return entries;
}

std::vector<Entries> AllKinds(std::size_t count) {
    return {RegularEntries(count), PausedEntries(count), UnevenEntries(count), WildEntries(count)};
}

void ExpectSame(const EntryTable& table, const Entries& entries) {
    ASSERT_EQ(table.GetSize(), entries.size());
    std::uint64_t sum = 0;
    for (std::size_t index = 0; index < entries.size(); ++index) {
        ASSERT_EQ(table.GetEntry(index), entries[index]) << index;
        ASSERT_EQ(table.GetTimePoint(index), entries[index].timePoint) << index;
        ASSERT_EQ(table.GetDurationBefore(index), sum) << index;
        sum += static_cast<std::uint64_t>(entries[index].duration);
    }
    ASSERT_EQ(table.GetDurationBefore(entries.size()), sum);
}

}  // namespace

TEST(EntryTableTest, EntriesComeBackAsTheyWereAdded) {
    for (const Entries& entries : AllKinds(5000)) {
        ExpectSame(EntryTable(entries), entries);
    }
}

TEST(EntryTableTest, ATableOfAnySizeCanBeAddedTo) {
    for (const Entries& entries : AllKinds(2200)) {
        for (const std::size_t first : {0, 1, 63, 64, 65, 1023, 1024, 1025, 1088, 2111}) {
            EntryTable table(
                {entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(first)});
            for (std::size_t index = first; index < entries.size(); ++index) {
                table.Add(entries[index]);
            }
            ExpectSame(table, entries);
        }
    }
}

TEST(EntryTableTest, WhatIsPackedInBetweenStaysAsItWas) {
    for (const Entries& entries : AllKinds(1200)) {
        EntryTable table;
        for (std::size_t index = 0; index < entries.size(); ++index) {
            table.Add(entries[index]);
            if (index % 37 == 0) {
                table.Pack();
            }
        }
        ExpectSame(table, entries);
    }
}

TEST(EntryTableTest, AnyTimePointOfALargeTableIsFound) {
    for (const Entries& entries : AllKinds(5000)) {
        const EntryTable table(entries);
        for (const std::size_t begin : {std::size_t{0}, std::size_t{777}, std::size_t{2500}}) {
            for (std::size_t index = begin; index < entries.size(); ++index) {
                const std::int64_t time = entries[index].timePoint;
                ASSERT_EQ(table.FindAfter(begin, entries.size(), time), index + 1);
                ASSERT_EQ(table.FindAfter(begin, entries.size(), time - 1), index);
                ASSERT_EQ(table.FindAfter(begin, index + 1, time + 1), index + 1);
            }
        }
    }
}

TEST(EntryTableTest, ACursorWalksFromAnyPlaceToTheEnd) {
    const Entries entries = WildEntries(200);
    const EntryTable table(entries);
    for (std::size_t begin = 0; begin <= entries.size(); begin += 7) {
        std::size_t index = begin;
        for (EntryTable::Cursor cursor(table, begin); cursor.GetIndex() < table.GetSize();
             cursor.Next()) {
            ASSERT_EQ(cursor.GetIndex(), index);
            ASSERT_EQ(cursor.GetEntry(), entries[index]);
            ASSERT_EQ(cursor.GetDurationBefore(), table.GetDurationBefore(index));
            ++index;
        }
        EXPECT_EQ(index, entries.size());
    }
}

TEST(EntryTableTest, DurationsAreSummedUpToEachEntry) {
    const Entries entries = WildEntries(300);
    const EntryTable table(entries);
    std::uint64_t sum = 0;
    for (std::size_t index = 0; index < entries.size(); ++index) {
        ASSERT_EQ(table.GetDurationBefore(index), sum);
        sum += static_cast<std::uint64_t>(entries[index].duration);
    }
    EXPECT_EQ(table.GetDurationBefore(entries.size()), sum);
}

TEST(EntryTableTest, TheFirstEntryAfterATimePointIsFoundInEachStretch) {
    const Entries entries = WildEntries(150);
    const EntryTable table(entries);
    for (std::size_t begin = 0; begin <= entries.size(); begin += 5) {
        for (std::size_t end = begin; end <= entries.size(); end += 9) {
            for (std::size_t near = 0; near < entries.size(); near += 3) {
                for (const std::int64_t time :
                     {entries[near].timePoint - 1, entries[near].timePoint}) {
                    std::size_t expected = begin;
                    while (expected < end && entries[expected].timePoint <= time) {
                        ++expected;
                    }
                    ASSERT_EQ(table.FindAfter(begin, end, time), expected)
                        << begin << ' ' << end << ' ' << near;
                }
            }
        }
    }
}

TEST(EntryTableTest, AChunkOfARegularStreamTakesAFewBytes) {
    constexpr std::size_t count = 31250;  // in an open segment of a track with a million
    EntryTable table;
    for (const Engine::ChunkEntry& entry : RegularEntries(count)) {
        table.Add(entry);
    }
    EXPECT_LT(table.GetMemory(), 4 * count);
    EXPECT_LT(EntryTable(RegularEntries(count)).GetMemory(), 2 * count);
    EXPECT_LT(EntryTable(PausedEntries(count)).GetMemory(), 3 * count);
    RecordProperty("bytesForEachOpenChunk", std::to_string(table.GetMemory() / count));
}

TEST(EntryTableTest, RoomThatWasMadeIsEnoughForTheLargestEntry) {
    Engine::ChunkEntry low;
    Engine::ChunkEntry high;
    high.timePoint = std::numeric_limits<std::int64_t>::max();
    high.duration = std::numeric_limits<std::int64_t>::max() / 2;
    high.ordinal = high.front = std::uint64_t{1} << 63U;
    high.offset = high.length = high.headLength = std::numeric_limits<std::uint32_t>::max();
    EntryTable table;
    for (int round = 0; round < 200; ++round) {
        table.ReserveOne();
        const std::size_t before = table.GetMemory();
        table.Add(round % 2 == 0 ? high : low);
        ASSERT_EQ(table.GetMemory(), before);
    }
    EXPECT_EQ(table.GetEntry(198), high);
    EXPECT_EQ(table.GetEntry(199), low);
}

}  // namespace Brantel::Tracks
