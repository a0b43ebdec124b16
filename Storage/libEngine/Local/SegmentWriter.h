#pragma once

#include "Local/SegmentFormat.h"

#include <libEngine/EngineTypes.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <string_view>

struct iovec;

namespace Brantel::Engine {

class File;

// Writes an open segment: whole pages, of which the last one is kept in memory and written again
// with what comes next, so that nothing has to be read and no byte that was answered ever changes.
// Not thread-safe.
class SegmentWriter {
  public:
    // Goes on at `end`: reads the page that it lies in. `ringFront`: as its headers say.
    SegmentWriter(std::shared_ptr<File> file, const SegmentFormat::Identity& identity,
                  std::uint32_t end, std::uint64_t ringFront);

    // Puts a chunk at the end; not flushed. When it throws, the end stays where it was.
    void Write(const ChunkEntry& entry, std::span<const std::string_view> parts, Epoch epoch,
               std::uint32_t flushedEnd);

    // Voids what may have been written behind `end`, so that no scan goes on there; false when
    // nothing was.
    bool CutOff(std::uint32_t newEnd);
    // Writes all bytes of [begin, end) again as the file gives them now.
    void WriteAgain(std::uint32_t begin, std::uint32_t end) const;

    void WriteHeader(const SegmentFormat::Identity& identity, SegmentFormat::HeaderState state,
                     bool mayFollowLoss = false) const;
    // Writes the index in front of the footer and sets the footer's checksum of it; false, and
    // nothing is written, for entries that fit into the footer's page.
    bool WriteIndex(std::span<const SegmentFormat::Entry> entries, std::uint32_t chunksEnd,
                    SegmentFormat::Footer& footer) const;
    void WriteFooter(const SegmentFormat::Footer& footer,
                     std::span<const SegmentFormat::Entry> entries) const;

    const File& GetFile() const { return *file; }
    std::uint32_t GetEnd() const { return end; }
    // Up to here there may be bytes of chunks that were begun.
    std::uint32_t GetTouchedEnd() const { return touchedEnd; }

  private:
    struct Free {
        void operator()(char* bytes) const {
            ::operator delete(bytes, std::align_val_t(SegmentFormat::pageSize));
        }
    };
    using Pages = std::unique_ptr<char, Free>;

    static Pages AllocatePages(std::size_t count);
    void LoadLastPage(std::uint32_t newEnd);
    void WriteGathered(const ChunkEntry& entry, std::span<const std::string_view> parts,
                       Epoch epoch, std::uint32_t flushedEnd);

    const std::shared_ptr<File> file;
    const SegmentFormat::Identity identity;
    const std::uint64_t ringFront;
    std::uint32_t end;
    std::uint32_t touchedEnd;
    Pages pages;  // the first of them holds what lies in front of the end in its page
};

}  // namespace Brantel::Engine
