#include "Support/CountedMemory.h"
#include "Support/LocalStoreTest.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <new>
#include <sstream>
#include <string>
#include <vector>

namespace Brantel::Engine {
namespace {

using Tests::CountedMemory;

// SQLite's own memory, of which some allocations fail too.
class FailingSqlite {
  public:
    static void Install() {
        sqlite3_shutdown();
        sqlite3_config(SQLITE_CONFIG_GETMALLOC, &system);
        sqlite3_mem_methods methods = system;
        methods.xMalloc = [](int size) { return MustFail() ? nullptr : system.xMalloc(size); };
        methods.xRealloc = [](void* memory, int size) {
            return MustFail() ? nullptr : system.xRealloc(memory, size);
        };
        ASSERT_EQ(sqlite3_config(SQLITE_CONFIG_MALLOC, &methods), SQLITE_OK);
        sqlite3_initialize();
    }
    static void Remove() {
        sqlite3_shutdown();
        sqlite3_config(SQLITE_CONFIG_MALLOC, &system);
        sqlite3_initialize();
    }
    // The allocation after `after` others fails, or all from there on.
    static void Fail(std::int64_t after, bool forEver) {
        always = forEver;
        faults = 0;
        left = after;
    }
    static std::int64_t StopFailing() {
        left = INT64_MAX;
        return faults;
    }

  private:
    static bool MustFail() {
        const std::int64_t now = left.fetch_sub(1);
        const bool fails = now == 0 || (now < 0 && always);
        faults += fails ? 1 : 0;
        return fails;
    }

    static inline sqlite3_mem_methods system{};
    static inline std::atomic<std::int64_t> left = INT64_MAX;
    static inline std::atomic<std::int64_t> faults = 0;
    static inline std::atomic<bool> always = false;
};

// Every operation with each of its allocations failing in turn: an error or the answer, and after
// an error everything is as it was.
class LocalEngineMemoryTest : public LocalStoreTest {
  protected:
    static void SetUpTestSuite() { FailingSqlite::Install(); }
    static void TearDownTestSuite() { FailingSqlite::Remove(); }

    LocalEngineMemoryTest() {
        PlaceInMemory();
        options.startThreads = 1;
        Open();
        Reserve(6);
        engine->CreateSegment(Ring(1), 1);
        first = Append(Ring(1), 5, {"m", Bytes(300, 1)}, Durability::Mode::Always);
        Write("k", "1");
    }

    // All that can be seen of the store.
    std::string State() {
        std::ostringstream text;
        for (const Record& record : engine->ScanRecords("")) {
            text << record.key << '=' << record.value << ' ' << record.version << '\n';
        }
        for (const Reservation& reservation : engine->ListReservations()) {
            text << reservation.track << ": " << reservation.segmentCount << '\n';
            for (const SegmentInfo& info : engine->ListSegments(reservation.track)) {
                text << static_cast<int>(info.id.log) << ' ' << info.id.number << ' ' << info.epoch
                     << ' ' << info.sealed << ' ' << info.count << ' ' << info.end << '\n';
                for (const ChunkEntry& entry : engine->ReadEntries(info.id)) {
                    text << "  " << entry.timePoint << ' ' << entry.offset << '\n';
                }
            }
        }
        text << "reserved " << engine->GetSpace().reserved;
        return text.str();
    }

    // Whether `run` threw what it may throw.
    static bool Throws(const std::function<void()>& run) {
        try {
            run();
            return false;
        } catch (const std::bad_alloc&) {
            return true;
        } catch (const EngineError&) {
            return true;
        }
    }

    // `prepare` and `settle` are without faults around each attempt.
    void ForEachAllocation(const std::function<void()>& prepare, const std::function<void()>& run,
                           const std::function<void()>& settle) {
        const auto fail = [](std::int64_t after, bool forEver, bool sqlite) {
            if (sqlite) {
                FailingSqlite::Fail(after, forEver);
            } else {
                CountedMemory::Fail(1, static_cast<std::size_t>(after), forEver ? SIZE_MAX : 1);
            }
        };
        std::int64_t errors = 0;
        for (const bool sqlite : {false, true}) {
            for (const bool forEver : {false, true}) {
                bool reached = true;
                for (std::int64_t after = 0; reached; ++after, ++attempts) {
                    prepare();
                    const std::string before = State();
                    fail(after, forEver, sqlite);
                    const bool threw = Throws(run);
                    reached =
                        (sqlite ? FailingSqlite::StopFailing()
                                : static_cast<std::int64_t>(CountedMemory::StopFailing())) > 0;
                    errors += threw ? 1 : 0;
                    if (threw) {
                        EXPECT_EQ(State(), before) << after;
                        run();
                    }
                    EXPECT_EQ(Read(Ring(1), first)[1], Bytes(300, 1));
                    settle();
                    ASSERT_FALSE(HasFailure())
                        << "allocation " << after << " of " << (sqlite ? "SQLite" : "new");
                }
            }
        }
        std::printf("%lld errors\n", static_cast<long long>(errors));
        RecordProperty("cycles", std::to_string(attempts));
        EXPECT_GT(errors, 0);
    }

