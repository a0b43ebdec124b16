#include "Conformance/EngineConformanceTest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Brantel::Engine {

namespace {

// A text of `size` bytes that differs at every place from those of other seeds.
std::string Bytes(std::size_t size, unsigned seed) {
    std::string bytes(size, '\0');
    for (std::size_t index = 0; index < size; ++index) {
        bytes[index] = static_cast<char>(seed * 37 + index * 11 + (index >> 8U));
    }
    return bytes;
}

}  // namespace

TEST_P(EngineConformanceTest, ASegmentNeedsReservedSpace) {
    EXPECT_ENGINE_ERROR(Engine().CreateSegment(Ring(1), 1), Refused);
}

TEST_P(EngineConformanceTest, SegmentsOfBothLogsShareTheReservation) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    Engine().CreateSegment(Held(1), 1);
    EXPECT_ENGINE_ERROR(Engine().CreateSegment(Ring(2), 1), NoSpace);
    EXPECT_ENGINE_ERROR(Engine().CreateSegment(Ring(1), 1), Refused);
}

TEST_P(EngineConformanceTest, AppendedChunksAreReadAsTheyWere) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    const std::vector<std::vector<std::string>> chunks{
        {"m"}, {"", ""}, {"meta", Bytes(100, 1), "", Bytes(70000, 2)}, {Bytes(5000, 3), "x"}};
    std::vector<ChunkEntry> entries;
    for (std::size_t index = 0; index < chunks.size(); ++index) {
        entries.push_back(Append(Ring(1), static_cast<std::int64_t>(index), chunks[index]));
    }
    for (std::size_t index = 0; index < chunks.size(); ++index) {
        EXPECT_EQ(Read(Ring(1), entries[index]), chunks[index]);
    }
}

TEST_P(EngineConformanceTest, AChunkWhosePartsMayBeTakenIsReadAsItWas) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    const std::vector<std::string> sent{"meta",          Bytes(100, 1),     "",
                                        Bytes(20000, 2), Bytes(300'000, 3), Bytes(600'000, 4)};
    std::vector<std::string> parts = sent;
    const ChunkEntry entry = AppendTaking(Ring(1), 5, parts);
    for (std::size_t part = 0; part < parts.size(); ++part) {
        EXPECT_TRUE(parts[part].empty() || parts[part] == sent[part]) << part;
        parts[part].assign(sent[part].size(), 'z');
    }
    EXPECT_EQ(Read(Ring(1), entry), sent);
    EXPECT_EQ(parts[0], "zzzz");
}

TEST_P(EngineConformanceTest, AnAppendThatFailsTakesNothing) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    Append(Ring(1), 1, {"m"});
    Engine().Seal(Ring(1), 1, 1);
    const std::vector<std::string> sent{"meta", Bytes(20000, 2)};
    std::vector<std::string> parts = sent;
    EXPECT_ENGINE_ERROR(AppendTaking(Ring(1), 5, parts), Closed);
    EXPECT_EQ(parts, sent);
}

TEST_P(EngineConformanceTest, OnlyTheWantedPartsAreRead) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    const ChunkEntry entry = Append(Ring(1), 5, {"m", "one", "two", "three"});
    CollectingSink sink(std::set<std::size_t>{2});
    Engine().ReadChunk(Ring(1), entry, sink);
    EXPECT_EQ(sink.parts, (std::vector<std::string>{"m", "", "two", ""}));
    EXPECT_EQ(sink.partSizes, (std::vector<std::uint32_t>{1, 3, 3, 5}));
}

TEST_P(EngineConformanceTest, AChunkOfManyPartsIsKept) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    std::vector<std::string> parts{"m"};
    for (int part = 0; part < 3000; ++part) {
        parts.push_back(std::to_string(part));
    }
    const ChunkEntry entry = Append(Ring(1), 5, parts);
    EXPECT_EQ(Read(Ring(1), entry), parts);
}

TEST_P(EngineConformanceTest, ASegmentTakesExactlyWhatTheLayoutSays) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    const std::uint64_t room =
        ChunkLayout::Usable(segmentSize) - ChunkLayout::indexEntrySize - ChunkLayout::Length(1, 0);
    const std::string tooMuch(room + ChunkLayout::alignment, 'x');
    EXPECT_ENGINE_ERROR(Append(Ring(1), 5, {tooMuch}), NoSpace);

    const std::string exact(room, 'y');
    const ChunkEntry entry = Append(Ring(1), 5, {exact});
    EXPECT_ENGINE_ERROR(Append(Ring(1), 6, {""}), NoSpace);
    Engine().Seal(Ring(1), 1, 1);
    EXPECT_EQ(Read(Ring(1), entry), (std::vector<std::string>{exact}));
    EXPECT_EQ(Engine().ReadEntries(Ring(1)), (std::vector<ChunkEntry>{entry}));
}

