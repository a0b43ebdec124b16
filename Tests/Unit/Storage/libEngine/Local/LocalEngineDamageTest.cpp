#include "Support/LocalStoreTest.h"

#include <gtest/gtest.h>

#include <sys/types.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Engine {
namespace {

// A medium that no longer gives one stretch of one file. Used before threads write.
class BadSectors : public FileCalls {
  public:
    BadSectors(std::string file, off_t begin, off_t end)
        : path(std::move(file)), begin(begin), end(end) {}

    int Open(const char* name, int flags, mode_t mode) override {
        const int file = FileCalls::Open(name, flags, mode);
        const std::lock_guard lock(mutex);
        bad.erase(file);
        if (file >= 0 && name == path) {
            bad.insert(file);
        }
        return file;
    }
    ssize_t ReadVector(int file, const iovec* parts, int count, off_t offset) override {
        off_t size = 0;
        for (int part = 0; part < count; ++part) {
            size += static_cast<off_t>(parts[part].iov_len);
        }
        const std::lock_guard lock(mutex);
        if (bad.contains(file) && offset < end && begin < offset + size) {
            errno = EIO;
            return -1;
        }
        return FileCalls::ReadVector(file, parts, count, offset);
    }

  private:
    const std::string path;
    const off_t begin;
    const off_t end;
    std::mutex mutex;
    std::set<int> bad;  // guarded by mutex; descriptors of the file
};

// A small store with a sealed and an open segment, of which one place at a time is damaged: only
// the chunk that is hit may be refused, and nothing wrong is ever served.
class LocalEngineDamageTest : public LocalStoreTest {
  protected:
    struct Chunk {
        SegmentId segment;
        ChunkEntry entry;
        std::vector<std::string> parts;
    };

    LocalEngineDamageTest() {
        PlaceInMemory();
        options.startThreads = 1;
    }

    static constexpr std::uint32_t smallSize = 3 * ChunkLayout::unit;

    void TearDown() override {
        if (damages > 0) {
            RecordProperty("cycles", std::to_string(damages));
        }
    }

    void Add(const SegmentId& id, std::int64_t timePoint, const std::vector<std::string>& parts) {
        chunks.push_back({id, Append(id, timePoint, parts, Durability::Mode::Always), parts});
    }

    // Two slots: a sealed segment and an open one; `crash`: the open one has no index.
    void Build(bool crash) {
        Open();
        SilentProgress progress;
        engine->Reserve({track, smallSize, 2}, progress);
        engine->CreateSegment(Ring(1), 1);
        Add(Ring(1), 10, {"first", Bytes(300, 1)});
        Add(Ring(1), 20, {"second", Bytes(20, 2), Bytes(150, 3)});
        Add(Ring(1), 30, {"third"});
        engine->Seal(Ring(1), 1, 3);
        engine->CreateSegment(Ring(2), 1);
        Add(Ring(2), 40, {"fourth", Bytes(200, 4)});
        Add(Ring(2), 50, {"fifth", Bytes(200, 5)});
        Add(Ring(2), 60, {"sixth"});
        Add(Ring(2), 70, {"seventh", Bytes(100, 6)});
        Write("a", "1");
        Write("b", "2");
        std::map<std::string, std::string> files;
        if (crash) {
            files = ReadStore();
        }
        Close();
        saved = crash ? files : ReadStore();
        saved.erase("LOCK");
    }

    std::map<std::string, std::string> ReadStore() const {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(options.directory)) {
            if (entry.is_regular_file()) {
                files[entry.path().lexically_relative(options.directory)] = ReadFile(entry.path());
            }
        }
        return files;
    }

    // The store as it was built, but for this file.
    void Restore(const std::string& name, const std::string& bytes) {
        Close();
        std::filesystem::remove_all(options.directory);
        std::filesystem::create_directories(options.directory + "/tracks/7");
        std::filesystem::permissions(options.directory, std::filesystem::perms::owner_all);
        for (const auto& [path, whole] : saved) {
            WriteFile(options.directory + "/" + path, path == name ? bytes : whole);
        }
    }

    // Whether the chunk touches [begin, end) of the slot's file.
    static bool IsHit(const Chunk& chunk, std::uint32_t slot, std::uint64_t begin,
                      std::uint64_t end) {
        return chunk.segment.number == slot + 1 && chunk.entry.offset < end &&
               begin < chunk.entry.offset + chunk.entry.length;
    }

