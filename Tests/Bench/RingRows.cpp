// A ring that is full: what is written for what is appended, and how fast, beside its first lap.
#include "Bench/BareFile.h"
#include "Bench/BenchStore.h"
#include "Bench/Comparison.h"
#include "Bench/EngineRows.h"

#include <array>
#include <string>

namespace Brantel::Bench {

namespace {

constexpr std::uint64_t kibi = 1024;
constexpr std::uint64_t mebi = kibi * kibi;

struct RingCase {
    const char* name;
    std::uint64_t size;
    const char* durability;
    std::uint64_t capacity;
};

// One track that is full, and one on its first lap, in turn.
void MeasureRingCase(Report& report, const std::string& folder, const RingCase& wanted) {
    BenchStore store(folder + "/store" + std::to_string(wanted.size) + wanted.durability,
                     BenchStore::Preparation::Write);
    const std::uint64_t lap = wanted.capacity / wanted.size;
    store.Create(1, wanted.capacity, wanted.durability);
    store.Create(2, wanted.capacity, wanted.durability);
    ChunkWriter full(store, 1, wanted.size);
    ChunkWriter fresh(store, 2, wanted.size);
    full.Append(lap + 1);
    double written = 0;
    // With the turn that is not measured the first lap is not over.
    const std::uint64_t count = lap / 8;
    const auto settled = [&](ChunkWriter& writer) {
        FlushFileSystem(folder);
        return SecondsOf([&] { writer.Append(count); });
    };
    int turns = 0;
    const Medians seconds = TakeTurns(
        leastRounds, [&] { return settled(fresh); },
        [&] {
            const double before = WrittenBytes(folder);
            const double took = settled(full);
            FlushFileSystem(folder);
            written += WrittenBytes(folder) - before;
            ++turns;
            return took;
        });
    const auto turnBytes = static_cast<double>(count * wanted.size);
    const double appended = turnBytes * turns;
    if (WrittenBytes(folder) >= 0) {
        report.AtMost(std::string("ring, bytes written : appended, ") + wanted.name,
                      Mebibytes(written), Mebibytes(appended), written / appended, 1.05);
    }
    report.AtLeast(std::string("ring, speed : first lap, ") + wanted.name,
                   MebibytesPerSecond(turnBytes, seconds.ours),
                   MebibytesPerSecond(turnBytes, seconds.base), seconds.base / seconds.ours, 0.9);
}

}  // namespace

void MeasureRing(Report& report, const std::string& folder) {
    constexpr std::array<RingCase, 4> cases{{
        {"64 KiB, os", 64 * kibi, "os", 512 * mebi},
        {"256 KiB, os", 256 * kibi, "os", 512 * mebi},
        {"64 KiB, always", 64 * kibi, "always", 128 * mebi},
        {"256 KiB, always", 256 * kibi, "always", 256 * mebi},
    }};
    for (const RingCase& wanted : cases) {
        MeasureRingCase(report, folder, wanted);
    }
}

}  // namespace Brantel::Bench
