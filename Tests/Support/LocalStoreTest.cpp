#include "Support/LocalStoreTest.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace Brantel::Engine {

void AllParts::Begin(std::string_view firstPart, std::span<const std::uint32_t> sizes,
                     std::span<char*> destinations) {
    parts.assign(sizes.size(), {});
    parts[0] = firstPart;
    for (std::size_t part = 1; part < sizes.size(); ++part) {
        parts[part].resize(sizes[part]);
        destinations[part] = parts[part].data();
    }
}

LocalStoreTest::LocalStoreTest() {
    options.directory = folder.File("store");
    options.keepFree = 0;
    options.preparation = LocalOptions::Preparation::Allocate;
    options.catalogueReserve = 0;
    options.report = [this](const std::string& text) {
        const std::lock_guard lock(reportMutex);
        reports.push_back(text);
    };
}

LocalStoreTest::~LocalStoreTest() {
    Close();
    if (!memoryFolder.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(memoryFolder, ignored);
    }
}

void LocalStoreTest::PlaceInMemory() {
    std::string pattern = "/dev/shm/brantel-XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr) {
        memoryFolder = pattern;
        options.directory = memoryFolder + "/store";
    }
}

void LocalStoreTest::Open(IFileCalls* calls) {
    engine = std::make_unique<LocalEngine>(options, calls);
}

void LocalStoreTest::Reserve(std::uint64_t segments, TrackId id) {
    SilentProgress progress;
    engine->Reserve({id, segmentSize, segments}, progress);
}

ChunkEntry LocalStoreTest::Append(const SegmentId& id, std::int64_t timePoint,
                                  const std::vector<std::string>& parts, Durability::Mode mode,
                                  Epoch epoch) {
    const SegmentInfo info = Info(id);
    const std::vector<std::string_view> views(parts.begin(), parts.end());
    ChunkEntry entry;
    entry.timePoint = timePoint;
    entry.duration = 10;
    entry.ordinal = info.count;
    entry.offset = info.end;
    ChunkLayout::SetLengths(entry, views);
    engine->Append(id, epoch, entry, views, Durability{mode, std::chrono::milliseconds(20)});
    return entry;
}

std::vector<std::string> LocalStoreTest::Read(const SegmentId& id, const ChunkEntry& entry) {
    AllParts sink;
    engine->ReadChunk(id, entry, sink);
    return sink.parts;
}

SegmentInfo LocalStoreTest::Info(const SegmentId& id) {
    for (const SegmentInfo& info : engine->ListSegments(id.track)) {
        if (info.id == id) {
            return info;
        }
    }
    throw std::runtime_error("no segment " + std::to_string(id.number));
}

std::vector<std::string> LocalStoreTest::Verify(const SegmentId& id) {
    DamageTexts observer;
    engine->Verify(id, 0, observer);
    return observer.texts;
}

bool LocalStoreTest::Write(const std::string& key, const std::string& value) {
    const std::vector<RecordChange> changes{{key, value}};
    return engine->WriteRecords(changes);
}

std::string LocalStoreTest::ValueOf(const std::string& key) {
    const std::optional<Record> record = engine->ReadRecord(key);
    return record ? record->value : "(none)";
}

std::vector<std::string> LocalStoreTest::Reports() {
    const std::lock_guard lock(reportMutex);
    return reports;
}

std::string LocalStoreTest::SlotPath(std::uint32_t slot, TrackId id) const {
    const std::string digits = std::to_string(slot);
    return options.directory + "/tracks/" + std::to_string(id) + "/" +
           std::string(5 - digits.size(), '0') + digits + ".segment";
}

std::string LocalStoreTest::ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("can't open " + path);
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void LocalStoreTest::WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << bytes;
    if (!file.flush()) {
        throw std::runtime_error("can't write " + path);
    }
}

void LocalStoreTest::WriteAt(const std::string& path, std::uint64_t offset,
                             const std::string& bytes) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(offset));
    file << bytes;
    if (!file.flush()) {
        throw std::runtime_error("can't write " + path);
    }
}

std::string LocalStoreTest::Bytes(std::size_t size, unsigned seed) {
    std::string bytes(size, '\0');
    for (std::size_t index = 0; index < size; ++index) {
        bytes[index] = static_cast<char>(seed * 37 + index * 11 + (index >> 8U));
    }
    return bytes;
}

std::string LocalStoreTest::ErrorOf(EngineError::Kind kind, const std::function<void()>& action) {
    try {
        action();
    } catch (const EngineError& error) {
        EXPECT_EQ(static_cast<int>(error.GetKind()), static_cast<int>(kind)) << error.what();
        return error.what();
    }
    ADD_FAILURE() << "no error";
    return {};
}

}  // namespace Brantel::Engine