    void ForEachAllocationOfAnAppend(const std::vector<std::string_view>& parts) {
        ForEachAllocation([this] { engine->CreateSegment(Ring(2), 1); },
                          [&] {
                              ChunkEntry entry{10, 10, 0, 0, 4096, 0, 0};
                              ChunkLayout::SetLengths(entry, parts);
                              engine->Append(Ring(2), 1, entry, parts, Durability{});
                          },
                          [this] { engine->RemoveSegment(Ring(2), 1, 0); });
    }

    ChunkEntry first;
    std::int64_t attempts = 0;  // with an allocation that fails
};

const auto nothing = [] {};

TEST_F(LocalEngineMemoryTest, AppendOfASmallChunk) {
    ForEachAllocationOfAnAppend({"metadata"});
}

TEST_F(LocalEngineMemoryTest, AppendOfALargeChunk) {
    const std::string data = Bytes(40000, 2);
    ForEachAllocationOfAnAppend({"metadata", data});
}

TEST_F(LocalEngineMemoryTest, CreateSegment) {
    ForEachAllocation(
        nothing, [this] { engine->CreateSegment(Ring(2), 1); },
        [this] { engine->RemoveSegment(Ring(2), 1, 0); });
}

TEST_F(LocalEngineMemoryTest, RemoveSegment) {
    ForEachAllocation([this] { engine->CreateSegment(Ring(2), 1); },
                      [this] { engine->RemoveSegment(Ring(2), 1, 0); }, nothing);
}

TEST_F(LocalEngineMemoryTest, Seal) {
    ForEachAllocation(
        [this] {
            engine->CreateSegment(Ring(2), 1);
            Append(Ring(2), 10, {"m"}, Durability::Mode::Always);
        },
        [this] { engine->Seal(Ring(2), 1, 1); }, [this] { engine->RemoveSegment(Ring(2), 1, 0); });
}

TEST_F(LocalEngineMemoryTest, Claim) {
    ForEachAllocation([this] { engine->CreateSegment(Ring(2), 1); },
                      [this] { engine->Claim(Ring(2), 2); },
                      [this] { engine->RemoveSegment(Ring(2), 2, 0); });
}

TEST_F(LocalEngineMemoryTest, ReadChunkAndEntries) {
    ForEachAllocation(
        nothing,
        [this] {
            EXPECT_EQ(Entries(Ring(1)), std::vector<ChunkEntry>{first});
            EXPECT_EQ(Read(Ring(1), first)[1], Bytes(300, 1));
            EXPECT_TRUE(Verify(Ring(1)).empty());
            EXPECT_FALSE(engine->Describe(Ring(1)).empty());
        },
        nothing);
}

TEST_F(LocalEngineMemoryTest, Records) {
    std::string value = "1";
    ForEachAllocation([&] { value += "1"; }, [&] { Write("k", value); },
                      [&] { EXPECT_EQ(ValueOf("k"), value); });
}

TEST_F(LocalEngineMemoryTest, ReserveAndGrow) {
    ForEachAllocation(
        nothing, [this] { Reserve(7); },
        [this] {
            EXPECT_TRUE(std::filesystem::exists(SlotPath(6)));
            Reserve(6);
        });
}

TEST_F(LocalEngineMemoryTest, ReserveAnew) {
    ForEachAllocation(
        nothing, [this] { Reserve(2, 8); },
        [this] {
            SilentProgress progress;
            engine->Release(8, progress);
        });
}

TEST_F(LocalEngineMemoryTest, Opening) {
    const std::string before = State();
    for (const bool sqlite : {false, true}) {
        bool reached = true;
        for (std::int64_t after = 0; reached; ++after) {
            Close();
            if (sqlite) {
                FailingSqlite::Fail(after, false);
            } else {
                CountedMemory::Fail(1, static_cast<std::size_t>(after), 1);
            }
            Throws([this] { Open(); });
            reached = (sqlite ? FailingSqlite::StopFailing()
                              : static_cast<std::int64_t>(CountedMemory::StopFailing())) > 0;
            Close();
            Open();
            ASSERT_EQ(State(), before) << after << (sqlite ? " of SQLite" : " of new");
        }
    }
}

}  // namespace
}  // namespace Brantel::Engine
