// A store in a local folder of which any files are damaged in any way: it opens or says why not,
// serves nothing that was not written, and keeps what is appended then. When the damage is hidden
// by right checksums, anything may be served, but nothing else may happen.
//
// The first byte chooses the store: as it was closed, or as a crash left it. What follows is
// damage: each an operation, the file's number and its arguments.
#include "Fuzz/StoredTracks.h"
#include "Support/FuzzCheck.h"
#include "Support/TemporaryFolder.h"

#include <libEngine/Local/LocalEngine.h>
#include <libEngine/Local/SegmentFormat.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using Brantel::Engine::LocalEngine;
using Brantel::Engine::LocalOptions;
using Brantel::Tests::FuzzInput;
using Brantel::Tests::KnownTracks;
using Brantel::Tests::Require;
using Brantel::Tests::StoredChunks;
using Brantel::Tests::TemporaryFolder;
using Brantel::Tests::Try;
namespace SegmentFormat = Brantel::Engine::SegmentFormat;
using Files = std::map<std::string, std::string>;  // by path in the store

constexpr std::size_t mostDamage = 50;

LocalOptions OptionsFor(const std::string& directory) {
    LocalOptions options;
    options.directory = directory;
    options.limit = std::uint64_t{4} << 20U;
    options.keepFree = 0;
    options.preparation = LocalOptions::Preparation::Allocate;
    options.startThreads = 1;
    options.flushThreads = 1;
    options.catalogueReserve = 0;
    options.report = [](const std::string& text) { Require(!text.empty(), "a report says what"); };
    return options;
}

Files ReadFiles(const std::string& directory) {
    Files files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        if (entry.is_regular_file() && entry.path().filename() != "LOCK") {
            std::ifstream file(entry.path(), std::ios::binary);
            files[entry.path().lexically_relative(directory)] = {
                std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        }
    }
    return files;
}

void WriteFiles(const std::string& directory, const Files& files) {
    std::filesystem::create_directory(directory);
    std::filesystem::permissions(directory, std::filesystem::perms::owner_all);
    for (const auto& [name, bytes] : files) {
        const std::filesystem::path path = std::filesystem::path(directory) / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
    }
}

// The stores that are damaged.
struct Originals {
    Files closed;
    Files crashed;
    KnownTracks known;

    Originals() {
        const TemporaryFolder folder;
        const std::string directory = folder.File("store");
        {
            LocalEngine engine(OptionsFor(directory));
            known = Brantel::Tests::FillStorage(engine, [&] { crashed = ReadFiles(directory); });
        }
        closed = ReadFiles(directory);
    }
};

// Damages files.
class Damage {
  public:
    explicit Damage(Files& files) : files(files) {
        for (const auto& [name, bytes] : files) {
            names.push_back(name);
        }
        // Those that hold something first, so that small numbers mean them.
        std::stable_partition(names.begin(), names.end(), [&](const std::string& name) {
            return files.at(name).find_first_not_of('\0') != std::string::npos;
        });
    }

    // Whether checksums were made right.
    bool IsForged() const { return isForged; }

    void Apply(FuzzInput& input) {
        const std::uint8_t operation = input.Byte();
        const std::string& name = NameOf(input.Byte());
        std::string& bytes = files[name];
        const std::size_t offset = input.Short();
        switch (operation % 9) {
            case 0: Overwrite(bytes, offset, Flipped(bytes, offset, input.Byte())); break;
            case 1: Overwrite(bytes, offset, input.Bytes(1U + operation / 9U)); break;
            case 2: {
                const std::size_t size = input.Short();
                Overwrite(bytes, offset, std::string(size, static_cast<char>(input.Byte())));
                break;
            }
            case 3: bytes.resize(offset); break;
            case 4: files.erase(name); break;
            case 5: files[NameOf(static_cast<std::uint8_t>(offset))] = bytes; break;
            case 6: {
                const std::string other = files[NameOf(input.Byte())];
                const std::size_t from = std::min<std::size_t>(other.size(), input.Short());
                Overwrite(bytes, offset, other.substr(from, input.Short()));
                break;
            }
            case 7: Seal(bytes, offset / SegmentFormat::pageSize * SegmentFormat::pageSize); break;
            default: SealChunk(bytes, offset); break;
        }
    }

  private:
    const std::string& NameOf(std::uint8_t number) const { return names[number % names.size()]; }

    static std::string Flipped(const std::string& bytes, std::size_t offset, std::uint8_t mask) {
        return offset < bytes.size() ? std::string(1, static_cast<char>(bytes[offset] ^ mask)) : "";
    }

    // What lies behind the end is left out.
    static void Overwrite(std::string& bytes, std::size_t offset, std::string_view with) {
        if (offset < bytes.size()) {
            with = with.substr(0, bytes.size() - offset);
            bytes.replace(offset, with.size(), with);
        }
    }

