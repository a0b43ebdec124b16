#include "Conformance/EngineConformanceTest.h"

#include <utility>

namespace Brantel::Engine {

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(EngineConformanceTest);

bool CountingProgress::Report(std::uint64_t done, std::uint64_t total) {
    EXPECT_LE(lastDone, done);
    EXPECT_LE(done, total);
    EXPECT_GT(total, 0U);
    lastDone = done;
    lastTotal = total;
    return ++reports != stopAtReport;
}

bool CollectingObserver::Report(std::uint64_t done, std::uint64_t total) {
    EXPECT_LE(done, total);
    return true;
}

void CollectingSink::Begin(std::string_view firstPart, std::span<const std::uint32_t> sizes,
                           std::span<char*> destinations) {
    ASSERT_EQ(sizes.size(), destinations.size());
    partSizes.assign(sizes.begin(), sizes.end());
    parts.assign(sizes.size(), {});
    parts[0] = firstPart;
    for (std::size_t part = 1; part < sizes.size(); ++part) {
        if (!wanted || wanted->contains(part)) {
            parts[part].resize(sizes[part]);
            destinations[part] = parts[part].data();
        }
    }
}

void EngineConformanceTest::Reserve(std::uint64_t segments, TrackId id) {
    CountingProgress progress;
    Engine().Reserve({id, segmentSize, segments}, progress);
}

ChunkEntry EngineConformanceTest::Place(const SegmentId& id, std::int64_t timePoint,
                                        const std::vector<std::string_view>& views) {
    const std::optional<SegmentInfo> info = Info(id);
    ChunkEntry entry;
    entry.timePoint = timePoint;
    entry.duration = 10;
    entry.ordinal = info->count;
    entry.front = 0;
    entry.offset = info->end;
    ChunkLayout::SetLengths(entry, views);
    return entry;
}

ChunkEntry EngineConformanceTest::Append(const SegmentId& id, std::int64_t timePoint,
                                         const std::vector<std::string>& parts,
                                         Durability::Mode mode, Epoch writer) {
    const std::vector<std::string_view> views(parts.begin(), parts.end());
    const ChunkEntry entry = Place(id, timePoint, views);
    Engine().Append(id, writer, entry, views, Durability{mode, std::chrono::milliseconds(50)});
    return entry;
}

ChunkEntry EngineConformanceTest::AppendTaking(const SegmentId& id, std::int64_t timePoint,
                                               std::vector<std::string>& parts) {
    const std::vector<std::string_view> views(parts.begin(), parts.end());
    std::vector<std::string*> offered;
    for (std::string& part : parts) {
        offered.push_back(offered.empty() ? nullptr : &part);
    }
    const ChunkEntry entry = Place(id, timePoint, views);
    Engine().AppendTaking(id, 1, entry, views, offered, Durability{});
    return entry;
}

std::vector<std::string> EngineConformanceTest::Read(const SegmentId& id, const ChunkEntry& entry,
                                                     std::optional<std::set<std::size_t>> wanted) {
    CollectingSink sink(std::move(wanted));
    Engine().ReadChunk(id, entry, sink);
    return sink.parts;
}

std::optional<SegmentInfo> EngineConformanceTest::Info(const SegmentId& id) {
    for (const SegmentInfo& info : Engine().ListSegments(id.track)) {
        if (info.id == id) {
            return info;
        }
    }
    return std::nullopt;
}

bool EngineConformanceTest::Write(const std::string& key, const std::optional<std::string>& value,
                                  std::optional<std::uint64_t> expected) {
    const std::vector<RecordChange> changes{{key, value, expected}};
    return Engine().WriteRecords(changes);
}

std::string EngineConformanceTest::ValueOf(const std::string& key) {
    const std::optional<Record> record = Engine().ReadRecord(key);
    return record ? record->value : "(none)";
}

}  // namespace Brantel::Engine
