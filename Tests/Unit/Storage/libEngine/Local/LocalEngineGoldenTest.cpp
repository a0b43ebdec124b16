#include "Support/LocalStoreTest.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Engine {
namespace {

// Stores that an earlier program wrote, in the version that their name tells: each later one reads
// them and goes on with them.
class LocalEngineGoldenTest : public LocalStoreTest {
  protected:
    static constexpr std::uint32_t pages = 6;
    static constexpr std::uint32_t goldenSize = pages * ChunkLayout::unit;

    struct Segment {
        SegmentId id;
        bool sealed = false;
        std::vector<std::vector<std::string>> chunks;
    };

    static std::vector<Segment> Contents() {
        Segment many{Ring(1), true, {}};  // more than an index in the footer's page holds
        for (unsigned chunk = 0; chunk < 100; ++chunk) {
            many.chunks.push_back({"chunk " + std::to_string(chunk)});
        }
        return {many,
                {Ring(2),
                 true,
                 {{"three", Bytes(700, 1), "", Bytes(90, 2)}, {"", Bytes(5000, 3)}, {"last"}}},
                {Ring(4), false, {{"open"}, {"two", Bytes(4000, 4)}, {"a", "b", "c", "d"}}},
                {Held(1), false, {{"held", Bytes(300, 5)}, {"more"}}}};
    }
    static std::int64_t TimeOf(std::size_t chunk) { return static_cast<std::int64_t>(chunk) * 10; }

    void Unpack(const std::string& name) {
        std::filesystem::create_directory(options.directory);
        std::filesystem::permissions(options.directory, std::filesystem::perms::owner_all);
        const std::string command = "tar -xzf '" BRANTEL_GOLDEN_FOLDER "/" + name +
                                    ".tar.gz' --no-same-owner -C '" + options.directory + "'";
        ASSERT_EQ(std::system(command.c_str()), 0);  // NOLINT: tar is what reads it
    }
    static void Pack(const std::string& store, const std::string& name) {
        const std::string command = "tar -cf - -C '" + store +
                                    "' --sort=name --owner=0 --group=0 --mtime=@0 --exclude=LOCK ."
                                    " | gzip -9n > '" BRANTEL_GOLDEN_FOLDER "/" +
                                    name + ".tar.gz'";
        ASSERT_EQ(std::system(command.c_str()), 0);  // NOLINT: tar is what writes it
    }

    void Make() {
        Open();
        SilentProgress progress;
        engine->Reserve({track, goldenSize, pages}, progress);
        engine->Reserve({track + 1, goldenSize, 1}, progress);
        Write("name", "golden");
        Write("empty", "");
        Write("gone", "x");
        Write("long", Bytes(3000, 9));
        const std::vector<RecordChange> removal{{"gone", std::nullopt}};
        engine->WriteRecords(removal);
        engine->CreateSegment(Ring(3), 1);
        Append(Ring(3), 1, {"removed"}, Durability::Mode::Always);
        engine->RemoveSegment(Ring(3), 1, 0);
        for (const Segment& segment : Contents()) {
            engine->CreateSegment(segment.id, 1);
            for (std::size_t chunk = 0; chunk < segment.chunks.size(); ++chunk) {
                Append(segment.id, TimeOf(chunk), segment.chunks[chunk], Durability::Mode::Always);
            }
            if (segment.sealed) {
                engine->Seal(segment.id, 1, segment.chunks.size());
            }
        }
        engine->Claim(Ring(4), 5);
    }

    void Check(const Segment& segment) {
        const SegmentInfo info = Info(segment.id);
        EXPECT_EQ(info.sealed, segment.sealed);
        EXPECT_EQ(info.epoch, segment.id == Ring(4) ? 5U : 1U);
        EXPECT_EQ(info.durationSum, segment.chunks.size() * 10);
        const std::vector<ChunkEntry> entries = Entries(segment.id);
        ASSERT_EQ(entries.size(), segment.chunks.size());
        for (std::size_t chunk = 0; chunk < entries.size(); ++chunk) {
            EXPECT_EQ(entries[chunk].timePoint, TimeOf(chunk));
            EXPECT_EQ(entries[chunk].ordinal, chunk);
            EXPECT_EQ(Read(segment.id, entries[chunk]), segment.chunks[chunk]);
        }
        EXPECT_EQ(info.first, entries.front());
        EXPECT_EQ(info.last, entries.back());
        EXPECT_TRUE(Verify(segment.id).empty());
    }

    void CheckAll() {
        EXPECT_EQ(engine->ListSegments(track).size(), Contents().size());
        for (const Segment& segment : Contents()) {
            Check(segment);
        }
        EXPECT_EQ(
            engine->ListReservations(),
            (std::vector<Reservation>{{track, goldenSize, pages}, {track + 1, goldenSize, 1}}));
        EXPECT_EQ(engine->ScanRecords("").size(), 3U);
        EXPECT_EQ(ValueOf("name") + ValueOf("empty"), "golden");
        EXPECT_EQ(ValueOf("long"), Bytes(3000, 9));
        EXPECT_EQ(Reports(), std::vector<std::string>());
    }

    void GoOn() {
        Write("name", "changed");
        const ChunkEntry added = Append(Ring(4), 1000, {"new"}, Durability::Mode::Always, 6);
        engine->CreateSegment(Ring(5), 6);
        Reopen();
        EXPECT_EQ(ValueOf("name"), "changed");
        EXPECT_EQ(Read(Ring(4), added)[0], "new");
        EXPECT_EQ(Entries(Ring(1)).size(), 100U);
    }
};

TEST_F(LocalEngineGoldenTest, Version1ThatWasClosedIsRead) {
    Unpack("version1-closed");
    Open();
    CheckAll();
    GoOn();
}

TEST_F(LocalEngineGoldenTest, Version1WhoseServerWasKilledIsRead) {
    Unpack("version1-killed");
    Open();
    CheckAll();
    GoOn();
}

// For a new version only: what a version has written stays as it is.
TEST_F(LocalEngineGoldenTest, DISABLED_MakesTheStoresOfThisVersion) {
    Make();
    CheckAll();
    Pack(options.directory, "version1-killed");
    Close();
    Pack(options.directory, "version1-closed");
}

}  // namespace
}  // namespace Brantel::Engine