TEST_P(EngineConformanceTest, ASegmentFullOfTheSmallestChunksCanBeSealed) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    const std::uint64_t count =
        ChunkLayout::Usable(segmentSize) / ChunkLayout::Cost(ChunkLayout::Length(1, 0));
    ChunkEntry entry;
    for (std::uint64_t index = 0; index < count; ++index) {
        entry.timePoint = static_cast<std::int64_t>(index);
        entry.ordinal = index;
        entry.offset = index == 0 ? ChunkLayout::segmentHeaderSize : entry.offset + entry.length;
        const std::string_view nothing;
        ChunkLayout::SetLengths(entry, std::span(&nothing, 1));
        Engine().Append(Ring(1), 1, entry, std::span(&nothing, 1),
                        Durability{Durability::Mode::Os, {}});
    }
    EXPECT_ENGINE_ERROR(Append(Ring(1), 1 << 30, {""}), NoSpace);
    Engine().Seal(Ring(1), 1, count);
    harness->Restart();
    const std::vector<ChunkEntry> entries = Engine().ReadEntries(Ring(1));
    ASSERT_EQ(entries.size(), count);
    EXPECT_EQ(entries.back(), entry);
}

TEST_P(EngineConformanceTest, AChunkMustLieAtTheEndOfTheSegmentAndItsLengthsMustFit) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    ChunkEntry entry = Append(Ring(1), 5, {"m"});
    const std::vector<std::string_view> parts{"m"};
    EXPECT_ENGINE_ERROR(Engine().Append(Ring(1), 1, entry, parts, {}), Refused);
    entry.offset += entry.length;
    ++entry.length;
    EXPECT_ENGINE_ERROR(Engine().Append(Ring(1), 1, entry, parts, {}), Refused);
    EXPECT_EQ(Info(Ring(1))->count, 1U);
    Append(Ring(1), 6, {"still usable"});
}

TEST_P(EngineConformanceTest, ASegmentListsWhatItHolds) {
    Reserve(3);
    Engine().CreateSegment(Held(4), 1);
    Engine().CreateSegment(Ring(2), 1);
    const ChunkEntry first = Append(Ring(2), 5, {"m"});
    const ChunkEntry last = Append(Ring(2), 9, {"m", "d"});
    const std::vector<SegmentInfo> list = Engine().ListSegments(track);
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].id, Ring(2));
    EXPECT_EQ(list[0].count, 2U);
    EXPECT_EQ(list[0].end, last.offset + last.length);
    EXPECT_EQ(list[0].durationSum, 20U);
    EXPECT_EQ(list[0].first, first);
    EXPECT_EQ(list[0].last, last);
    EXPECT_FALSE(list[0].sealed);
    EXPECT_EQ(list[1].id, Held(4));
    EXPECT_EQ(list[1].count, 0U);
    EXPECT_EQ(list[1].end, ChunkLayout::segmentHeaderSize);
}

TEST_P(EngineConformanceTest, AnOpenAndASealedSegmentGiveTheSameEntries) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    std::vector<ChunkEntry> entries;
    for (int index = 0; index < 300; ++index) {
        entries.push_back(Append(Ring(1), index, {"m", Bytes(200, 1)}, Durability::Mode::Os));
    }
    EXPECT_EQ(Engine().ReadEntries(Ring(1)), entries);
    Engine().Seal(Ring(1), 1, entries.size());
    EXPECT_EQ(Engine().ReadEntries(Ring(1)), entries);
    harness->Restart();
    EXPECT_EQ(Engine().ReadEntries(Ring(1)), entries);
}

TEST_P(EngineConformanceTest, ASealedSegmentTakesNoChunk) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    Append(Ring(1), 5, {"m"});
    Engine().Seal(Ring(1), 1, 1);
    Engine().Seal(Ring(1), 1, 1);
    EXPECT_ENGINE_ERROR(Append(Ring(1), 6, {"m"}), Closed);
    EXPECT_TRUE(Info(Ring(1))->sealed);
}

TEST_P(EngineConformanceTest, AnEmptySegmentCanBeSealed) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    Engine().Seal(Ring(1), 1, 0);
    EXPECT_TRUE(Engine().ReadEntries(Ring(1)).empty());
}

