#include "Support/LocalStoreTest.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace Brantel::Engine {
namespace {

class SlotLoaderTest : public LocalStoreTest {
  protected:
    void SetUp() override {
        Open();
        Reserve(1);
    }
    // Fills the only slot with chunks of equal length, so that those of each lap lie at the same
    // places, and removes the segment.
    void Lap(std::uint64_t number, int chunks) {
        engine->CreateSegment(Ring(number), 1);
        for (int index = 0; index < chunks; ++index) {
            Append(Ring(number), index, {"m", Bytes(900, static_cast<unsigned>(number))});
        }
    }
    // Opens the store as it lies on the disk now, without the engine's end.
    void Crash() {
        const std::string copy = folder.File("copy" + std::to_string(++copies));
        std::filesystem::copy(options.directory, copy, std::filesystem::copy_options::recursive);
        Close();
        options.directory = copy;
        Open();
    }

    int copies = 0;
};

TEST_F(SlotLoaderTest, ChunksOfAnEarlierLapNeverAppear) {
    Lap(1, 40);
    engine->RemoveSegment(Ring(1), 1, 0);
    for (int chunks = 0; chunks < 12; ++chunks) {
        const std::uint64_t number = static_cast<std::uint64_t>(chunks) + 2;
        Lap(number, chunks);
        Crash();
        EXPECT_EQ(Info(Ring(number)).count, static_cast<std::uint64_t>(chunks));
        EXPECT_EQ(engine->ListSegments(track).size(), 1U);
        engine->RemoveSegment(Ring(number), 1, 0);
    }
    EXPECT_TRUE(Reports().empty());
}

TEST_F(SlotLoaderTest, ASegmentIsNoFileMore) {
    const auto count = [this] {
        std::vector<std::string> names;
        for (const auto& entry :
             std::filesystem::directory_iterator(options.directory + "/tracks/7")) {
            names.push_back(entry.path().filename());
        }
        return names;
    };
    const std::vector<std::string> before = count();
    for (std::uint64_t number = 1; number < 5; ++number) {
        Lap(number, 10);
        engine->Seal(Ring(number), 1, 10);
        engine->RemoveSegment(Ring(number), 1, 0);
    }
    EXPECT_EQ(count(), before);
    EXPECT_EQ(std::filesystem::file_size(SlotPath(0)), segmentSize);
}

TEST_F(SlotLoaderTest, AWriterAfterACrashIsNotContinuedByWhatWasLeftBehindTheCut) {
    engine->CreateSegment(Ring(1), 1);
    std::vector<ChunkEntry> entries;
    for (int index = 0; index < 6; ++index) {
        entries.push_back(Append(Ring(1), index, {"m", Bytes(4000, 1)}));
    }
    Close();
    // The power failed: the third chunk never reached the disk, those behind it did. The index
    // that the clean end left is not there either.
    WriteAt(SlotPath(0), entries[2].offset, std::string(entries[2].length, '\0'));
    WriteAt(SlotPath(0), segmentSize - 4096, std::string(4096, '\0'));
    Open();
    EXPECT_EQ(Entries(Ring(1)), std::vector(entries.begin(), entries.begin() + 2));
    engine->Claim(Ring(1), 2);
    const ChunkEntry fresh =
        Append(Ring(1), 50, {"m", Bytes(4000, 9)}, Durability::Mode::Always, 2);
    EXPECT_EQ(fresh.offset, entries[2].offset);
    Crash();
    EXPECT_EQ(Entries(Ring(1)), (std::vector<ChunkEntry>{entries[0], entries[1], fresh}));
    EXPECT_TRUE(Reports().empty());
}

TEST_F(SlotLoaderTest, AHeaderThatWasNotWrittenYetLeavesTheNewSegmentByItsFooter) {
    Lap(1, 3);
    const std::string oldHeader = ReadFile(SlotPath(0)).substr(0, 4096);
    engine->RemoveSegment(Ring(1), 1, 0);
    Lap(2, 2);
    WriteAt(SlotPath(0), 0, oldHeader);
    Crash();
    ASSERT_EQ(engine->ListSegments(track).size(), 1U);
    EXPECT_EQ(Info(Ring(2)).count, 2U);
}

TEST_F(SlotLoaderTest, AFooterThatWasNotWrittenYetLeavesTheNewSegmentByItsHeader) {
    Lap(1, 3);
    engine->Seal(Ring(1), 1, 3);
    const std::string oldFooter = ReadFile(SlotPath(0)).substr(segmentSize - 4096);
    engine->RemoveSegment(Ring(1), 1, 0);
    Lap(2, 2);
    WriteAt(SlotPath(0), segmentSize - 4096, oldFooter);
    Crash();
    ASSERT_EQ(engine->ListSegments(track).size(), 1U);
    EXPECT_EQ(Info(Ring(2)).count, 2U);
    EXPECT_FALSE(Info(Ring(2)).sealed);
}

TEST_F(SlotLoaderTest, ASegmentThatWasOnlyBeingStartedIsNoDamage) {
    std::vector<std::string> notes;
    options.note = [&notes](const std::string& text) { notes.push_back(text); };
    Lap(1, 2);
    WriteAt(SlotPath(0), 0, std::string(4096, '\0'));
    Crash();
    EXPECT_EQ(Info(Ring(1)).count, 2U);
    EXPECT_TRUE(Info(Ring(1)).mayFollowLoss);
    EXPECT_TRUE(Reports().empty());
    EXPECT_EQ(notes,
              std::vector<std::string>{
                  SlotPath(0) + ": a segment was being started, 2 unflushed chunks are there"});
}

// The server after the crash flushes what it finds, and goes on. It writes the header, too, but
// nothing says that this has reached the medium when the power fails again.
TEST_F(SlotLoaderTest, ASegmentThatIsFoundWithoutAHeaderIsOnlyBeingStartedUntilItIsFlushed) {
    const std::string zeros(4096, '\0');
    Lap(1, 2);
    WriteAt(SlotPath(0), 0, zeros);
    Crash();
    engine->Claim(Ring(1), 2);
    Append(Ring(1), 50, {"m"}, Durability::Mode::Os, 2);
    WriteAt(SlotPath(0), 0, zeros);
    Crash();
    EXPECT_EQ(Info(Ring(1)).count, 3U);
    EXPECT_TRUE(Info(Ring(1)).mayFollowLoss);
    EXPECT_TRUE(Reports().empty());
    Append(Ring(1), 60, {"m"}, Durability::Mode::Always, 2);
    Append(Ring(1), 70, {"m"}, Durability::Mode::Always, 2);
    WriteAt(SlotPath(0), 0, zeros);
    Crash();
    EXPECT_EQ(Info(Ring(1)).count, 5U);
    EXPECT_EQ(Reports().size(), 1U);
}

TEST_F(SlotLoaderTest, ASegmentThatIsFoundWithoutAHeaderHasOneWhenItIsSealed) {
    Lap(1, 2);
    WriteAt(SlotPath(0), 0, std::string(4096, '\0'));
    Crash();
    engine->Seal(Ring(1), 1, 0);
    Crash();
    EXPECT_TRUE(Info(Ring(1)).sealed);
    EXPECT_TRUE(Reports().empty());
}

TEST_F(SlotLoaderTest, AHeaderThatIsLostBehindAFlushIsDamage) {
    engine->CreateSegment(Ring(1), 1);
    Append(Ring(1), 1, {"m"}, Durability::Mode::Always);
    Append(Ring(1), 2, {"m"}, Durability::Mode::Always);
    WriteAt(SlotPath(0), 0, std::string(4096, '\0'));
    Crash();
    EXPECT_EQ(Info(Ring(1)).count, 2U);
    EXPECT_FALSE(Info(Ring(1)).mayFollowLoss);
    EXPECT_EQ(Reports(), std::vector<std::string>{SlotPath(0) +
                                                  ": the header is damaged, the footer is used"});
}

TEST_F(SlotLoaderTest, ASegmentThatExistsTwiceIsTheNewerOne) {
    Reserve(2);
    Lap(1, 3);
    Crash();
    const std::string older = ReadFile(SlotPath(0));
    engine->RemoveSegment(Ring(1), 1, 0);
    Lap(1, 2);
    // The slot that was used first looks as if it had never been given up.
    WriteFile(SlotPath(0), older);
    Crash();
    ASSERT_EQ(engine->ListSegments(track).size(), 1U);
    EXPECT_EQ(Info(Ring(1)).count, 2U);
    engine->CreateSegment(Ring(2), 1);
}

TEST_F(SlotLoaderTest, AVoidedChunkStaysVoidWhenTheFooterIsLost) {
    engine->CreateSegment(Ring(1), 1);
    for (int index = 0; index < 6; ++index) {
        Append(Ring(1), index, {"m", Bytes(3000, 1)});
    }
    engine->Seal(Ring(1), 1, 3);
    WriteAt(SlotPath(0), segmentSize - 4096, std::string(4096, '\1'));
    Crash();
    EXPECT_EQ(Info(Ring(1)).count, 3U);
}

}  // namespace
}  // namespace Brantel::Engine
