// How long a server takes to start on what is there.
#include "Bench/BareFile.h"
#include "Bench/BenchStore.h"
#include "Bench/Comparison.h"
#include "Bench/EngineRows.h"

#include <libEngine/Checksum.h>

#include <filesystem>
#include <memory>
#include <vector>

namespace Brantel::Bench {

namespace {

constexpr std::uint64_t kibi = 1024;
constexpr std::uint64_t mebi = kibi * kibi;

class ManySegments {
  public:
    static constexpr std::uint64_t segments = 10000;

    explicit ManySegments(const std::string& folder) : folder(folder) {
        const std::unique_ptr<BenchStore> store = Open();
        for (std::uint64_t track = 1; track <= tracks; ++track) {
            store->Create(static_cast<long>(track), capacity, "os");
            ChunkWriter(*store, static_cast<long>(track), chunkSize).Append(chunksEach);
        }
    }

    std::unique_ptr<BenchStore> Open() const {
        Tracks::StorageOptions options;
        options.smallestSegmentBytes = segmentSize;
        return std::make_unique<BenchStore>(folder + "/store", BenchStore::Preparation::Allocate,
                                            options);
    }

    // Reads the first and the last page of each segment.
    void ReadPages() const {
        PageBuffer page(4 * kibi);
        for (const auto& path : ListSegments()) {
            const BareFile file(path);
            file.Read(page.Get(), page.GetSize(), 0);
            file.Read(page.Get(), page.GetSize(), segmentSize - page.GetSize());
        }
    }

    std::vector<std::string> ListSegments() const {
        std::vector<std::string> paths;
        for (const auto& file :
             std::filesystem::recursive_directory_iterator(folder + "/store/tracks")) {
            if (file.is_regular_file()) {
                paths.push_back(file.path());
            }
        }
        return paths;
    }

  private:
    static constexpr std::uint32_t segmentSize = 64 * kibi;
    static constexpr std::uint64_t segmentsEach = 32;
    static constexpr std::uint64_t tracks = (segments + segmentsEach - 1) / segmentsEach;
    // Nine chunks fill a segment.
    static constexpr std::uint64_t capacity = segmentsEach * (segmentSize - 8 * kibi);
    static constexpr std::size_t chunkSize = 6 * kibi;
    static constexpr std::uint64_t chunksEach = segmentsEach * 9 - 1;

    const std::string folder;
};

void MeasureManySegments(Report& report, const std::string& folder) {
    const ManySegments many(folder);
    constexpr double goalSeconds = 1;
    const auto start = [&](bool isCold) {
        FlushFileSystem(folder);
        if (isCold) {
            ForgetPages(folder);
        }
        return SecondsOf([&] { many.Open(); });
    };
    const auto read = [&](bool isCold) {
        FlushFileSystem(folder);
        if (isCold) {
            ForgetPages(folder);
        }
        return SecondsOf([&] { many.ReadPages(); });
    };
    const std::string count = std::to_string(many.ListSegments().size());
    for (const bool isCold : {false, true}) {
        const Medians seconds = TakeTurns(
            leastRounds, [&] { return read(isCold); }, [&] { return start(isCold); });
        const std::string state = isCold ? ", cold" : ", warm";
        report.AtMost("start, 10,000 segments in " + count + " files" + state,
                      Milliseconds(seconds.ours), Milliseconds(goalSeconds),
                      seconds.ours / goalSeconds, 1);
        report.Note("  beside reading two pages of each file" + state, Milliseconds(seconds.ours),
                    Milliseconds(seconds.base), seconds.ours / seconds.base);
    }
}

// A segment that was open when the server was killed, in all its length, beside reading and
// checking as many bytes of it by a bare loop in blocks.
void MeasureOpenSegment(Report& report, const std::string& folder) {
    constexpr std::uint64_t capacity = 2048 * mebi;
    constexpr std::uint64_t chunkSize = 256 * kibi;
    constexpr std::uint64_t bytes = 60 * mebi;
    int number = 0;
    std::string store;
    const Turn ours = [&] {
        store = folder + "/killed" + std::to_string(number++);
        InKilledProcess([&] {
            BenchStore killed(store, BenchStore::Preparation::Allocate);
            killed.Create(1, capacity, "os");
            ChunkWriter(killed, 1, chunkSize).Append(bytes / chunkSize);
            return 0.0;
        });
        FlushFileSystem(folder);
        std::unique_ptr<BenchStore> opened;
        const double took = SecondsOf([&] {
            opened = std::make_unique<BenchStore>(store, BenchStore::Preparation::Allocate);
        });
        opened.reset();
        std::filesystem::remove_all(store);
        return took;
    };
    const BareFile file(folder + "/bare", bytes);
    const PageBuffer block(mebi);
    volatile std::uint64_t sum = 0;
    const Turn base = [&] {
        return SecondsOf([&] {
            for (std::uint64_t place = 0; place < bytes; place += block.GetSize()) {
                file.Read(block.Get(), block.GetSize(), place);
                sum = sum + Engine::Checksum({block.Get(), block.GetSize()});
            }
        });
    };
    const Medians seconds = TakeTurns(leastRounds, base, ours);
    report.Note("start after kill -9, 60 MiB in the open segment", Milliseconds(seconds.ours),
                Milliseconds(seconds.base), seconds.base / seconds.ours);
}

}  // namespace

void MeasureStart(Report& report, const std::string& folder) {
    MeasureOpenSegment(report, folder);
    MeasureManySegments(report, folder);
}

}  // namespace Brantel::Bench
