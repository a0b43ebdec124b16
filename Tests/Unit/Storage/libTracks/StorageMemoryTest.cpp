// Without memory at any one allocation, an operation is an error and changes nothing, or is done.
#include "Support/CountedMemory.h"
#include "Support/EngineList.h"
#include "Unit/Storage/libTracks/StorageTest.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

// When a repeated field has no memory for its list, it loses the element that it has just made.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming): the sanitizer's name
extern "C" const char* __lsan_default_suppressions() {
    return "leak:google::protobuf::RepeatedPtrField\nleak:google::protobuf::Arena::\n";
}

namespace Brantel::Tracks {

using Tests::CountedMemory;
using Work = std::function<void()>;

class StorageMemoryTest : public StorageTest {
  protected:
    static constexpr std::size_t quarter = 840;  // of data: four such chunks fill 4096 bytes

    StorageOptions MakeOptions() override {
        StorageOptions options;
        options.smallestSegmentBytes = 12 << 10;
        options.spareSegments = 4;
        options.entryCacheBytes = 0;
        options.durability.mode = Engine::Durability::Mode::Os;
        return options;
    }

    void UnprotectAll() {
        Protocol::ProtectionInfos infos;
        storage->ListProtections(infos);
        for (const auto& info : infos.infos()) {
            Unprotect(static_cast<long>(info.handle()));
        }
    }

    // Everything that can be asked.
    std::string Everything() {
        std::string text;
        long space = 0;
        storage->GetRemainingSpace(space);
        text += "space " + std::to_string(space);
        Protocol::Ids ids;
        storage->GetOngoingCommands(ids);
        text += ids.ShortDebugString();
        Protocol::ProtectionInfos infos;
        storage->ListProtections(infos);
        text += infos.ShortDebugString();
        Protocol::Ids workers;
        Protocol::Ids trackIds;
        storage->GetActiveWorkers(workers, trackIds);
        text += trackIds.ShortDebugString();
        for (const std::int64_t track : ListTracks()) {
            text += InfoOf(track).ShortDebugString();
            for (const auto& [key, value] : PropertiesOf(track)) {
                text += key + '=' + value;
            }
            for (const std::int64_t time : TimesOf(track)) {
                text += Get(track, time)->SerializeAsString();
            }
            text += std::to_string(CountOf(track, 0, std::numeric_limits<std::int64_t>::max()));
        }
        return text;
    }

    // Prepares the operation again and again, each time with memory for one allocation more, until
    // it has all. `settle` runs when there is memory again, and says whether the operation was
    // done; not set: it was done when it did not throw.
    void FailEachAllocation(const std::function<Work()>& prepare,
                            const std::function<bool()>& settle = {}) {
        constexpr std::size_t tooMany = 5000;
        std::size_t errors = 0;
        for (std::size_t after = 0; after < tooMany; ++after) {
            const Work work = prepare();
            const std::string before = Everything();
            bool hasThrown = false;
            CountedMemory::Fail(1, after, 1);
            try {
                work();
            } catch (const std::exception&) {
                hasThrown = true;
            }
            bool isDone = !hasThrown;
            const bool hasSettled = isDone && settle;
            if (hasSettled) {
                isDone = settle();
            }
            const std::size_t failures = CountedMemory::StopFailing();
            failed += failures;
            if (!isDone) {
                ++errors;
                ASSERT_EQ(Everything(), before) << "without memory after " << after;
            }
            if (failures == 0) {
                EXPECT_TRUE(isDone) << testing::PrintToString(logged);
                EXPECT_GT(errors, 0U);
                RecordProperty("cycles", std::to_string(failed));
                return;
            }
        }
        ADD_FAILURE() << "it never has memory enough";
    }

