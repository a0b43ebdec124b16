// What happens while something else goes on: an engine's call is held up, others work meanwhile.
#include "Support/EngineList.h"
#include "Support/FaultyEngine.h"
#include "Support/FaultyHarness.h"
#include "Support/Waiting.h"
#include "Unit/Storage/libTracks/StorageTest.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Brantel::Tracks {

class StorageInBetweenTest : public StorageTest {
  protected:
    void SetUp() override {
        harness = std::make_unique<Engine::FaultyHarness>(GetParam().make(limit));
        Open();
    }
    StorageOptions MakeOptions() override {
        StorageOptions options;
        options.smallestSegmentBytes = 16 << 10;
        return options;
    }
    Engine::FaultyEngine& GetFaulty() {
        return dynamic_cast<Engine::FaultyHarness&>(*harness).GetFaulty();
    }
    // Runs `work` once, in the middle of the next call of the engine's operation.
    void During(Engine::Call call, std::function<void()> work) {
        GetFaulty().SetHook(call, [this, work = std::move(work), isFirst = true]() mutable {
            if (std::exchange(isFirst, false)) {
                GetFaulty().Heal();
                work();
            }
        });
    }
    // Holds the next call up until the gate `go` is opened.
    void Hold(Engine::Call call) {
        During(call, [this] {
            entered.Open();
            EXPECT_TRUE(go.Wait());
        });
    }
    // Twice what the track takes: everything older is recycled, and so are its segments.
    void Recycle(std::int64_t from) {
        for (std::int64_t time = from; time < from + 32; ++time) {
            Fill(7, {time}, 1024 - CostOf(0));
        }
    }

    Tests::Gate entered;
    Tests::Gate go;
};

INSTANTIATE_TEST_SUITE_P(Every, StorageInBetweenTest, testing::ValuesIn(Engine::EveryEngine()),
                         testing::PrintToStringParamName());

TEST_P(StorageInBetweenTest, ReadersNeverBlockAWriter) {
    Create(7);
    Fill(7, {10}, 100);
    Hold(Engine::Call::ReadChunk);
    std::optional<Protocol::Chunk> chunk;
    std::thread reader([&] { chunk = Get(7, 10); });
    ASSERT_TRUE(entered.Wait());
    Fill(7, {20, 30}, 100);
    const long id = Protect(7, 20, 0);
    Unprotect(id);
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{10, 20, 30}));
    go.Open();
    reader.join();
    EXPECT_EQ(chunk->data().items(0).value(), Bytes(100, 10));
}

TEST_P(StorageInBetweenTest, AWriterThatIsHeldUpDelaysNoReader) {
    Create(7);
    Fill(7, {10}, 100);
    Hold(Engine::Call::Append);
    std::thread writer([this] { Fill(7, {20}, 100); });
    ASSERT_TRUE(entered.Wait());
    EXPECT_EQ(Get(7, 10)->data().items(0).value(), Bytes(100, 10));
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{10}));
    EXPECT_EQ(CountOf(7, 0, 100), 1);
    EXPECT_EQ(InfoOf(7).size(), CostOf(100));
    go.Open();
    writer.join();
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{10, 20}));
}

TEST_P(StorageInBetweenTest, CallsOnDifferentTracksDoNotWaitForEachOther) {
    Create(7);
    Create(8);
    Hold(Engine::Call::Append);
    std::thread writer([this] { Fill(7, {20}, 100); });
    ASSERT_TRUE(entered.Wait());
    Fill(8, {1, 2, 3}, 100);
    const long id = Protect(8, 2, 1);
    storage->ClearTrack(8);
    Unprotect(id);
    SetProperty(8, "name", "other");
    Grow(8, 2 << 20);
    Delete(8);
    Create(9);
    go.Open();
    writer.join();
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{20}));
}

TEST_P(StorageInBetweenTest, AChunkThatIsRecycledWhileItIsReadIsNotFound) {
    Create(7, 16384);
    Fill(7, {10}, 1024 - CostOf(0));
    During(Engine::Call::ReadChunk, [this] { Recycle(100); });
    EXPECT_FALSE(Get(7, 10));
    EXPECT_GT(BeginningOf(7), 10);
}

TEST_P(StorageInBetweenTest, TheNextChunkIsTheOneThatIsThereWhenTheFirstFoundIsRecycled) {
    Create(7, 16384);
    Fill(7, {10}, 1024 - CostOf(0));
    During(Engine::Call::ReadChunk, [this] { Recycle(100); });
    const auto next = Next(7, 0);
    ASSERT_TRUE(next);
    const auto time = static_cast<std::int64_t>(next->timecode().nanoseconds());
    EXPECT_EQ(time, BeginningOf(7));
    EXPECT_EQ(next->data().items(0).value(), Bytes(1024 - CostOf(0), static_cast<unsigned>(time)));
}

TEST_P(StorageInBetweenTest, AChunkThatIsClearedWhileItIsReadIsNotFound) {
    Create(7);
    Fill(7, {10}, 100);
    During(Engine::Call::ReadChunk, [this] { storage->ClearTrack(7); });
    EXPECT_FALSE(Get(7, 10));
}

TEST_P(StorageInBetweenTest, TheDiskBeingFullIsAnErrorOfTheOneAppend) {
    Create(7);
    Fill(7, {10}, 100);
    GetFaulty().Inject(Engine::Call::Append, Engine::FaultyEngine::Fault::FailBefore, 1, 1,
                       Engine::EngineError::Kind::NoSpace);
    EXPECT_EQ(ErrorOf([this] { Fill(7, {20}, 100); }),
              "Track 7: injected fault in call 9 before it");
    EXPECT_EQ(Get(7, 10)->data().items(0).value(), Bytes(100, 10));
    Fill(7, {20}, 100);
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{10, 20}));
    EXPECT_EQ(GetEngine().ListSegments(7).size(), 1U);
}

TEST_P(StorageInBetweenTest, AProtectionBetweenAFailedAppendAndTheNextOneHoldsInOrder) {
    using Fault = Engine::FaultyEngine::Fault;
    Create(7, 4096);
    Fill(7, {10, 20, 30, 40}, 1024 - CostOf(0));
    const long second = Protect(7, 20, 5);
    // It drops the first one and copies the second, and fails.
    GetFaulty().Inject(Engine::Call::Append, Fault::FailBefore, 2);
    EXPECT_NE(ErrorOf([this] { Fill(7, {50}, 2048 - CostOf(0)); }), "no error");
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{10, 20, 30, 40}));
    const long first = Protect(7, 10, 5);
    Fill(7, {60}, 2048 - CostOf(0));
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{10, 20, 60}));
    EXPECT_EQ(Next(7, 10)->timecode().nanoseconds(), 20U);
    EXPECT_EQ(Previous(7, 60)->timecode().nanoseconds(), 20U);
    Crash();
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{10, 20, 60}));
    Unprotect(first);
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{20, 60}));
    Unprotect(second);
    EXPECT_EQ(TimesOf(7), (std::vector<std::int64_t>{60}));
}

}  // namespace Brantel::Tracks