    template <class Number>
    static Number Get(const std::string& bytes, std::size_t offset) {
        Number number = 0;
        std::memcpy(&number, bytes.data() + offset, sizeof number);
        return number;
    }

    static void PutChecksum(std::string& bytes, std::size_t offset, std::size_t from,
                            std::size_t size, std::uint64_t seed = 0) {
        const std::uint64_t checksum = SegmentFormat::Checksum(bytes.data() + from, size, seed);
        std::memcpy(bytes.data() + offset, &checksum, sizeof checksum);
    }

    // A header or a footer at the beginning of a page.
    void Seal(std::string& bytes, std::size_t page) {
        if (page + SegmentFormat::pageSize > bytes.size()) {
            return;
        }
        isForged = true;
        const bool isHeader = bytes.compare(page + 8, 8, "BRSEGHDR") == 0;
        const std::size_t entries = std::min<std::size_t>(
            isHeader ? 0 : Get<std::uint32_t>(bytes, page + 92), SegmentFormat::maxInlineCount);
        PutChecksum(
            bytes, page, page + 8,
            isHeader ? sizeof(SegmentFormat::Header) - 8
                     : sizeof(SegmentFormat::Footer) - 8 + entries * sizeof(SegmentFormat::Entry));
    }

    // The head of a chunk, or what is to be one, and its parts as far as there are bytes.
    void SealChunk(std::string& bytes, std::size_t offset) {
        constexpr std::size_t headSize = sizeof(SegmentFormat::ChunkHead);
        offset = offset / 8 * 8;
        if (offset + headSize > bytes.size() || bytes.size() < SegmentFormat::minSegmentSize) {
            return;
        }
        isForged = true;
        const std::size_t parts =
            std::min<std::size_t>(Get<std::uint32_t>(bytes, offset + 12),
                                  (bytes.size() - offset - headSize) / sizeof(SegmentFormat::Part));
        const std::size_t table = offset + headSize;
        std::size_t place = table + parts * sizeof(SegmentFormat::Part);
        for (std::size_t part = 0; part < parts; ++part) {
            const std::size_t entry = table + part * sizeof(SegmentFormat::Part);
            const std::size_t size = Get<std::uint32_t>(bytes, entry + 8);
            if (size > bytes.size() - place) {
                break;
            }
            PutChecksum(bytes, entry, place, size);
            place += size;
        }
        SegmentFormat::Identity identity;
        std::memcpy(&identity, bytes.data() + 24, sizeof identity);
        PutChecksum(bytes, offset, offset + 8, headSize - 8 + parts * sizeof(SegmentFormat::Part),
                    identity.GetStamp());
    }

    Files& files;
    std::vector<std::string> names;
    bool isForged = false;
};

class Silent : public Brantel::Engine::IVerifyObserver {
  public:
    bool Report(std::uint64_t, std::uint64_t) override { return true; }
    void OnDamage(const Brantel::Engine::Damage& damage) override {
        Require(!damage.text.empty(), "damage is described");
    }
};

void Verify(LocalEngine& engine) {
    Silent observer;
    for (const auto& reservation : engine.ListReservations()) {
        std::vector<Brantel::Engine::SegmentInfo> segments;
        Try([&] { segments = engine.ListSegments(reservation.track); });
        for (const auto& segment : segments) {
            Try([&] { engine.Verify(segment.id, 0, observer); });
        }
    }
}

// Opens the store, reads it all and changes it. `since`: what an earlier call appended.
void Use(const std::string& directory, KnownTracks& known, bool isForged, StoredChunks& since) {
    std::unique_ptr<LocalEngine> engine;
    std::unique_ptr<Brantel::Tracks::Storage> storage;
    if (!Try([&] { engine = std::make_unique<LocalEngine>(OptionsFor(directory)); })) {
        return;
    }
    Verify(*engine);
    const bool isOpen = Try([&] {
        storage =
            std::make_unique<Brantel::Tracks::Storage>(*engine, Brantel::Tests::SmallStorage());
    });
    if (isOpen) {
        Brantel::Tests::ReadStorage(*storage, isForged ? nullptr : &known);
        if (!isForged) {
            Brantel::Tests::RequireChunks(*storage, since);
        }
        since = Brantel::Tests::ChangeStorage(*storage, known);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Originals originals;
    FuzzInput input(data, size);
    Files files = input.Byte() % 2 == 0 ? originals.closed : originals.crashed;
    Damage damage(files);
    for (std::size_t count = 0; !input.AtEnd() && count < mostDamage; ++count) {
        damage.Apply(input);
    }
    const TemporaryFolder folder;
    const std::string directory = folder.File("store");
    WriteFiles(directory, files);
    KnownTracks known = originals.known;
    StoredChunks since;
    Use(directory, known, damage.IsForged(), since);
    Use(directory, known, damage.IsForged(), since);
    return 0;
}
