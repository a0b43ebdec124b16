// Everything at once: writers, readers and those who change the tracks under them, by schedules
// that a seed decides. Whatever the order, each of them must find what the rules promise.
#include "Support/EngineList.h"
#include "Support/Waiting.h"
#include "Unit/Storage/libTracks/StorageTest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Tracks {

namespace {

constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t step = 10;  // between the time points of chunks; each lasts as long

// Numbers by a seed, and a pause now and then, so that threads meet in other places each time.
class Schedule {
  public:
    explicit Schedule(std::uint64_t seed) : random(seed) {}

    std::int64_t Draw(std::int64_t from, std::int64_t to) {
        return std::uniform_int_distribution<std::int64_t>(from, to)(random);
    }
    void Pause() {
        for (std::int64_t times = Draw(0, 3) - 1; times > 0; --times) {
            std::this_thread::yield();
        }
    }

  private:
    std::mt19937_64 random;
};

// What a chunk at a time point holds, whoever reads it.
Blocks DataOf(std::int64_t time) {
    const auto seed = static_cast<unsigned>(time);
    return {{"a", Bytes(200 + seed % 300, seed)}, {"b", Bytes(seed % 90, seed + 1)}};
}

bool IsWhole(const Protocol::Chunk& chunk) {
    const auto time = static_cast<std::int64_t>(chunk.timecode().nanoseconds());
    return chunk.SerializeAsString() == MakeChunk(time, step, DataOf(time)).SerializeAsString();
}

}  // namespace

class StorageThreadsTest : public StorageTest {
  protected:
    static constexpr std::int64_t trackCount = 3;
    static constexpr std::int64_t chunkCount = 400;  // appended to each track
    static constexpr std::int64_t capacity = 32 << 10;

    StorageOptions MakeOptions() override {
        StorageOptions options;
        options.smallestSegmentBytes = 12 << 10;
        options.spareSegments = 30;
        options.entryCacheBytes = 3000;
        options.durability.mode = Engine::Durability::Mode::Os;
        return options;
    }

    // Something that went wrong on a thread; the first ones are reported at the end.
    void Complain(const std::string& text) {
        const std::lock_guard lock(mutex);
        complaints.push_back(text);
    }
    void Check(bool isRight, const std::string& text) {
        if (!isRight) {
            Complain(text);
        }
    }
    void Start(std::function<void()> work) {
        threads.emplace_back([this, work = std::move(work)] {
            try {
                work();
            } catch (const std::exception& error) {
                Complain(std::string("threw ") + error.what());
            }
        });
    }
    void Join() {
        for (std::thread& thread : threads) {
            thread.join();
        }
        threads.clear();
        // A copy of files that a growing track makes would be none that a crash can leave.
        EXPECT_TRUE(Tests::Eventually([this] {
            Protocol::Ids ids;
            storage->GetOngoingCommands(ids);
            return ids.ids().empty();
        }));
        for (const std::string& complaint : complaints) {
            ADD_FAILURE() << complaint;
        }
    }

    // Appends, until the track has had its chunks; where protections hold everything, later.
    void Write(std::int64_t track, Schedule schedule) {
        Writer writer = OpenWriter(track);
        for (std::int64_t time = step; time <= chunkCount * step; time += step) {
            const std::string error =
                ErrorOf([&] { writer->Append(MakeChunk(time, step, DataOf(time))); });
            if (error == "no error") {
                newest.at(static_cast<std::size_t>(track)) = time;
            } else {
                Check(error.find("held by protections") != std::string::npos, error);
            }
            if (schedule.Draw(1, 50) == 1) {
                writer.reset();
                writer = OpenWriter(track);
            }
            schedule.Pause();
        }
        ++finished;
    }
    bool IsOver() const { return finished == trackCount; }

    void Look(Schedule schedule) {
        const auto storageHere = tracks->MakeTrackStorage();
        while (!IsOver()) {
            const std::int64_t track = schedule.Draw(1, trackCount);
            const Reader reader = OpenReader(track);
            const std::int64_t now = newest.at(static_cast<std::size_t>(track));
            for (int look = 0; look < 10; ++look) {
                LookOnce(*reader, *storageHere, track, now, schedule);
            }
        }
    }

