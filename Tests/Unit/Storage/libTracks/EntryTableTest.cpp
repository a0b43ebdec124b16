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

}  // namespace

TEST(EntryTableTest, EntriesComeBackAsTheyWereAdded) {
    for (const Entries& entries : {RegularEntries(1000), WildEntries(1000)}) {
        const EntryTable table(entries);
        ASSERT_EQ(table.GetSize(), entries.size());
        for (std::size_t index = 0; index < entries.size(); ++index) {
            ASSERT_EQ(table.GetEntry(index), entries[index]) << index;
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
    EXPECT_LT(table.GetMemory(), 8 * count);
    EXPECT_LT(EntryTable(RegularEntries(count)).GetMemory(), 5 * count);
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
