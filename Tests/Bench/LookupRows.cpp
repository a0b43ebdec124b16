// Questions to a track of ten million chunks, beside the same to one of ten thousand: at random
// times over the whole of either. And how long a server that was killed takes to start on them.
#include "Bench/BenchStore.h"
#include "Bench/Comparison.h"
#include "Bench/EngineRows.h"

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Brantel::Bench {

namespace {

constexpr int rounds = 9;
constexpr std::int64_t few = 10000;
constexpr std::int64_t many = 10000000;
constexpr std::size_t spread = 64;   // bytes in a chunk, at most
constexpr std::uint64_t room = 256;  // that a chunk takes of the capacity, at most
constexpr std::size_t questions = 20000;

using Times = std::vector<std::pair<std::int64_t, std::int64_t>>;

Times RandomTimes(std::int64_t chunks) {
    std::mt19937_64 random(static_cast<std::uint64_t>(chunks));
    std::uniform_int_distribution<std::int64_t> time(1, chunks * ChunkWriter::duration - 1);
    Times times;
    for (std::size_t i = 0; i < questions; ++i) {
        const std::int64_t one = time(random);
        const std::int64_t other = time(random);
        times.emplace_back(std::min(one, other), std::max(one, other));
    }
    return times;
}

void Check(bool good) {
    if (!good) {
        throw std::runtime_error("A question got a wrong answer");
    }
}

// Asks one track.
class Asker {
  public:
    Asker(BenchStore& store, long track, std::int64_t chunks)
        : storage(store.GetStorage()),
          reader(store.OpenReader(track)),
          track(track),
          times(RandomTimes(chunks)) {}

    void Count() {
        for (const auto& [in, out] : times) {
            long count = -1;
            storage.GetNumberOfChunks(track, At(in), At(out), count);
            Check(count == Behind(out) - Behind(in));
        }
    }
    void Duration() {
        Protocol::TimePoint sum;
        for (const auto& [in, out] : times) {
            storage.GetAccumulatedDuration(track, At(in), At(out), sum);
            Check(static_cast<std::int64_t>(sum.nanoseconds()) ==
                  (Behind(out) - Behind(in)) * ChunkWriter::duration);
        }
    }
    void Next() {
        Protocol::TimePoint found;
        for (const auto& [in, out] : times) {
            bool result = false;
            reader->NextTimePoint(At(in), found, result);
            const std::int64_t expected = in / ChunkWriter::duration + 1;
            Check(!result || static_cast<std::int64_t>(found.nanoseconds()) ==
                                 expected * ChunkWriter::duration);
        }
    }
    void Previous() {
        Protocol::TimePoint found;
        for (const auto& [in, out] : times) {
            bool result = false;
            reader->PreviousTimePoint(At(out), found, result);
            Check(result && static_cast<std::int64_t>(found.nanoseconds()) ==
                                (Behind(out) - 1) * ChunkWriter::duration);
        }
    }

  private:
    // Chunks before a time.
    static std::int64_t Behind(std::int64_t time) {
        return (time + ChunkWriter::duration - 1) / ChunkWriter::duration;
    }

    BrantelStorageApi::ITrackStorage& storage;
    const std::unique_ptr<BrantelStorageApi::ITrackReader> reader;
    const long track;
    const Times times;
};

std::unique_ptr<BenchStore> Open(const std::string& folder) {
    return std::make_unique<BenchStore>(folder + "/store", BenchStore::Preparation::Allocate);
}

void Fill(const std::string& folder) {
    InKilledProcess([&] {
        const auto store = Open(folder);
        store->Create(1, few * room, "os");
        ChunkWriter(*store, 1, 0, spread).Append(few);
        store->Create(2, many * room, "os");
        ChunkWriter(*store, 2, 0, spread).Append(many);
        return 0.0;
    });
}

// Each time on what a server left that had appended some more and was killed.
void MeasureKilledStart(Report& report, const std::string& folder) {
    std::int64_t next = many * ChunkWriter::duration;
    const double median = MedianOf(leastRounds, [&] {
        constexpr std::int64_t more = 50000;
        InKilledProcess([&] {
            const auto killed = Open(folder);
            ChunkWriter(*killed, 2, 0, spread, next).Append(more);
            return 0.0;
        });
        next += more * ChunkWriter::duration;
        std::unique_ptr<BenchStore> store;
        const double took = SecondsOf([&] { store = Open(folder); });
        Protocol::TimePoint end;
        store->GetStorage().GetEndOfTrack(2, end);
        Check(static_cast<std::int64_t>(end.nanoseconds()) == next);
        return took;
    });
    report.Value("start after kill -9, 10 M chunks", Milliseconds(median));
}

}  // namespace

void MeasureLookups(Report& report, const std::string& folder) {
    Fill(folder);
    {
        const auto store = Open(folder);
        Asker fewAsker(*store, 1, few);
        Asker manyAsker(*store, 2, many);
        struct Line {
            const char* name;
            void (Asker::*ask)();
        };
        constexpr std::array<Line, 4> lines{{
            {"count, 10 M chunks : 10 k", &Asker::Count},
            {"accumulated duration, 10 M : 10 k", &Asker::Duration},
            {"next, 10 M : 10 k", &Asker::Next},
            {"previous, 10 M : 10 k", &Asker::Previous},
        }};
        for (const Line& line : lines) {
            const Medians seconds = TakeTurns(
                rounds, [&] { return SecondsOf([&] { (fewAsker.*line.ask)(); }); },
                [&] { return SecondsOf([&] { (manyAsker.*line.ask)(); }); });
            report.AtMost(line.name, Microseconds(seconds.ours / questions),
                          Microseconds(seconds.base / questions), seconds.ours / seconds.base, 2);
        }
    }
    MeasureKilledStart(report, folder);
}

}  // namespace Brantel::Bench