TEST_P(EngineConformanceTest, SealingDropsTheChunksBehindTheCount) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    const ChunkEntry kept = Append(Ring(1), 5, {"m"});
    Append(Ring(1), 6, {"dropped"});
    EXPECT_ENGINE_ERROR(Engine().Seal(Ring(1), 1, 3), Refused);
    Engine().Seal(Ring(1), 1, 1);
    harness->Crash();
    EXPECT_EQ(Engine().ReadEntries(Ring(1)), (std::vector<ChunkEntry>{kept}));
    EXPECT_EQ(Info(Ring(1))->durationSum, 10U);
    EXPECT_EQ(Info(Ring(1))->last, kept);
}

TEST_P(EngineConformanceTest, ARemovedSegmentIsGoneAndItsSpaceIsUsedAgain) {
    Reserve(1);
    Engine().CreateSegment(Ring(1), 1);
    const ChunkEntry entry = Append(Ring(1), 5, {"m", Bytes(5000, 1)});
    Engine().RemoveSegment(Ring(1), 1, 0);
    Engine().RemoveSegment(Ring(1), 1, 0);
    EXPECT_ENGINE_ERROR(Read(Ring(1), entry), Gone);
    EXPECT_ENGINE_ERROR(Engine().ReadEntries(Ring(1)), Gone);

    Engine().CreateSegment(Ring(2), 1);
    EXPECT_EQ(Info(Ring(2))->count, 0U);
    const ChunkEntry other = Append(Ring(2), 6, {"n", Bytes(10, 2)});
    EXPECT_EQ(Read(Ring(2), other), (std::vector<std::string>{"n", Bytes(10, 2)}));
    EXPECT_ENGINE_ERROR(Read(Ring(1), entry), Gone);
    harness->Crash();
    EXPECT_EQ(Engine().ReadEntries(Ring(2)), (std::vector<ChunkEntry>{other}));
    EXPECT_FALSE(Info(Ring(1)).has_value());
}

TEST_P(EngineConformanceTest, WhereTheRingBeginsIsKeptWithTheSpaceOfWhatWasRemoved) {
    Reserve(3);
    EXPECT_EQ(Engine().GetRingFront(track), 0U);
    for (std::uint64_t number = 1; number <= 3; ++number) {
        Engine().CreateSegment(Ring(number), 1);
        Append(Ring(number), static_cast<std::int64_t>(number), {"m"});
    }
    Engine().RemoveSegment(Ring(1), 1, 4);
    Engine().RemoveSegment(Ring(2), 1, 2);
    Engine().CreateSegment(Ring(4), 1);
    EXPECT_EQ(Engine().GetRingFront(track), 4U);
    harness->Crash();
    EXPECT_EQ(Engine().GetRingFront(track), 4U);
    Engine().CreateSegment(Ring(5), 1);
    harness->Restart();
    EXPECT_EQ(Engine().GetRingFront(track), 4U);
    CountingProgress progress;
    Engine().Release(track, progress);
    EXPECT_EQ(Engine().GetRingFront(track), 0U);
}

TEST_P(EngineConformanceTest, AnOpenSegmentGoesOnAfterARestartAndACrash) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    std::vector<ChunkEntry> entries{Append(Ring(1), 5, {"m", Bytes(5000, 1)})};
    harness->Restart();
    EXPECT_EQ(Engine().Claim(Ring(1), 2).count, 1U);
    entries.push_back(Append(Ring(1), 6, {"n", Bytes(300, 2)}, Durability::Mode::Os, 2));
    harness->Crash();
    EXPECT_EQ(Engine().Claim(Ring(1), 3).end, entries[1].offset + entries[1].length);
    entries.push_back(Append(Ring(1), 7, {"o"}, Durability::Mode::Interval, 3));
    EXPECT_EQ(Engine().ReadEntries(Ring(1)), entries);
    EXPECT_EQ(Read(Ring(1), entries[0]), (std::vector<std::string>{"m", Bytes(5000, 1)}));
    EXPECT_EQ(Read(Ring(1), entries[1]), (std::vector<std::string>{"n", Bytes(300, 2)}));
    EXPECT_EQ(Read(Ring(1), entries[2]), (std::vector<std::string>{"o"}));
}

TEST_P(EngineConformanceTest, ANewerEpochFencesAnOlderOneOut) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    Append(Ring(1), 5, {"m"});
    Engine().Claim(Ring(1), 2);
    EXPECT_ENGINE_ERROR(Append(Ring(1), 6, {"m"}), Fenced);
    EXPECT_ENGINE_ERROR(Engine().Seal(Ring(1), 1, 1), Fenced);
    EXPECT_ENGINE_ERROR(Engine().RemoveSegment(Ring(1), 1, 0), Fenced);
    EXPECT_ENGINE_ERROR(Engine().Claim(Ring(1), 1), Fenced);
    Append(Ring(1), 6, {"m"}, Durability::Mode::Always, 2);
    EXPECT_EQ(Info(Ring(1))->epoch, 2U);
}

