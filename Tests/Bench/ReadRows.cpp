// Reads of chunks by their time, whose bytes the system has in memory, beside a bare loop that
// reads and checks as many bytes at places of a file; both in the same random order. And beside a
// loop over records as long as the chunks are with their heads, one behind the other in the file:
// such a record of 4 KiB lies in two pages, where the bytes of the first loop lie in one.
#include "Bench/BareFile.h"
#include "Bench/BenchStore.h"
#include "Bench/Comparison.h"
#include "Bench/EngineRows.h"

#include <libEngine/Checksum.h>
#include <libEngine/ChunkLayout.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <random>
#include <stdexcept>
#include <vector>

namespace Brantel::Bench {

namespace {

constexpr int rounds = 9;
constexpr std::uint64_t kibi = 1024;
constexpr std::uint64_t mebi = kibi * kibi;
constexpr std::uint64_t turnBytes = 512 * mebi;

struct ReadCase {
    const char* name;
    std::uint64_t size;
    std::uint64_t count;  // chunks that there are
    std::uint64_t reads;  // in a turn
    double goal;
};

std::vector<std::uint64_t> RandomOrder(std::uint64_t count) {
    std::vector<std::uint64_t> order(count);
    std::iota(order.begin(), order.end(), std::uint64_t{0});
    std::shuffle(order.begin(), order.end(), std::mt19937_64(count));
    return order;
}

// What each chunk takes of its segment, heads included; all have one size.
std::uint64_t LengthOfChunks(BenchStore& store, std::uint64_t count) {
    Protocol::Ids ids;
    ids.add_ids(1);
    Protocol::TrackInfos infos;
    store.GetStorage().GetTrackInfos(ids, infos);
    return infos.infos(0).size() / count - Engine::ChunkLayout::indexEntrySize;
}

void MeasureRead(Report& report, const std::string& folder, const ReadCase& wanted) {
    const std::string name = std::to_string(wanted.size);
    BenchStore store(folder + "/store" + name, BenchStore::Preparation::Allocate);
    // A segment, which is 1/32 of it, should hold a few of the largest.
    store.Create(1, std::max(wanted.count * (wanted.size + kibi), 512 * mebi), "os");
    ChunkWriter(store, 1, wanted.size).Append(wanted.count);
    const auto reader = store.OpenReader(1);
    const PageBuffer buffer(wanted.size);
    const BareFile file(folder + "/bare" + name, wanted.count * wanted.size, wanted.size);
    FlushFileSystem(folder);
    const std::uint64_t checksum = Engine::Checksum({buffer.Get(), buffer.GetSize()});
    const std::vector<std::uint64_t> order = RandomOrder(wanted.count);
    const std::uint64_t length = LengthOfChunks(store, wanted.count);
    const PageBuffer record(length);
    const BareFile records(folder + "/records" + name, wanted.count * length, length);
    const std::uint64_t recordChecksum = Engine::Checksum({record.Get(), record.GetSize()});
    const auto turn = [&](const auto& read) {
        return [&wanted, &order, read] {
            return SecondsOf([&] {
                for (std::uint64_t i = 0; i < wanted.reads; ++i) {
                    read(order[i % order.size()]);
                }
            });
        };
    };
    const auto bareRead = [&](std::uint64_t index) {
        file.Read(buffer.Get(), buffer.GetSize(), index * wanted.size);
        if (Engine::Checksum({buffer.Get(), buffer.GetSize()}) != checksum) {
            throw std::runtime_error("The bare file has other bytes");
        }
    };
    const auto recordRead = [&](std::uint64_t index) {
        records.Read(record.Get(), record.GetSize(), index * length);
        if (Engine::Checksum({record.Get(), record.GetSize()}) != recordChecksum) {
            throw std::runtime_error("The bare records have other bytes");
        }
    };
    Protocol::Chunk chunk;
    Protocol::TimePoint time;
    const Protocol::KeyList keys;
    const auto ourRead = [&](std::uint64_t index) {
        bool found = false;
        time.set_nanoseconds(index * ChunkWriter::duration);
        reader->GetChunk(time, keys, chunk, found);
        if (!found || chunk.data().items(0).value().size() != wanted.size) {
            throw std::runtime_error("A chunk was not read");
        }
    };
    const std::vector<double> seconds =
        TakeTurns(rounds, {turn(bareRead), turn(recordRead), turn(ourRead)});
    const auto reads = static_cast<double>(wanted.reads);
    const std::string ours = Microseconds(seconds[2] / reads);
    report.AtLeast(wanted.name, ours, Microseconds(seconds[0] / reads), seconds[0] / seconds[2],
                   wanted.goal);
    report.Note("  beside such records, back to back", ours, Microseconds(seconds[1] / reads),
                seconds[1] / seconds[2]);
}

}  // namespace

void MeasureReads(Report& report, const std::string& folder) {
    constexpr std::array<ReadCase, 3> cases{{
        {"read 4 KiB by time, warm", 4 * kibi, 16384, turnBytes / (8 * kibi), 0.5},
        {"read 256 KiB by time, warm", 256 * kibi, 512, turnBytes / (256 * kibi), 0.8},
        {"read 4 MiB by time, warm", 4 * mebi, 32, turnBytes / (4 * mebi), 0.8},
    }};
    for (const ReadCase& wanted : cases) {
        MeasureRead(report, folder, wanted);
    }
}

}  // namespace Brantel::Bench