    // Every chunk that is not hit is there with its bytes; one that is hit is so too, is refused,
    // or is the last of the open segment and gone.
    void CheckChunks(std::uint32_t slot, std::uint64_t begin, std::uint64_t end, bool mayVanish) {
        const std::string where = "slot " + std::to_string(slot) + " at " + std::to_string(begin);
        ++damages;
        for (const Chunk& chunk : chunks) {
            const bool hit = IsHit(chunk, slot, begin, end);
            try {
                if (!hit) {
                    ASSERT_TRUE(IsListed(chunk)) << where << ", " << chunk.parts[0];
                }
                const std::vector<std::string> parts = Read(chunk.segment, chunk.entry);
                EXPECT_EQ(parts, chunk.parts) << where;
            } catch (const EngineError& error) {
                EXPECT_TRUE(hit) << where << ", " << chunk.parts[0] << ": " << error.what();
                const bool vanished = error.GetKind() == EngineError::Kind::Refused ||
                                      error.GetKind() == EngineError::Kind::Gone;
                EXPECT_TRUE(error.GetKind() == EngineError::Kind::Damaged ||
                            error.GetKind() == unreadable || (vanished && mayVanish))
                    << where << ": " << error.what();
            }
        }
        EXPECT_EQ(ValueOf("a") + ValueOf("b"), "12") << where;
    }

    void CheckListed(const std::vector<std::size_t>& numbers) {
        for (const std::size_t number : numbers) {
            ASSERT_TRUE(IsListed(chunks[number])) << number;
            EXPECT_EQ(Read(chunks[number].segment, chunks[number].entry), chunks[number].parts);
        }
    }

    bool IsListed(const Chunk& chunk) {
        for (const ChunkEntry& entry : Entries(chunk.segment)) {
            if (entry == chunk.entry) {
                return true;
            }
        }
        return false;
    }

    // Places worth damaging: all that hold something, and a few of those that hold nothing.
    static std::vector<std::uint64_t> PlacesOf(const std::string& bytes) {
        const bool all = std::getenv("BRANTEL_PROVE") != nullptr;
        std::vector<std::uint64_t> places;
        for (std::uint64_t place = 0; place < bytes.size(); ++place) {
            if (all || place % 512 == 0 || (bytes[place] != 0 && place % 3 == 0)) {
                places.push_back(place);
            }
        }
        return places;
    }

    void FlipBits(bool mayVanish) {
        for (std::uint32_t slot = 0; slot < 2; ++slot) {
            const std::string name = "tracks/7/0000" + std::to_string(slot) + ".segment";
            for (const std::uint64_t place : PlacesOf(saved.at(name))) {
                std::string bytes = saved.at(name);
                bytes[place] = static_cast<char>(bytes[place] ^ (1 << (place % 8)));
                Restore(name, bytes);
                Open();
                CheckChunks(slot, place, place + 1, mayVanish);
                ASSERT_FALSE(HasFailure());
            }
        }
    }

    EngineError::Kind unreadable = EngineError::Kind::Damaged;  // how a bad page shows
    std::uint64_t damages = 0;                                  // that were checked
    std::vector<Chunk> chunks;
    std::map<std::string, std::string> saved;  // path in the store -> bytes
};

TEST_F(LocalEngineDamageTest, AFlippedBitCostsTheChunkItHits) {
    Build(false);
    FlipBits(false);
}

TEST_F(LocalEngineDamageTest, AFlippedBitAfterACrashCostsTheChunkItHits) {
    Build(true);
    FlipBits(true);
}

TEST_F(LocalEngineDamageTest, AZeroedPageCostsTheChunksInIt) {
    Build(false);
    for (std::uint32_t slot = 0; slot < 2; ++slot) {
        const std::string name = "tracks/7/0000" + std::to_string(slot) + ".segment";
        for (std::uint64_t page = 0; page < smallSize; page += ChunkLayout::unit) {
            std::string bytes = saved.at(name);
            bytes.replace(page, ChunkLayout::unit, ChunkLayout::unit, '\0');
            Restore(name, bytes);
            Open();
            CheckChunks(slot, page, page + ChunkLayout::unit, false);
        }
    }
}

TEST_F(LocalEngineDamageTest, APageThatCanNotBeReadCostsTheChunksInIt) {
    Build(false);
    unreadable = EngineError::Kind::Io;
    for (std::uint32_t slot = 0; slot < 2; ++slot) {
        for (std::uint32_t page = 0; page < smallSize; page += ChunkLayout::unit) {
            Restore("", "");
            BadSectors calls(SlotPath(slot), page, page + ChunkLayout::unit);
            Open(&calls);
            CheckChunks(slot, page, page + ChunkLayout::unit, false);
            Close();
        }
    }
}