    std::size_t failed = 0;  // allocations
};

INSTANTIATE_TEST_SUITE_P(Every, StorageMemoryTest, testing::ValuesIn(Engine::EveryEngine()),
                         testing::PrintToStringParamName());

TEST_P(StorageMemoryTest, AnAppendWithoutMemoryIsAnErrorAndChangesNothing) {
    Create(7, 64 << 10);
    const Writer writer = OpenWriter(7);
    FailEachAllocation([&] {
        return [&, chunk = MakeChunk(EndOf(7) + 1, 1, {{"data", Bytes(quarter)}})] {
            writer->Append(chunk);
        };
    });
}

TEST_P(StorageMemoryTest, AnAppendThatRecyclesWithoutMemoryChangesNothing) {
    Create(7, 4096);
    Fill(7, {10, 20, 30, 40}, quarter);
    const Writer writer = OpenWriter(7);
    FailEachAllocation([&] {
        // Each drops one chunk and keeps another.
        UnprotectAll();
        while (InfoOf(7).size() < 4 * CostOf(quarter)) {
            writer->Append(MakeChunk(EndOf(7) + 1, 1, {{"data", Bytes(quarter)}}));
        }
        Protect(7, BeginningOf(7), 0);
        return [&, chunk = MakeChunk(EndOf(7) + 1, 1, {{"data", Bytes(quarter)}})] {
            writer->Append(chunk);
        };
    });
}

TEST_P(StorageMemoryTest, AnAppendToANewSegmentWithoutMemoryChangesNothing) {
    Create(7, 64 << 10);
    const Writer writer = OpenWriter(7);
    FailEachAllocation([&] {
        // Four of these fill a segment.
        while (InfoOf(7).size() == 0 || InfoOf(7).size() / CostOf(quarter) % 4 != 0) {
            writer->Append(MakeChunk(EndOf(7) + 1, 1, {{"data", Bytes(quarter)}}));
        }
        return [&, chunk = MakeChunk(EndOf(7) + 1, 1, {{"data", Bytes(quarter)}})] {
            writer->Append(chunk);
        };
    });
}

TEST_P(StorageMemoryTest, AReadWithoutMemoryIsAnErrorAndTheNextOneSucceeds) {
    Create(7, 64 << 10);
    for (std::int64_t time = 1; time <= 12; ++time) {
        Fill(7, {time * 10}, quarter);
    }
    const Reader reader = OpenReader(7);
    FailEachAllocation([&] {
        return [&] {
            Protocol::Chunk chunk;
            bool found = false;
            reader->GetChunk(At(25), Keys({"data"}), chunk, found);
            reader->GetNextChunk(At(25), {}, chunk, found);
            reader->GetPreviousChunk(At(75), {}, chunk, found);
        };
    });
}

TEST_P(StorageMemoryTest, ALookWithoutMemoryIsAnErrorAndTheNextOneSucceeds) {
    Create(7, 64 << 10);
    for (std::int64_t time = 1; time <= 12; ++time) {
        Fill(7, {time * 10}, quarter);
    }
    SetProperty(7, "name", "value");
    Protect(7, 10, 10);
    Protocol::Ids ids;
    ids.add_ids(7);
    const Reader reader = OpenReader(7);
    FailEachAllocation([&] {
        return [&] {
            Protocol::TimePoint time;
            Protocol::TrackInfos trackInfos;
            Protocol::TrackList list;
            Protocol::PropertyList properties;
            Protocol::ProtectionInfos infos;
            bool found = false;
            reader->NextTimePoint(At(25), time, found);
            reader->PreviousTimePoint(At(25), time, found);
            reader->Wait(At(120), 1, found);
            CountOf(7, 15, 95);
            DurationOf(7, 15, 95);
            storage->GetTrackInfos(ids, trackInfos);
            storage->ListTracks(list);
            storage->GetTrackProperties(7, properties);
            storage->ListProtections(infos);
        };
    });
}

TEST_P(StorageMemoryTest, AProtectionWithoutMemoryIsNotThere) {
    Create(7);
    Fill(7, {10, 20, 30});
    FailEachAllocation([&] { return [&] { Protect(7, 20, 5); }; });
}

TEST_P(StorageMemoryTest, TheEndOfAProtectionWithoutMemoryChangesNothing) {
    Create(7, 64 << 10);
    FailEachAllocation([&] {
        UnprotectAll();
        const std::int64_t time = EndOf(7) + 10;
        Fill(7, {time, time + 10, time + 20}, quarter);
        const long id = Protect(7, time, 25);
        storage->ClearTrack(7);
        return [this, id] { Unprotect(id); };
    });
}

TEST_P(StorageMemoryTest, AClearWithoutMemoryChangesNothing) {
    Create(7, 64 << 10);
    FailEachAllocation([&] {
        const std::int64_t time = EndOf(7) + 10;
        Fill(7, {time, time + 10, time + 20, time + 30, time + 40, time + 50}, quarter);
        UnprotectAll();
        Protect(7, time + 10, 15);
        return [this] { storage->ClearTrack(7); };
    });
}

TEST_P(StorageMemoryTest, PropertiesWithoutMemoryStayAsTheyWere) {
    Create(7);
    int round = 0;
    FailEachAllocation([&] {
        const Protocol::PropertyList list =
            Properties({{"name", std::to_string(++round)}, {"longer", std::string(100, 'x')}});
        return [this, list] { storage->SetTrackProperties(7, list); };
    });
    FailEachAllocation([&] {
        SetProperty(7, "name", "value");
        return
            [this, list = Properties({{"name", ""}})] { storage->RemoveTrackProperties(7, list); };
    });
}

TEST_P(StorageMemoryTest, AWorkerWithoutMemoryIsNotOpen) {
    Create(7);
    FailEachAllocation([&] { return [&] { OpenReader(7); }; });
    FailEachAllocation([&] { return [&] { OpenWriter(7); }; });
}

// Commands: without memory they are refused, or undone and read CANCELED.
TEST_P(StorageMemoryTest, ATrackThatIsCreatedWithoutMemoryIsNotThere) {
    Protocol::TrackParameters in;
    Protocol::TrackParameters out;
    in.set_id(7);
    in.set_size(4096);
    const auto settle = [&] { return Await(out.commandid()) == Protocol::CommandInfo::FINISHED; };
    FailEachAllocation(
        [&] {
            if (!ListTracks().empty()) {
                Delete(7);
            }
            return [&] { storage->CreateTrack(in, out); };
        },
        settle);
}

TEST_P(StorageMemoryTest, ATrackThatGrowsWithoutMemoryKeepsItsCapacity) {
    Create(7, 4096);
    Protocol::TrackParameters in;
    Protocol::TrackParameters out;
    in.set_id(7);
    const auto settle = [&] { return Await(out.commandid()) == Protocol::CommandInfo::FINISHED; };
    FailEachAllocation(
        [&] {
            in.set_size(InfoOf(7).capacity() + 4096);
            return [&] { storage->GrowTrack(in, out); };
        },
        settle);
}

TEST_P(StorageMemoryTest, ADeletionWithoutMemoryIsRefusedOrFinished) {
    Protocol::TrackParameters out;
    const auto settle = [&] {
        // A deletion that has begun does not go back.
        return true;
    };
    FailEachAllocation(
        [&] {
            if (ListTracks().empty()) {
                Restart();
                if (out.commandid() != 0) {
                    Await(out.commandid());
                }
                Create(7, 4096);
                Fill(7, {10, 20}, quarter);
            }
            return [&] { storage->DeleteTrack(7, out); };
        },
        settle);
}

}  // namespace Brantel::Tracks
