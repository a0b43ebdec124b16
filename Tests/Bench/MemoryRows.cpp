// What many tracks keep in memory besides the cache of indexes.
#include "Bench/BenchStore.h"
#include "Bench/Comparison.h"
#include "Bench/EngineRows.h"

#include <cstdlib>

namespace Brantel::Bench {

namespace {

constexpr long tracks = 100;
constexpr std::uint64_t chunks = 1000000;
constexpr std::size_t spread = 64;   // bytes in a chunk, at most
constexpr std::uint64_t room = 256;  // that a chunk takes of the capacity, at most
constexpr double goal = 64 * 1048576;

// The memory that grows with the chunks is that of the segment at each track's end, 1/32 of the
// capacity at most. So the tracks have room for all chunks, but only as many are appended as fill
// two segments nearly; the rest would add to the list of sealed segments, which is measured too.
std::uint64_t ChunksToAppend() {
    constexpr std::uint64_t segmentsPerTrack = 32;
    constexpr double full = 1.9;
    const char* all = std::getenv("ENGINE_BENCH_ALL_CHUNKS");
    return all != nullptr ? chunks : static_cast<std::uint64_t>(full * chunks / segmentsPerTrack);
}

}  // namespace

void MeasureMemory(Report& report, const std::string& folder) {
    const std::uint64_t count = ChunksToAppend();
    const double taken = InKilledProcess([&] {
        Tracks::StorageOptions options;
        options.entryCacheBytes = 0;
        BenchStore store(folder + "/store", BenchStore::Preparation::Allocate, options);
        for (long track = 1; track <= tracks; ++track) {
            store.Create(track, chunks * room, "os");
        }
        const double before = PrivateMemory();
        for (long track = 1; track <= tracks; ++track) {
            ChunkWriter(store, track, 0, spread).Append(count);
        }
        return PrivateMemory() - before;
    });
    const std::string name = "memory, 100 tracks with room for 1 M chunks, " +
                             std::to_string(count / 1000) + " k in each";
    report.AtMost(name, Mebibytes(taken), Mebibytes(goal), taken / goal, 1);
}

}  // namespace Brantel::Bench