// Chunks of more than a page in a segment that no index tells of, each page bad in turn.
TEST_F(LocalEngineDamageTest, AfterACrashAPageThatCanNotBeReadCostsTheChunksInIt) {
    constexpr int count = 8;
    Open();
    Reserve(1);
    engine->CreateSegment(Ring(1), 1);
    for (int chunk = 0; chunk < count; ++chunk) {
        Add(Ring(1), chunk * 10, {"m", Bytes(5000, static_cast<unsigned>(chunk))});
    }
    Write("a", "1");
    Write("b", "2");
    saved = ReadStore();
    saved.erase("LOCK");
    Close();
    unreadable = EngineError::Kind::Io;
    const std::uint32_t end = chunks.back().entry.offset + chunks.back().entry.length;
    for (std::uint32_t page = 0; page < segmentSize; page += ChunkLayout::unit) {
        Restore("", "");
        BadSectors calls(SlotPath(0), page, page + ChunkLayout::unit);
        Open(&calls);
        // What is proven by no later chunk's mark alone may be cut off with its head.
        const bool last = page + ChunkLayout::unit > chunks.back().entry.offset;
        if (!last || page >= end) {
            CheckChunks(0, page, page + ChunkLayout::unit, false);
            EXPECT_EQ(Info(Ring(1)).count, static_cast<std::uint64_t>(count)) << page;
        }
        Close();
        ASSERT_FALSE(HasFailure());
    }
}

// The damaged head of a large chunk, behind which the next one lies far away.
TEST_F(LocalEngineDamageTest, AfterACrashALostHeadOfALargeChunkCostsThatChunkAlone) {
    constexpr std::uint32_t largeSize = 8U << 20U;
    Open();
    SilentProgress progress;
    engine->Reserve({track, largeSize, 1}, progress);
    engine->CreateSegment(Ring(1), 1);
    Add(Ring(1), 10, {"small"});
    Add(Ring(1), 20, {"large", Bytes(3U << 20U, 1)});
    Add(Ring(1), 30, {"behind", Bytes(100, 2)});
    Add(Ring(1), 40, {"last"});
    Write("a", "1");
    Write("b", "2");
    saved = ReadStore();
    saved.erase("LOCK");
    Close();
    std::string bytes = saved.at("tracks/7/00000.segment");
    const std::uint32_t head = chunks[1].entry.offset;
    bytes[head + 20] = static_cast<char>(bytes[head + 20] ^ 1);
    Restore("tracks/7/00000.segment", bytes);
    Open();
    CheckListed({0, 2, 3});
    ErrorOf(EngineError::Kind::Damaged, [this] { Read(Ring(1), Entries(Ring(1))[1]); });
}

