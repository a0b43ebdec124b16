#pragma once

#include "Support/EngineHarness.h"

#include <libEngine/IEngine.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Engine {

// Lets every operation run to its end, and counts the reports.
class CountingProgress : public IProgress {
  public:
    bool Report(std::uint64_t done, std::uint64_t total) override;

    int reports = 0;
    std::uint64_t lastDone = 0;
    std::uint64_t lastTotal = 0;
    int stopAtReport = 0;  // the n-th report asks to stop; 0: none
};

class CollectingObserver : public IVerifyObserver {
  public:
    bool Report(std::uint64_t done, std::uint64_t total) override;
    void OnDamage(const Damage& damage) override { damages.push_back(damage); }

    std::vector<Damage> damages;
};

// Collects the first part, and the further parts whose numbers are wanted (not set: all).
class CollectingSink : public IChunkSink {
  public:
    explicit CollectingSink(std::optional<std::set<std::size_t>> wanted = std::nullopt)
        : wanted(std::move(wanted)) {}

    void Begin(std::string_view firstPart, std::span<const std::uint32_t> sizes,
               std::span<char*> destinations) override;

    std::vector<std::string> parts;  // those that were not wanted are empty
    std::vector<std::uint32_t> partSizes;

  private:
    const std::optional<std::set<std::size_t>> wanted;
};

// What every engine must do, whatever it stores on. One store, with the words of the tests.
class EngineConformanceTest : public testing::TestWithParam<EngineHarnessFactory> {
  protected:
    static constexpr TrackId track = 7;
    static constexpr std::uint32_t segmentSize = 1U << 20U;
    static constexpr std::uint64_t limit = 64U << 20U;

    void SetUp() override { harness = GetParam().make(limit); }

    IEngine& Engine() { return harness->GetEngine(); }
    static SegmentId Ring(std::uint64_t number) { return {track, LogKind::Ring, number}; }
    static SegmentId Held(std::uint64_t number) { return {track, LogKind::Held, number}; }

    void Reserve(std::uint64_t segments, TrackId id = track);
    // Appends behind what the segment holds; what is not given follows from the time point.
    ChunkEntry Append(const SegmentId& id, std::int64_t timePoint,
                      const std::vector<std::string>& parts,
                      Durability::Mode mode = Durability::Mode::Always, Epoch writer = 1);
    // The same of texts that the engine may take.
    ChunkEntry AppendTaking(const SegmentId& id, std::int64_t timePoint,
                            std::vector<std::string>& parts);
    std::vector<std::string> Read(const SegmentId& id, const ChunkEntry& entry,
                                  std::optional<std::set<std::size_t>> wanted = std::nullopt);
    std::optional<SegmentInfo> Info(const SegmentId& id);
    bool Write(const std::string& key, const std::optional<std::string>& value,
               std::optional<std::uint64_t> expected = std::nullopt);
    std::string ValueOf(const std::string& key);

    std::unique_ptr<IEngineHarness> harness;

  private:
    ChunkEntry Place(const SegmentId& id, std::int64_t timePoint,
                     const std::vector<std::string_view>& views);
};

// Runs `statement`, which must fail with this kind of EngineError.
#define EXPECT_ENGINE_ERROR(statement, kind)                                     \
    do {                                                                         \
        try {                                                                    \
            statement;                                                           \
            ADD_FAILURE() << "no error";                                         \
        } catch (const EngineError& error) {                                     \
            EXPECT_EQ(error.GetKind(), EngineError::Kind::kind) << error.what(); \
        }                                                                        \
    } while (false)

}  // namespace Brantel::Engine
