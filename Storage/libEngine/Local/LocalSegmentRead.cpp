#include "EngineError.h"
#include "Local/BlockReader.h"
#include "Local/CheckedChunk.h"
#include "Local/ChunkReader.h"
#include "Local/File.h"
#include "Local/FileCache.h"
#include "Local/LocalSegment.h"
#include "Local/SegmentPages.h"
#include "Local/SegmentScanner.h"

#include <utility>

namespace Brantel::Engine {

using SegmentFormat::FooterState;

namespace {

std::vector<ChunkEntry> Unpack(const std::vector<SegmentFormat::Entry>& packed) {
    std::vector<ChunkEntry> entries;
    entries.reserve(packed.size());
    for (const SegmentFormat::Entry& entry : packed) {
        entries.push_back(SegmentFormat::Unpack(entry));
    }
    return entries;
}

}  // namespace

std::vector<ChunkEntry> LocalSegment::ReadEntries() const {
    CheckRemoved();
    {
        const std::lock_guard lock(mutex);
        if (!info.sealed || settling) {
            return Unpack(entries.Get(entries.GetCount()));
        }
    }
    std::vector<ChunkEntry> found = ReadSealedEntries(report);
    CheckRemoved();
    return found;
}

std::vector<ChunkEntry> LocalSegment::ReadSealedEntries(const LocalReport& damage) const {
    const std::shared_ptr<File> target = GetFile();
    const SegmentPages pages = ReadSegmentPages(*target, identity.segmentSize);
    if (pages.footer && pages.footer->identity.generation == identity.generation &&
        pages.footer->state == FooterState::Sealed) {
        std::optional<std::vector<ChunkEntry>> found = ReadSegmentIndex(*target, pages);
        if (found) {
            return *std::move(found);
        }
    }
    CheckRemoved();
    if (damage) {
        damage(Describe() + ": the index is damaged, the chunks themselves are read");
    }
    // What the footer told when it was read first.
    const SegmentInfo known = GetInfo();
    SegmentFormat::Footer footer;
    footer.state = FooterState::Sealed;
    footer.identity = identity;
    footer.count = known.count;
    footer.end = known.end;
    footer.first = SegmentFormat::Pack(known.first);
    footer.last = SegmentFormat::Pack(known.last);
    SegmentContent content;
    SegmentScanner(*target, identity, footer, [](std::uint32_t, const std::string&) {
    }).Scan(content);
    return Unpack(content.entries.Get(content.entries.GetCount()));
}

void LocalSegment::ReadChunk(const ChunkEntry& entry, IChunkSink& sink) const {
    CheckRemoved();
    try {
        ReadChunkFrom(*GetFile(), identity, stamp, entry, sink);
    } catch (const EngineError& error) {
        // Written over while it was read: not damage.
        CheckRemoved();
        throw;
    }
}

void LocalSegment::Verify(std::uint32_t offset, IVerifyObserver& observer) const {
    CheckRemoved();
    const SegmentInfo known = GetInfo();
    std::vector<ChunkEntry> chunks;
    if (IsIndexed()) {
        const SegmentPages pages = ReadSegmentPages(*GetFile(), identity.segmentSize);
        const auto tell = [&](std::uint32_t place, const char* text) {
            observer.OnDamage(Damage{known.id, place, std::nullopt, Describe() + ": " + text});
        };
        CheckRemoved();
        if (!pages.header || pages.header->identity.generation != identity.generation) {
            tell(0, "the header is damaged");
        }
        if (pages.fileSize != identity.segmentSize) {
            tell(static_cast<std::uint32_t>(pages.fileSize), "the file has another size");
        }
        chunks = ReadSealedEntries([&](const std::string&) {
            tell(identity.segmentSize - ChunkLayout::segmentTrailerSize, "the index is damaged");
        });
    } else {
        chunks = ReadEntries();
    }
    VerifyChunks(chunks, offset, observer);
}

void LocalSegment::VerifyChunks(const std::vector<ChunkEntry>& chunks, std::uint32_t offset,
                                IVerifyObserver& observer) const {
    const std::shared_ptr<File> target = GetFile();
    BlockReader reader(*target, identity.segmentSize - ChunkLayout::segmentTrailerSize);
    const std::uint32_t end = GetInfo().end;
    for (const ChunkEntry& entry : chunks) {
        if (removed || !observer.Report(entry.offset, end)) {
            return;
        }
        if (entry.offset < offset) {
            continue;
        }
        CheckedChunk chunk = CheckChunk(reader, entry.offset, identity, stamp);
        if (chunk.whole && chunk.head->GetEntry() != entry) {
            chunk.fault = "its head and its index entry differ";
        }
        if (!chunk.fault.empty() && !removed) {
            observer.OnDamage(Damage{
                GetInfo().id, entry.offset, entry,
                Describe() + ": chunk at " + std::to_string(entry.offset) + ": " + chunk.fault});
        }
    }
    observer.Report(end, end);
}

}  // namespace Brantel::Engine
