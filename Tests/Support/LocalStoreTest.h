#pragma once

#include "Support/TemporaryFolder.h"

#include <libEngine/ChunkLayout.h>
#include <libEngine/EngineError.h>
#include <libEngine/Local/FileCalls.h>
#include <libEngine/Local/LocalEngine.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Engine {

// A local store in a temporary folder, with segments of a few pages, and the words of the tests.
class LocalStoreTest : public testing::Test {
  protected:
    static constexpr TrackId track = 7;
    static constexpr std::uint32_t segmentSize = 16 * ChunkLayout::unit;

    LocalStoreTest();
    ~LocalStoreTest() override;

    // Puts the store, before it is opened, into memory: for tests that open it hundreds of times
    // and lose nothing by flushes that cost nothing.
    void PlaceInMemory();

    // (Re)opens the store in `directory`, the present one by default.
    void Open(IFileCalls* calls = nullptr);
    void Close() { engine.reset(); }
    void Reopen() {
        Close();
        Open();
    }

    static SegmentId Ring(std::uint64_t number) { return {track, LogKind::Ring, number}; }
    static SegmentId Held(std::uint64_t number) { return {track, LogKind::Held, number}; }

    void Reserve(std::uint64_t segments, TrackId id = track);
    // Appends behind what the segment holds, with the next ordinal.
    ChunkEntry Append(const SegmentId& id, std::int64_t timePoint,
                      const std::vector<std::string>& parts,
                      Durability::Mode mode = Durability::Mode::Os, Epoch epoch = 1);
    std::vector<std::string> Read(const SegmentId& id, const ChunkEntry& entry);
    SegmentInfo Info(const SegmentId& id);
    std::vector<ChunkEntry> Entries(const SegmentId& id) { return engine->ReadEntries(id); }
    // The texts of all damage that verifying the segment finds.
    std::vector<std::string> Verify(const SegmentId& id);
    bool Write(const std::string& key, const std::string& value);
    std::string ValueOf(const std::string& key);
    std::vector<std::string> Reports();

    // The slot's file.
    std::string SlotPath(std::uint32_t slot, TrackId id = track) const;
    static std::string ReadFile(const std::string& path);
    static void WriteFile(const std::string& path, const std::string& bytes);
    static void WriteAt(const std::string& path, std::uint64_t offset, const std::string& bytes);
    // A text of `size` bytes that differs at every place from those of other seeds.
    static std::string Bytes(std::size_t size, unsigned seed);
    // The text of the error that it throws, which must be of this kind.
    static std::string ErrorOf(EngineError::Kind kind, const std::function<void()>& action);

    Tests::TemporaryFolder folder;
    LocalOptions options;
    std::unique_ptr<LocalEngine> engine;

  private:
    std::string memoryFolder;  // empty: none
    std::mutex reportMutex;
    std::vector<std::string> reports;  // guarded by reportMutex
};

// Lets every operation run to its end.
class SilentProgress : public IProgress {
  public:
    bool Report(std::uint64_t, std::uint64_t) override { return true; }
};

// Collects what a verification finds.
class DamageTexts : public IVerifyObserver {
  public:
    bool Report(std::uint64_t, std::uint64_t) override { return true; }
    void OnDamage(const Damage& damage) override { texts.push_back(damage.text); }

    std::vector<std::string> texts;
};

// Collects all parts of a chunk.
class AllParts : public IChunkSink {
  public:
    void Begin(std::string_view firstPart, std::span<const std::uint32_t> sizes,
               std::span<char*> destinations) override;

    std::vector<std::string> parts;
};

}  // namespace Brantel::Engine
