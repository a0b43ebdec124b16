#include "Local/ChunkReader.h"

#include "EngineError.h"
#include "Local/File.h"

#include <sys/uio.h>

#include <array>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Engine {

namespace {

using SegmentFormat::Part;

// What lies behind the first part is read with it when it is at most this long: a second call would
// cost more than the bytes.
constexpr std::uint32_t smallRest = 8192;
constexpr std::size_t stackRoom = 12288;
constexpr std::size_t fewParts = 16;

[[noreturn]] void Throw(const File& file, const ChunkEntry& entry, EngineError::Kind kind,
                        const std::string& text) {
    throw EngineError(kind,
                      file.GetPath() + ": chunk at " + std::to_string(entry.offset) + ": " + text);
}

void CheckPart(const File& file, const ChunkEntry& entry, const Part& part, std::size_t index,
               const char* bytes) {
    if (SegmentFormat::Checksum(bytes, part.size) != part.checksum) {
        Throw(file, entry, EngineError::Kind::Damaged,
              "the checksum of part " + std::to_string(index) + ", " + std::to_string(part.size) +
                  " bytes, is wrong");
    }
}

// One chunk on its way to the sink.
class ChunkTransfer {
  public:
    ChunkTransfer(const File& file, const ChunkEntry& entry, std::string_view bytes,
                  std::size_t partCount)
        : file(file), entry(entry), bytes(bytes), partCount(partCount) {
        if (partCount > fewParts) {
            manySizes.resize(partCount);
            manyDestinations.resize(partCount);
            sizes = manySizes;
            destinations = manyDestinations;
        } else {
            sizes = std::span(someSizes).first(partCount);
            destinations = std::span(someDestinations).first(partCount);
        }
    }

    void Run(IChunkSink& sink) {
        for (std::size_t index = 0; index < partCount; ++index) {
            sizes[index] = SegmentFormat::GetPart(bytes.data(), index).size;
        }
        const char* first = bytes.data() + ChunkLayout::HeadLength(partCount, 0);
        CheckPart(file, entry, SegmentFormat::GetPart(bytes.data(), 0), 0, first);
        sink.Begin({first, sizes[0]}, sizes, destinations);
        if (bytes.size() == entry.length) {
            Copy();
        } else {
            Fetch();
        }
        for (std::size_t index = 1; index < partCount; ++index) {
            if (destinations[index] != nullptr) {
                CheckPart(file, entry, SegmentFormat::GetPart(bytes.data(), index), index,
                          destinations[index]);
            }
        }
    }

  private:
    // The whole chunk is in memory.
    void Copy() {
        const char* source = bytes.data() + entry.headLength;
        for (std::size_t index = 1; index < partCount; ++index) {
            if (destinations[index] != nullptr && sizes[index] != 0) {
                std::memcpy(destinations[index], source, sizes[index]);
            }
            source += sizes[index];
        }
    }

    // Reads what is wanted straight to where it is wanted; parts that lie side by side together.
    void Fetch() {
        std::vector<iovec> run;
        std::uint64_t place = std::uint64_t{entry.offset} + entry.headLength;
        std::uint64_t runBegin = place;
        const auto readRun = [&] {
            if (!run.empty()) {
                file.Read(run, runBegin);
                run.clear();
            }
        };
        for (std::size_t index = 1; index < partCount; ++index) {
            if (destinations[index] == nullptr) {
                readRun();
            } else if (sizes[index] != 0) {
                if (run.empty()) {
                    runBegin = place;
                }
                run.push_back({destinations[index], sizes[index]});
            }
            place += sizes[index];
        }
        readRun();
    }

    const File& file;
    const ChunkEntry& entry;
    const std::string_view bytes;
    const std::size_t partCount;
    std::array<std::uint32_t, fewParts> someSizes{};
    std::array<char*, fewParts> someDestinations{};
    std::vector<std::uint32_t> manySizes;
    std::vector<char*> manyDestinations;
    std::span<std::uint32_t> sizes;
    std::span<char*> destinations;
};

}  // namespace

void ReadChunkFrom(const File& file, const SegmentFormat::Identity& identity, std::uint64_t stamp,
                   const ChunkEntry& entry, IChunkSink& sink) {
    const std::uint32_t limit = identity.segmentSize - ChunkLayout::segmentTrailerSize;
    if (entry.offset < ChunkLayout::segmentHeaderSize || entry.offset > limit ||
        entry.length > limit - entry.offset || entry.headLength > entry.length ||
        entry.headLength < ChunkLayout::HeadLength(1, 0)) {
        Throw(file, entry, EngineError::Kind::Refused, "not a place of a chunk");
    }
    const bool small = entry.length - entry.headLength <= smallRest;
    const std::size_t size = small ? entry.length : entry.headLength;
    std::array<char, stackRoom> stack;  // NOLINT: filled by the read
    std::unique_ptr<char[]> heap;       // NOLINT(*-avoid-c-arrays)
    if (size > stack.size()) {
        heap.reset(new char[size]);  // not zeroed: filled by the read
    }
    char* bytes = heap ? heap.get() : stack.data();
    file.Read(bytes, size, entry.offset);

    std::size_t needed = 0;
    const std::optional<SegmentFormat::ChunkHead> head =
        SegmentFormat::DecodeChunk(bytes, size, entry.offset, identity, stamp, needed);
    if (!head) {
        Throw(file, entry, EngineError::Kind::Damaged, "its head is damaged");
    }
    if (head->GetEntry() != entry) {
        Throw(file, entry, EngineError::Kind::Refused, "another chunk lies there");
    }
    ChunkTransfer(file, entry, {bytes, size}, head->partCount).Run(sink);
}

}  // namespace Brantel::Engine