TEST_P(EngineConformanceTest, EveryDurabilityIsReadBackAtOnceAndAfterACrashOfTheProcess) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    std::vector<ChunkEntry> entries;
    for (const auto mode :
         {Durability::Mode::Always, Durability::Mode::Interval, Durability::Mode::Os}) {
        const auto number = static_cast<std::int64_t>(entries.size());
        entries.push_back(Append(Ring(1), number, {"m", Bytes(9000, 4)}, mode));
        EXPECT_EQ(Read(Ring(1), entries.back()), (std::vector<std::string>{"m", Bytes(9000, 4)}));
    }
    Engine().Flush(Ring(1));
    harness->Crash();
    EXPECT_EQ(Engine().ReadEntries(Ring(1)), entries);
}

TEST_P(EngineConformanceTest, ADamagedPartCostsOnlyReadsThatWantIt) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    const ChunkEntry before = Append(Ring(1), 5, {"m", "before"});
    const ChunkEntry hit = Append(Ring(1), 6, {"m", "one", "two"});
    const ChunkEntry after = Append(Ring(1), 7, {"m", "after"});
    harness->DamageChunk(Ring(1), hit, 2);
    EXPECT_EQ(Read(Ring(1), before)[1], "before");
    EXPECT_EQ(Read(Ring(1), after)[1], "after");
    EXPECT_EQ(Read(Ring(1), hit, std::set<std::size_t>{1})[1], "one");
    EXPECT_ENGINE_ERROR(Read(Ring(1), hit), Damaged);
}

TEST_P(EngineConformanceTest, ADamagedFirstPartIsAnErrorForEveryRead) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    const ChunkEntry hit = Append(Ring(1), 6, {"m", "one"});
    harness->DamageChunk(Ring(1), hit, 0);
    EXPECT_ENGINE_ERROR(Read(Ring(1), hit, std::set<std::size_t>{}), Damaged);
}

TEST_P(EngineConformanceTest, VerifyNamesEachDamagedChunkAndChangesNothing) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    Append(Ring(1), 5, {"m", "before"});
    const ChunkEntry hit = Append(Ring(1), 6, {"m", Bytes(10000, 1)});
    const ChunkEntry last = Append(Ring(1), 7, {"m", "after"});
    Engine().Seal(Ring(1), 1, 3);
    CollectingObserver clean;
    Engine().Verify(Ring(1), 0, clean);
    EXPECT_TRUE(clean.damages.empty());

    harness->DamageChunk(Ring(1), hit, 1);
    CollectingObserver observer;
    Engine().Verify(Ring(1), 0, observer);
    ASSERT_EQ(observer.damages.size(), 1U);
    EXPECT_EQ(observer.damages[0].segment, Ring(1));
    EXPECT_EQ(observer.damages[0].chunk, hit);
    EXPECT_NE(observer.damages[0].text.find(Engine().Describe(Ring(1))), std::string::npos);

    CollectingObserver behind;
    Engine().Verify(Ring(1), last.offset, behind);
    EXPECT_TRUE(behind.damages.empty());
    EXPECT_EQ(Info(Ring(1))->count, 3U);
}

TEST_P(EngineConformanceTest, VerifyingARemovedSegmentEndsWithoutAnError) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    Engine().RemoveSegment(Ring(1), 1, 0);
    CollectingObserver observer;
    Engine().Verify(Ring(1), 0, observer);
    EXPECT_TRUE(observer.damages.empty());
}

TEST_P(EngineConformanceTest, ManyTracksAndSegmentsAreKeptApart) {
    for (TrackId id = 1; id <= 3; ++id) {
        Reserve(3, id);
        for (const LogKind log : {LogKind::Ring, LogKind::Held}) {
            const SegmentId segment{id, log, 1};
            Engine().CreateSegment(segment, 1);
            Append(segment, id, {std::to_string(id) + (log == LogKind::Ring ? "r" : "h")});
        }
    }
    harness->Restart();
    for (TrackId id = 1; id <= 3; ++id) {
        for (const SegmentInfo& info : Engine().ListSegments(id)) {
            EXPECT_EQ(Read(info.id, info.first)[0],
                      std::to_string(id) + (info.id.log == LogKind::Ring ? "r" : "h"));
        }
    }
}

}  // namespace Brantel::Engine