TEST_F(LocalEngineDamageTest, AFileThatWasCutShortKeepsWhatLiesInFront) {
    Build(false);
    for (std::uint32_t slot = 0; slot < 2; ++slot) {
        const std::string name = "tracks/7/0000" + std::to_string(slot) + ".segment";
        const std::uint64_t step = std::getenv("BRANTEL_PROVE") != nullptr ? 1 : 37;
        for (std::uint64_t size = 0; size < smallSize; size += step) {
            Restore(name, saved.at(name).substr(0, size));
            const std::size_t before = Reports().size();
            Open();
            EXPECT_GT(Reports().size(), before) << size;
            CheckChunks(slot, size, smallSize, true);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(LocalEngineDamageTest, AFileThatWasCutToNothingIsMadeAgain) {
    Build(false);
    Restore("tracks/7/00000.segment", "");
    Open();
    EXPECT_EQ(Reports(), (std::vector<std::string>{
                             SlotPath(0) + ": has 0 bytes instead of " + std::to_string(smallSize),
                             options.directory + "/tracks/7: 1 of 2 segment files are missing"}));
    SilentProgress progress;
    engine->Reserve({track, smallSize, 2}, progress);
    EXPECT_EQ(std::filesystem::file_size(SlotPath(0)), smallSize);
    engine->CreateSegment(Held(1), 1);
}

TEST_F(LocalEngineDamageTest, AFileThatIsMissingCostsItsSegmentAlone) {
    Build(false);
    Restore("", "");
    std::filesystem::remove(SlotPath(0));
    Open();
    EXPECT_EQ(engine->ListSegments(track).size(), 1U);
    EXPECT_EQ(Read(chunks[4].segment, chunks[4].entry), chunks[4].parts);
    EXPECT_EQ(Reports(), std::vector<std::string>{options.directory + "/tracks/7: 1 of 2 segment " +
                                                  "files are missing"});
    EXPECT_EQ(ErrorOf(EngineError::Kind::NoSpace, [this] { engine->CreateSegment(Held(1), 1); }),
              options.directory + "/tracks/7: no free segment: 1 of 2 are used");
    SilentProgress progress;
    engine->Reserve({track, smallSize, 2}, progress);
    engine->CreateSegment(Held(1), 1);
}

TEST_F(LocalEngineDamageTest, ALostHeadInTheMiddleIsListedAndRefused) {
    Build(true);
    std::string bytes = saved.at("tracks/7/00001.segment");
    bytes.replace(chunks[4].entry.offset, 100, 100, '\x55');
    Restore("tracks/7/00001.segment", bytes);
    Open();
    const std::vector<ChunkEntry> entries = Entries(Ring(2));
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_EQ(entries[1].ordinal, 1U);
    EXPECT_EQ(entries[1].offset, chunks[4].entry.offset);
    EXPECT_EQ(entries[1].length, chunks[4].entry.length);
    EXPECT_GT(entries[1].timePoint, entries[0].timePoint);
    EXPECT_LT(entries[1].timePoint, entries[2].timePoint);
    ErrorOf(EngineError::Kind::Damaged, [&] { Read(Ring(2), entries[1]); });
    ASSERT_EQ(Reports().size(), 1U);
    EXPECT_EQ(Reports()[0], SlotPath(1) + ": chunk at " + std::to_string(entries[1].offset) +
                                ": the head of a chunk, or of more than one, is damaged");
}

TEST_F(LocalEngineDamageTest, SeveralLostHeadsKeepTheOrdinalsOfWhatFollows) {
    Build(true);
    std::string bytes = saved.at("tracks/7/00001.segment");
    const std::uint32_t begin = chunks[4].entry.offset;
    const std::uint32_t end = chunks[6].entry.offset;
    bytes.replace(begin, end - begin, end - begin, '\0');
    Restore("tracks/7/00001.segment", bytes);
    Open();
    // Nothing was flushed behind them but the last chunk, whose mark proves them.
    const std::vector<ChunkEntry> entries = Entries(Ring(2));
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_EQ(entries[3], chunks[6].entry);
    EXPECT_EQ(entries[1].ordinal, 1U);
    EXPECT_EQ(entries[2].ordinal, 2U);
    EXPECT_EQ(Read(Ring(2), entries[3]), chunks[6].parts);
}

TEST_F(LocalEngineDamageTest, AnIndexThatIsLostWithTheFirstChunksKeepsAPlaceForEach) {
    Build(false);
    Restore("", "");
    Open();
    const std::vector<ChunkEntry> entries = Entries(Ring(1));
    // While the store is open, so that it knows what the last page told.
    WriteAt(SlotPath(0), chunks[0].entry.offset, std::string(80, 'x'));
    WriteAt(SlotPath(0), chunks[1].entry.offset, std::string(80, 'x'));
    WriteAt(SlotPath(0), smallSize - ChunkLayout::unit, std::string(300, 'x'));
    const std::vector<ChunkEntry> left = Entries(Ring(1));
    ASSERT_EQ(left.size(), 3U);
    EXPECT_EQ(left[0], entries[0]);
    EXPECT_EQ(left[1].ordinal, 1U);
    EXPECT_EQ(left[2], entries[2]);
    EXPECT_EQ(Read(Ring(1), left[2]), chunks[2].parts);
    ErrorOf(EngineError::Kind::Damaged, [&] { Read(Ring(1), left[0]); });
}

TEST_F(LocalEngineDamageTest, ADamagedSegmentCanBeClaimedSealedAndRead) {
    Build(true);
    std::string bytes = saved.at("tracks/7/00001.segment");
    bytes[chunks[4].entry.offset + 20] ^= 1;
    Restore("tracks/7/00001.segment", bytes);
    Open();
    engine->Claim(Ring(2), 2);
    const std::vector<ChunkEntry> entries = Entries(Ring(2));
    engine->Seal(Ring(2), 2, entries.size());
    Reopen();
    EXPECT_EQ(Entries(Ring(2)), entries);
    EXPECT_EQ(Verify(Ring(2)).size(), 1U);
    EXPECT_TRUE(Verify(Ring(1)).empty());
}

TEST_F(LocalEngineDamageTest, ASlotWhoseBothEndsAreLostIsLeftAlone) {
    Build(false);
    std::string bytes = saved.at("tracks/7/00000.segment");
    bytes.replace(0, 4096, 4096, '\x11');
    bytes.replace(smallSize - 4096, 4096, 4096, '\x11');
    Restore("tracks/7/00000.segment", bytes);
    Open();
    EXPECT_EQ(Reports().back(),
              SlotPath(0) + ": neither header nor footer can be read, is left alone");
    engine->RemoveSegment(Ring(2), 1, 0);
    engine->CreateSegment(Ring(3), 1);
    ErrorOf(EngineError::Kind::NoSpace, [this] { engine->CreateSegment(Ring(4), 1); });
    EXPECT_EQ(ReadFile(SlotPath(0)), bytes);
}

}  // namespace
}  // namespace Brantel::Engine
