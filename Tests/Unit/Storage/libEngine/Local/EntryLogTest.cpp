#include <libEngine/Local/EntryLog.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace Brantel::Engine {
namespace {

class EntryLogTest : public testing::Test {
  protected:
    void Add(const ChunkEntry& entry, bool estimated = false) {
        log.ReserveOne();
        log.Add(entry, estimated);
        added.push_back(entry);
    }
    std::vector<ChunkEntry> All() const {
        std::vector<ChunkEntry> entries;
        for (const SegmentFormat::Entry& entry : log.Get(log.GetCount())) {
            entries.push_back(SegmentFormat::Unpack(entry));
        }
        return entries;
    }

    EntryLog log;
    std::vector<ChunkEntry> added;
};

TEST_F(EntryLogTest, EntriesComeBackAsTheyWere) {
    std::mt19937_64 random(1);
    for (int index = 0; index < 2000; ++index) {
        Add({static_cast<std::int64_t>(random() >> (random() % 64)),
             static_cast<std::int64_t>(random() >> (random() % 64)), random(), random(),
             static_cast<std::uint32_t>(random()), static_cast<std::uint32_t>(random()),
             static_cast<std::uint32_t>(random())});
    }
    EXPECT_EQ(All(), added);
}

TEST_F(EntryLogTest, ExtremeValuesComeBack) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    Add({most, most, UINT64_MAX, UINT64_MAX, UINT32_MAX, UINT32_MAX, UINT32_MAX});
    Add({0, 0, 0, 0, 0, 0, 0});
    Add({std::numeric_limits<std::int64_t>::min(), -1, 1, 1, 1, 1, 1});
    EXPECT_EQ(All(), added);
}

TEST_F(EntryLogTest, EstimatedOnesAreMarked) {
    Add({1, 1, 1, 1, 1, 1, 1});
    Add({2, 1, 2, 1, 2, 1, 1}, true);
    const std::vector<SegmentFormat::Entry> entries = log.Get(2);
    EXPECT_EQ(entries[0].estimated, 0U);
    EXPECT_EQ(entries[1].estimated, 1U);
}

TEST_F(EntryLogTest, OnlyTheFirstOnesCanBeAsked) {
    for (std::uint64_t index = 0; index < 10; ++index) {
        Add({static_cast<std::int64_t>(index), 1, index, 0, 4096, 96, 96});
    }
    EXPECT_EQ(log.Get(4).size(), 4U);
    EXPECT_EQ(SegmentFormat::Unpack(log.Get(4).back()), added[3]);
    EXPECT_TRUE(log.Get(0).empty());
}

TEST_F(EntryLogTest, ARegularStreamTakesFewBytes) {
    constexpr std::uint64_t count = 100000;
    for (std::uint64_t index = 0; index < count; ++index) {
        // Frames of 1/25 s of a size that varies, in a ring that drops one for each.
        const auto offset = static_cast<std::uint32_t>(4096 + index * 2048);
        Add({static_cast<std::int64_t>(index) * 40000000, 40000000, index, index / 2, offset,
             static_cast<std::uint32_t>(2000 + index % 13 * 8), 150});
    }
    EXPECT_LT(log.GetMemory(), count * 12);
}

}  // namespace
}  // namespace Brantel::Engine
