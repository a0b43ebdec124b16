#include "Support/EngineHarness.h"
#include "Support/TemporaryFolder.h"
#include "Support/WrittenPages.h"
#include "Unit/Storage/libTracks/StorageTest.h"

#include <libEngine/Local/LocalEngine.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

namespace Brantel::Tracks {
namespace {

// A store whose written pages are counted.
class CountingHarness : public Engine::IEngineHarness {
  public:
    CountingHarness() {
        Engine::LocalOptions options;
        options.directory = folder.File("store");
        options.keepFree = 0;
        options.preparation = Engine::LocalOptions::Preparation::Allocate;
        engine = std::make_unique<Engine::LocalEngine>(options, &calls);
    }
    Engine::IEngine& GetEngine() override { return *engine; }
    void Restart() override {}
    void Crash() override {}
    void DamageChunk(const Engine::SegmentId&, const Engine::ChunkEntry&, std::size_t) override {}

    const Tests::TemporaryFolder folder{Tests::TemporaryFolder::InMemory()};
    Engine::WrittenPages calls;
    std::unique_ptr<Engine::LocalEngine> engine;
};

// What a full ring writes for what is appended, counted at the calls on its files: free of timing.
class StorageWrittenTest : public StorageTest {
  protected:
    void SetUp() override {
        auto counting = std::make_unique<CountingHarness>();
        calls = &counting->calls;
        harness = std::move(counting);
        Open();
    }
    void TearDown() override { Close(); }

    double WrittenForAppended(std::uint64_t size, const std::string& durability) {
        constexpr std::uint64_t capacity = std::uint64_t{12} << 20U;
        Create(1, capacity);
        SetProperty(1, "storage.durability", durability);
        const std::uint64_t lap = capacity / size + 1;
        AppendMany(lap, size);
        const std::uint64_t before = calls->GetBytes();
        AppendMany(lap, size);
        const double written = static_cast<double>(calls->GetBytes() - before);
        RecordProperty("written", std::to_string(written / static_cast<double>(lap * size)));
        return written / static_cast<double>(lap * size);
    }

  private:
    void AppendMany(std::uint64_t count, std::uint64_t size) {
        const Writer writer = OpenWriter(1);
        for (; count > 0; --count) {
            writer->Append(MakeChunk(++last * 10, 10, {{"data", std::string(size, 'x')}}));
        }
    }

    Engine::WrittenPages* calls = nullptr;
    std::int64_t last = 0;
};

TEST_P(StorageWrittenTest, ARingOfLargeChunksWritesLittleMoreThanWhatIsAppended) {
    EXPECT_LE(WrittenForAppended(64 << 10U, "os"), 1.05);
}

TEST_P(StorageWrittenTest, TheSameWhenEachChunkIsFlushed) {
    EXPECT_LE(WrittenForAppended(256 << 10U, "always"), 1.05);
}

// Each append writes the page again in which the one before ended.
TEST_P(StorageWrittenTest, SmallerChunksThatAreFlushedCostOnePageMoreEach) {
    EXPECT_LE(WrittenForAppended(64 << 10U, "always"), 1.05 + 4.0 / 64);
}

INSTANTIATE_TEST_SUITE_P(Local, StorageWrittenTest,
                         testing::Values(Engine::EngineHarnessFactory{}));

}  // namespace
}  // namespace Brantel::Tracks
