// A ring that is full: what is written for what is appended, and how fast, beside its first lap.
#include "Bench/BareFile.h"
#include "Bench/BenchStore.h"
#include "Bench/Comparison.h"
#include "Bench/EngineRows.h"
#include "Support/WrittenPages.h"

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
    // With the turn that is not measured the first lap is not over.
    const std::uint64_t count = lap / 8;
    const auto settled = [&](ChunkWriter& writer) {
        FlushFileSystem(folder);
        return SecondsOf([&] { writer.Append(count); });
    };
    const Medians seconds = TakeTurns(
        leastRounds, [&] { return settled(fresh); }, [&] { return settled(full); });
    const auto turnBytes = static_cast<double>(count * wanted.size);
    report.AtLeast(std::string("ring, speed : first lap, ") + wanted.name,
                   MebibytesPerSecond(turnBytes, seconds.ours),
                   MebibytesPerSecond(turnBytes, seconds.base), seconds.base / seconds.ours, 0.9);
}

// What a lap of a full ring writes, in pages at the calls on its files: whatever else the machine
// does.
void MeasureRingBytes(Report& report, const std::string& folder, const RingCase& wanted) {
    constexpr std::uint64_t capacity = 64 * mebi;
    Engine::WrittenPages calls;
    BenchStore store(folder + "/counted" + std::to_string(wanted.size) + wanted.durability,
                     BenchStore::Preparation::Allocate, {}, &calls);
    store.Create(1, capacity, wanted.durability);
    ChunkWriter writer(store, 1, wanted.size);
    const std::uint64_t lap = capacity / wanted.size + 1;
    writer.Append(lap);
    const std::uint64_t before = calls.GetBytes();
    writer.Append(lap);
    const auto written = static_cast<double>(calls.GetBytes() - before);
    const auto appended = static_cast<double>(lap * wanted.size);
    report.AtMost(std::string("ring, bytes written : appended, ") + wanted.name, Mebibytes(written),
                  Mebibytes(appended), written / appended, 1.05);
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
        MeasureRingBytes(report, folder, wanted);
        MeasureRingCase(report, folder, wanted);
    }
}

}  // namespace Brantel::Bench
