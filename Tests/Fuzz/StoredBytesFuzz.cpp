// A storage over an engine that gives back other bytes than were stored, with right checksums, as
// another version or a defect could have written them: it opens or says why not, every call
// returns or throws, every walk comes to an end.
//
// An input is a row of changes, each an operation and its arguments.
#include "Fuzz/StoredTracks.h"
#include "Support/FuzzCheck.h"

#include <libEngine/ChunkLayout.h>
#include <libEngine/Memory/MemoryEngine.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Brantel::Engine::ChunkEntry;
using Brantel::Engine::ChunkLayout;
using Brantel::Engine::LogKind;
using Brantel::Engine::MemoryEngine;
using Brantel::Engine::Record;
using Brantel::Engine::RecordChange;
using Brantel::Engine::SegmentId;
using Brantel::Engine::SegmentInfo;
using Brantel::Tests::FuzzInput;
using Brantel::Tests::KnownTracks;
using Brantel::Tests::Try;
using Brantel::Tracks::Storage;

constexpr std::uint64_t engineLimit = std::uint64_t{4} << 20U;
constexpr std::size_t mostChanges = 50;
constexpr Brantel::Engine::Epoch epoch = 1000;

// A number that means something, or any small one.
std::int64_t NumberOf(FuzzInput& input) {
    constexpr std::array<std::int64_t, 8> numbers{-1,        INT64_MAX,  INT64_MIN, INT64_MAX - 1,
                                                  INT64_MIN, UINT32_MAX, INT32_MAX, 0};
    const std::uint8_t byte = input.Byte();
    return byte < numbers.size() ? numbers[byte] : byte - 8;
}

// What is changed.
struct Original {
    MemoryEngine engine{engineLimit};
    const KnownTracks known = Brantel::Tests::FillStorage(engine, [] {});
};

class Changes {
  public:
    explicit Changes(MemoryEngine& engine) : engine(engine), records(engine.ScanRecords("")) {}

    void Apply(FuzzInput& input) {
        const std::uint8_t operation = input.Byte();
        const Record& record = records[input.Byte() % records.size()];
        std::string value = record.value;
        switch (operation % 7) {
            case 0: {
                const std::size_t offset = std::min<std::size_t>(value.size(), input.Byte());
                const std::string_view bytes = input.Bytes(1U + operation / 7U);
                value.replace(offset, bytes.size(), bytes);
                Write(record.key, value);
                break;
            }
            case 1: Write(record.key, value.substr(0, input.Byte())); break;
            case 2: Write(record.key, std::string(input.Bytes(input.Byte()))); break;
            case 3: Write(record.key, std::nullopt); break;
            case 4: Write(records[input.Byte() % records.size()].key, value); break;
            case 5: {
                const std::string_view folder =
                    std::string_view(record.key).substr(0, record.key.find('/') + 1);
                Write(std::string(folder) + std::to_string(NumberOf(input)), value);
                break;
            }
            default: Try([&] { AppendChunk(input); }); break;
        }
    }

  private:
    void Write(const std::string& key, const std::optional<std::string>& value) {
        const std::vector<RecordChange> changes{{key, value}};
        Try([&] { engine.WriteRecords(changes); });
    }

    // To a segment that exists, or to a new one.
    SegmentInfo OpenSegment(FuzzInput& input) {
        SegmentId id;
        id.track = 1 + input.Byte() % 3;
        const std::uint8_t number = input.Byte();
        id.log = number % 2 == 0 ? LogKind::Ring : LogKind::Held;
        id.number = number / 2U;
        Try([&] { engine.CreateSegment(id, epoch); });
        return engine.Claim(id, epoch);
    }

    void AppendChunk(FuzzInput& input) {
        const SegmentInfo segment = OpenSegment(input);
        ChunkEntry entry = segment.last;
        entry.timePoint = NumberOf(input);
        entry.duration = NumberOf(input);
        entry.ordinal = static_cast<std::uint64_t>(NumberOf(input));
        entry.front = static_cast<std::uint64_t>(NumberOf(input));
        std::vector<std::string_view> parts;
        for (std::size_t count = 1U + input.Byte() % 3U; count > 0; --count) {
            parts.push_back(input.Bytes(input.Byte()));
        }
        entry.offset = segment.end;
        ChunkLayout::SetLengths(entry, parts);
        engine.Append(segment.id, epoch, entry, parts, {});
        if (input.Byte() % 2 == 0) {
            engine.Seal(segment.id, epoch, segment.count + 1);
        }
    }

    MemoryEngine& engine;
    const std::vector<Record> records;
};

void Use(MemoryEngine& engine, KnownTracks& known) {
    std::unique_ptr<Storage> storage;
    if (Try([&] { storage = std::make_unique<Storage>(engine, Brantel::Tests::SmallStorage()); })) {
        Brantel::Tests::ReadStorage(*storage, nullptr);
        Brantel::Tests::ChangeStorage(*storage, known);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Original original;
    const std::unique_ptr<MemoryEngine> engine = original.engine.Clone();
    KnownTracks known = original.known;
    FuzzInput input(data, size);
    Changes changes(*engine);
    for (std::size_t count = 0; !input.AtEnd() && count < mostChanges; ++count) {
        changes.Apply(input);
    }
    Use(*engine, known);
    Use(*engine, known);
    return 0;
}