    void LookOnce(BrantelStorageApi::ITrackReader& reader, BrantelStorageApi::ITrackStorage& here,
                  std::int64_t track, std::int64_t now, Schedule& schedule) {
        const std::int64_t time = schedule.Draw(0, now + step);
        Protocol::Chunk chunk;
        Protocol::TimePoint point;
        bool found = false;
        long count = 0;
        switch (schedule.Draw(0, 6)) {
            case 0:
                reader.GetChunk(At(time), {}, chunk, found);
                Check(!found || (IsWhole(chunk) && TimeOf(chunk) == time / step * step),
                      "another chunk covers " + std::to_string(time));
                return;
            case 1:
                reader.GetNextChunk(At(time), {}, chunk, found);
                Check(!found || (IsWhole(chunk) && TimeOf(chunk) > time),
                      "another chunk is next after " + std::to_string(time));
                return;
            case 2:
                reader.GetPreviousChunk(At(time), {}, chunk, found);
                Check(!found || (IsWhole(chunk) && TimeOf(chunk) < time),
                      "another chunk is previous to " + std::to_string(time));
                return;
            case 3:
                reader.NextTimePoint(At(time), point, found);
                Check(!found || static_cast<std::int64_t>(point.nanoseconds()) > time, "next time");
                return;
            case 4: reader.Wait(At(time), static_cast<int>(schedule.Draw(0, 1)), found); return;
            case 5:
                here.GetNumberOfChunks(track, At(time), At(now), count);
                Check(count >= 0 && count <= (now - time) / step + 1, "too many chunks");
                return;
            default:
                here.GetAccumulatedDuration(track, At(0), At(highest), point);
                Check(point.nanoseconds() % step == 0, "a duration of half a chunk");
                return;
        }
    }

    // What is found under a protection stays as long as the protection does.
    void Hold(Schedule schedule) {
        const auto here = tracks->MakeTrackStorage();
        while (!IsOver()) {
            const std::int64_t track = schedule.Draw(1, trackCount);
            const Reader reader = OpenReader(track);
            const std::int64_t now = newest.at(static_cast<std::size_t>(track));
            const std::int64_t time = std::max<std::int64_t>(0, now - schedule.Draw(0, 400));
            long id = 0;
            try {
                here->Protect(track, At(time), At(schedule.Draw(0, 60)), id);
            } catch (const std::exception& error) {
                Check(std::string(error.what()).find("beginning of the track") != std::string::npos,
                      error.what());
                continue;
            }
            Protocol::Chunk chunk;
            bool wasThere = false;
            bool isThere = true;
            reader->GetChunk(At(time), {}, chunk, wasThere);
            for (std::int64_t times = schedule.Draw(1, 20); times > 0 && isThere; --times) {
                std::this_thread::yield();
                reader->GetChunk(At(time), {}, chunk, isThere);
                Check(!wasThere || isThere, "a held chunk is gone: " + std::to_string(time));
            }
            here->Unprotect(id);
        }
    }

    void Change(Schedule schedule) {
        const auto here = tracks->MakeTrackStorage();
        std::int64_t size = capacity;
        while (!IsOver()) {
            const std::int64_t track = schedule.Draw(1, trackCount);
            Protocol::TrackParameters in;
            Protocol::TrackParameters out;
            switch (schedule.Draw(0, 4)) {
                case 0: here->ClearTrack(track); break;
                case 1:
                    here->SetTrackProperties(
                        track, Properties({{"storage.durability",
                                            schedule.Draw(0, 1) == 0 ? "os" : "interval:20ms"}}));
                    break;
                case 2:
                    size += 4096;
                    in.set_id(static_cast<std::uint64_t>(track));
                    in.set_size(static_cast<std::uint64_t>(std::min(size, 2 * capacity)));
                    ErrorOf([&] { here->GrowTrack(in, out); });
                    break;
                case 3: {
                    Protocol::ProtectionInfos infos;
                    Protocol::Ids ids;
                    Protocol::Ids trackIds;
                    here->ListProtections(infos);
                    here->GetActiveWorkers(ids, trackIds);
                    Check(ids.ids_size() == trackIds.ids_size(), "workers without tracks");
                    break;
                }
                default: ComeAndGo(*here, schedule); break;
            }
            schedule.Pause();
        }
    }

