#include "Local/SlotLoader.h"

#include "EngineError.h"
#include "Local/File.h"
#include "Local/SegmentPages.h"
#include "Local/SegmentScanner.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace Brantel::Engine {

using SegmentFormat::FooterState;
using SegmentFormat::HeaderState;

namespace {

constexpr const char* headerDamaged = ": the header is damaged, the footer is used";

}  // namespace

// What a slot holds.
struct SlotLoader::Content {
    SegmentPages pages;
    std::optional<SegmentFormat::Identity> identity;  // of a segment in use
    std::optional<SegmentFormat::Footer> footer;      // of that segment
    std::shared_ptr<File> file;

    // Nobody has written a header for this segment, as far as can be seen.
    bool IsHeaderMissing() const {
        return pages.header ? pages.header->identity.generation != identity->generation
                            : pages.headerBlank;
    }
};

SlotLoader::Content SlotLoader::Read(const Slot& slot) {
    Content content;
    content.file = slot->Open();
    content.pages = ReadSegmentPages(*content.file, segmentSize);
    if (content.pages.unreadable) {
        context.options.report(slot->GetPath() + ": its first or its last page can't be read");
    }
    std::optional<SegmentFormat::Header>& header = content.pages.header;
    std::optional<SegmentFormat::Footer>& footer = content.pages.footer;
    const auto isForeign = [this](const auto& page) { return page->identity.track != track; };
    if ((header && isForeign(header)) || (footer && isForeign(footer))) {
        context.options.report(slot->GetPath() + ": belongs to another track, is left alone");
        return content;
    }
    const std::uint64_t headerGeneration = header ? header->identity.generation : 0;
    const std::uint64_t footerGeneration = footer ? footer->identity.generation : 0;
    lastGeneration = std::max({lastGeneration, headerGeneration, footerGeneration});
    ringFront = std::max(ringFront, header ? header->ringFront : 0);
    // The newer of the two is the slot's last use; the other is left from the one before.
    if (header && headerGeneration >= footerGeneration) {
        if (header->state == HeaderState::InUse) {
            content.identity = header->identity;
        }
    } else if (footer) {
        content.identity = footer->identity;
    }
    if (content.identity && footer && footerGeneration == content.identity->generation) {
        content.identity->epoch = std::max(content.identity->epoch, footer->identity.epoch);
        content.footer = footer;
    }
    return content;
}

// The header of a segment is flushed with its first chunk. Where it is not there yet, and no chunk
// says that anything had been flushed, the segment was only being started.
void SlotLoader::JudgeHeader(const Slot& slot, const Content& content, bool isFlushed,
                             LocalSegment& segment) const {
    const bool isMissing = content.IsHeaderMissing();
    if (content.pages.header && !isMissing) {
        if (content.pages.header->mayFollowLoss != 0) {
            segment.SetPredecessor(nullptr);
        }
    } else if (isMissing && !isFlushed) {
        segment.SetUnstarted();
        if (context.options.note) {
            context.options.note(slot->GetPath() + ": a segment was being started, " +
                                 std::to_string(segment.GetInfo().count) +
                                 " unflushed chunks are there");
        }
    } else if (!content.pages.header) {
        context.options.report(slot->GetPath() + headerDamaged);
    }
}

std::shared_ptr<LocalSegment> SlotLoader::Open(const Slot& slot, const Content& content) const {
    if (content.footer && content.footer->state == FooterState::Sealed) {
        if (!content.pages.header) {
            context.options.report(slot->GetPath() + headerDamaged);
        }
        SegmentFormat::Footer footer = *content.footer;
        footer.identity.epoch = content.identity->epoch;
        return std::make_shared<LocalSegment>(slot, footer, context.options.report,
                                              context.flushMeter);
    }
    // What an earlier run answered without flushing it becomes safe here, before it is relied on.
    std::string flushFailure;
    try {
        content.file->FlushData();
    } catch (const EngineError& error) {
        flushFailure = error.what();
        context.options.report(flushFailure);
    }
    SegmentContent found;
    if (content.footer) {
        const auto indexed = ReadSegmentIndex(*content.file, content.pages);
        for (const ChunkEntry& entry : indexed.value_or(std::vector<ChunkEntry>())) {
            found.Add(entry, false);
        }
    }
    const auto report = [&](std::uint32_t offset, const std::string& text) {
        context.options.report(slot->GetPath() + ": chunk at " + std::to_string(offset) + ": " +
                               text);
    };
    SegmentScanner(*content.file, *content.identity, content.footer, report).Scan(found);
    const bool isFlushed = found.provenEnd > ChunkLayout::segmentHeaderSize;
    auto segment = std::make_shared<LocalSegment>(slot, *content.identity, std::move(found),
                                                  context.options.report, context.flushMeter);
    JudgeHeader(slot, content, isFlushed, *segment);
    if (!flushFailure.empty()) {
        segment->SetUnflushed(flushFailure.c_str());
    }
    return segment;
}

void SlotLoader::Load(const Slot& slot) {
    const Content content = Read(slot);
    const bool cut = content.pages.fileSize != segmentSize;
    if (cut) {
        context.options.report(slot->GetPath() + ": has " + std::to_string(content.pages.fileSize) +
                               " bytes instead of " + std::to_string(segmentSize));
    }
    if (!content.identity) {
        const bool known = content.pages.header || content.pages.footer;
        const bool given = content.pages.header && content.pages.header->identity.track == track;
        if (content.pages.blank || given) {
            (cut ? spoiltSlots : given ? usedSlots : blankSlots).push_back(slot);
        } else if (!known) {
            // It may hold chunks that somebody can still save.
            context.options.report(slot->GetPath() +
                                   ": neither header nor footer can be read, is left alone");
        }
        return;
    }
    const Key key{content.identity->GetId().log, content.identity->number};
    std::uint64_t& generation = generations[key];
    if (generation > content.identity->generation) {
        usedSlots.push_back(slot);
        return;
    }
    std::shared_ptr<LocalSegment> segment = Open(slot, content);
    std::shared_ptr<LocalSegment>& place = segments[key];
    if (place) {
        usedSlots.push_back(place->GetSlot());
    }
    place = std::move(segment);
    generation = content.identity->generation;
}

}  // namespace Brantel::Engine
