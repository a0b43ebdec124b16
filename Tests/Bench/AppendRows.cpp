// Appends through the tracks, beside a bare loop that writes the same bytes to a file whose blocks
// are there; and small ones through the engine alone.
#include "Bench/BareFile.h"
#include "Bench/BenchStore.h"
#include "Bench/Comparison.h"
#include "Bench/EngineRows.h"

#include <libEngine/Checksum.h>
#include <libEngine/ChunkLayout.h>
#include <libEngine/Local/LocalEngine.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <vector>

namespace Brantel::Bench {

namespace {

constexpr int rounds = 7;
constexpr std::uint64_t kibi = 1024;
constexpr std::uint64_t mebi = kibi * kibi;
// Both sides go round in as many bytes.
constexpr std::uint64_t ringBytes = 512 * mebi;

struct AppendCase {
    const char* name;
    std::uint64_t size;
    const char* durability;
    std::uint64_t turnBytes;
    double goal;
};

class BareWriter {
  public:
    // `resembles`: does what no format with checksums can do without: computes one of each record,
    // and writes behind the head of a chunk instead of at the beginning of a page.
    BareWriter(const std::string& path, std::uint64_t size, bool flushes, bool resembles)
        : file(path, ringBytes + mebi), buffer(size), flushes(flushes), resembles(resembles) {}

    void Write() {
        constexpr std::uint64_t headSize = 136;
        if (place + buffer.GetSize() > ringBytes) {
            place = 0;
        }
        if (resembles) {
            checksum = checksum + Engine::Checksum({buffer.Get(), buffer.GetSize()});
        }
        file.Write(buffer.Get(), buffer.GetSize(), place + (resembles ? headSize : 0));
        place += buffer.GetSize();
        if (flushes) {
            file.FlushData();
        }
    }

  private:
    const BareFile file;
    const PageBuffer buffer;
    const bool flushes;
    const bool resembles;
    std::uint64_t place = 0;
    volatile std::uint64_t checksum = 0;
};

void MeasureAppend(Report& report, const std::string& folder, const AppendCase& wanted) {
    const bool flushes = std::string_view(wanted.durability) == "always";
    const std::string name = std::to_string(wanted.size) + wanted.durability;
    BenchStore store(folder + "/store" + name, BenchStore::Preparation::Write);
    store.Create(1, ringBytes, "os");
    // A lap first: from then on each append finds the ring full.
    ChunkWriter(store, 1, wanted.size).Append(ringBytes / wanted.size + 1);
    store.SetDurability(1, wanted.durability);
    Protocol::TimePoint end;
    store.GetStorage().GetEndOfTrack(1, end);
    ChunkWriter writer(store, 1, wanted.size, 0, static_cast<std::int64_t>(end.nanoseconds()));
    BareWriter bare(folder + "/bare" + name, wanted.size, flushes, false);
    BareWriter like(folder + "/like" + name, wanted.size, flushes, true);

    const std::uint64_t count = wanted.turnBytes / wanted.size;
    const auto turn = [&](const auto& append) {
        return [&folder, count, append] {
            FlushFileSystem(folder);
            return SecondsOf([count, &append] {
                for (std::uint64_t i = 0; i < count; ++i) {
                    append();
                }
            });
        };
    };
    const std::vector<double> seconds =
        TakeTurns(rounds, {turn([&bare] { bare.Write(); }), turn([&writer] { writer.Append(); }),
                           turn([&like] { like.Write(); })});
    const auto bytes = static_cast<double>(count * wanted.size);
    const std::string ours = MebibytesPerSecond(bytes, seconds[1]);
    report.AtLeast(wanted.name, ours, MebibytesPerSecond(bytes, seconds[0]),
                   seconds[0] / seconds[1], wanted.goal);
    report.Note("  beside a loop with checksum, not at pages", ours,
                MebibytesPerSecond(bytes, seconds[2]), seconds[2] / seconds[1]);
}

// Appends to the segments of a ring of its own, as the tracks would, with nothing above the engine.
class EngineWriter {
  public:
    static constexpr std::uint32_t segmentSize = 16 * mebi;
    static constexpr std::uint64_t segmentCount = 8;

    explicit EngineWriter(const std::string& directory) : engine(Options(directory)) {
        class NoProgress : public Engine::IProgress {
            bool Report(std::uint64_t /*done*/, std::uint64_t /*total*/) override { return true; }
        };
        NoProgress progress;
        engine.Reserve({1, segmentSize, segmentCount}, progress);
        Next();
    }