    // A track of its own is created, used and deleted.
    void ComeAndGo(BrantelStorageApi::ITrackStorage& here, Schedule& schedule) {
        Protocol::TrackParameters in;
        Protocol::TrackParameters out;
        in.set_id(0);
        in.set_size(4096);
        here.CreateTrack(in, out);
        const auto track = static_cast<std::int64_t>(out.id());
        if (Await(out.commandid()) != Protocol::CommandInfo::FINISHED) {
            Complain("a track could not be created");
            return;
        }
        {
            const Writer writer = OpenWriter(track);
            for (std::int64_t time = 1; time < schedule.Draw(2, 12); ++time) {
                writer->Append(MakeChunk(time, 1, {{"a", Bytes(700)}}));
            }
        }
        here.DeleteTrack(track, out);
        Check(Await(out.commandid()) == Protocol::CommandInfo::FINISHED, "deletion");
    }

    static std::int64_t TimeOf(const Protocol::Chunk& chunk) {
        return static_cast<std::int64_t>(chunk.timecode().nanoseconds());
    }

    std::vector<std::vector<std::int64_t>> AllTimes() {
        std::vector<std::vector<std::int64_t>> all;
        for (std::int64_t track = 1; track <= trackCount; ++track) {
            all.push_back(TimesOf(track));
        }
        return all;
    }

    std::array<std::atomic<std::int64_t>, trackCount + 1> newest{};
    std::atomic<std::int64_t> finished = 0;
    std::vector<std::thread> threads;
    std::mutex mutex;
    std::vector<std::string> complaints;  // guarded by mutex
};

INSTANTIATE_TEST_SUITE_P(Every, StorageThreadsTest, testing::ValuesIn(Engine::EveryEngine()),
                         testing::PrintToStringParamName());

TEST_P(StorageThreadsTest, WritersReadersAndThoseWhoChangeTheTracksKeepTheRules) {
    constexpr std::uint64_t seeds = 4;
    for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        finished = 0;
        for (std::int64_t track = 1; track <= trackCount; ++track) {
            newest.at(static_cast<std::size_t>(track)) = 0;
            Create(track, capacity);
            Start([this, track, seed] {
                Write(track, Schedule(seed * 100 + static_cast<std::uint64_t>(track)));
            });
        }
        Start([this, seed] { Look(Schedule(seed * 100 + 10)); });
        Start([this, seed] { Look(Schedule(seed * 100 + 11)); });
        Start([this, seed] { Hold(Schedule(seed * 100 + 20)); });
        Start([this, seed] { Change(Schedule(seed * 100 + 30)); });
        Join();
        const auto before = AllTimes();
        if (seed % 2 == 0) {
            Restart();
        } else {
            Crash();
        }
        EXPECT_EQ(AllTimes(), before);
        for (std::int64_t track = 1; track <= trackCount; ++track) {
            for (const std::int64_t time : TimesOf(track)) {
                EXPECT_TRUE(IsWhole(*Get(track, time)));
            }
            Delete(track);
        }
    }
}

TEST_P(StorageThreadsTest, WritersOfDifferentTracksWorkAtOnce) {
    for (std::int64_t track = 1; track <= trackCount; ++track) {
        Create(track, capacity);
        Start([this, track] { Write(track, Schedule(static_cast<std::uint64_t>(track))); });
    }
    Join();
    for (std::int64_t track = 1; track <= trackCount; ++track) {
        EXPECT_EQ(EndOf(track), (chunkCount + 1) * step);
        EXPECT_GT(CountOf(track, 0, highest), 20);
    }
}

}  // namespace Brantel::Tracks