    void Append(std::string_view payload) {
        const std::array<std::string_view, 1> parts{payload};
        Engine::ChunkEntry entry;
        Engine::ChunkLayout::SetLengths(entry, parts);
        if (taken + Engine::ChunkLayout::Cost(entry.length) >
            Engine::ChunkLayout::Usable(segmentSize)) {
            engine.Seal({1, Engine::LogKind::Ring, number}, epoch, count);
            Next();
        }
        entry.timePoint = static_cast<std::int64_t>(ordinal);
        entry.duration = 1;
        entry.ordinal = ordinal++;
        entry.offset = end;
        engine.Append({1, Engine::LogKind::Ring, number}, epoch, entry, parts,
                      {Engine::Durability::Mode::Os, {}});
        end += entry.length;
        taken += Engine::ChunkLayout::Cost(entry.length);
        ++count;
    }

  private:
    static Engine::LocalOptions Options(const std::string& directory) {
        Engine::LocalOptions options;
        options.directory = directory;
        return options;
    }

    void Next() {
        ++number;
        if (number > segmentCount) {
            engine.RemoveSegment({1, Engine::LogKind::Ring, number - segmentCount}, epoch, 0);
        }
        engine.CreateSegment({1, Engine::LogKind::Ring, number}, epoch);
        end = Engine::ChunkLayout::segmentHeaderSize;
        taken = 0;
        count = 0;
    }

    static constexpr Engine::Epoch epoch = 1;
    Engine::LocalEngine engine;
    std::uint64_t number = 0;
    std::uint64_t ordinal = 0;
    std::uint64_t taken = 0;
    std::uint64_t count = 0;
    std::uint32_t end = 0;
};

// A record is a size, a checksum and the bytes; each is handed to the system by a write of its own,
// as one must that a crash of the process should not lose.
class BareRecordWriter {
  public:
    explicit BareRecordWriter(const std::string& path) : file(path, size) {}

    void Append(std::string_view payload) {
        constexpr std::size_t headSize = 16;
        constexpr std::size_t maxPayload = 112;
        std::array<char, headSize + maxPayload> record{};
        const std::uint64_t length = payload.size();
        const std::uint64_t checksum = Engine::Checksum(payload);
        std::memcpy(record.data(), &length, sizeof length);
        std::memcpy(record.data() + sizeof length, &checksum, sizeof checksum);
        std::memcpy(record.data() + headSize, payload.data(), payload.size());
        if (place + headSize + length > size) {
            place = 0;
        }
        file.Write(record.data(), headSize + length, place);
        place += headSize + length;
    }

  private:
    static constexpr std::uint64_t size = EngineWriter::segmentSize * EngineWriter::segmentCount;
    const BareFile file;
    std::uint64_t place = 0;
};

}  // namespace

void MeasureAppends(Report& report, const std::string& folder) {
    constexpr std::array<AppendCase, 4> cases{{
        {"append 256 KiB, os", 256 * kibi, "os", 256 * mebi, 0.8},
        {"append 4 MiB, os", 4 * mebi, "os", 256 * mebi, 0.8},
        {"append 4 KiB, always", 4 * kibi, "always", 2 * mebi, 0.8},
        {"append 256 KiB, always", 256 * kibi, "always", 64 * mebi, 0.8},
    }};
    for (const AppendCase& wanted : cases) {
        MeasureAppend(report, folder, wanted);
    }
}

void MeasureSmallAppends(Report& report, const std::string& folder) {
    constexpr std::size_t payloadSize = 100;
    constexpr int count = 400000;
    const PageBuffer payload(payloadSize);
    const std::string_view bytes(payload.Get(), payloadSize);
    EngineWriter writer(folder + "/store");
    BareRecordWriter bare(folder + "/bare");
    const auto turn = [&](auto& target) {
        return [&target, &folder, bytes] {
            FlushFileSystem(folder);
            return SecondsOf([&target, bytes] {
                for (int i = 0; i < count; ++i) {
                    target.Append(bytes);
                }
            });
        };
    };
    const Medians seconds = TakeTurns(rounds, turn(bare), turn(writer));
    report.AtLeast("append 100 B, os, engine alone", Rate(count / 1e3, seconds.ours, "k/s"),
                   Rate(count / 1e3, seconds.base, "k/s"), seconds.base / seconds.ours, 0.5);
}

}  // namespace Brantel::Bench
