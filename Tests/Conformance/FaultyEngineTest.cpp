#include "Conformance/EngineConformanceTest.h"
#include "Support/FaultyEngine.h"

#include <libEngine/Memory/MemoryEngine.h>

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

namespace Brantel::Engine {
namespace {

class FaultyEngineTest : public testing::Test {
  protected:
    bool Write(const std::string& value) {
        const std::vector<RecordChange> changes{{"k", value}};
        return engine.WriteRecords(changes);
    }

    MemoryEngine memory{64U << 20U};
    FaultyEngine engine{memory};
};

TEST_F(FaultyEngineTest, TheNthCallFailsAndTheNextOnesDoNot) {
    engine.Inject(Call::WriteRecords, FaultyEngine::Fault::FailBefore, 2);
    EXPECT_TRUE(Write("1"));
    EXPECT_ENGINE_ERROR(Write("2"), Io);
    EXPECT_EQ(memory.ReadRecord("k")->value, "1");
    EXPECT_TRUE(Write("3"));
    EXPECT_EQ(engine.CountCalls(Call::WriteRecords), 3U);
}

TEST_F(FaultyEngineTest, AFailureAfterTheCallLeavesItDone) {
    engine.Inject(Call::WriteRecords, FaultyEngine::Fault::FailAfter);
    EXPECT_ENGINE_ERROR(Write("1"), Io);
    EXPECT_EQ(memory.ReadRecord("k")->value, "1");
}

TEST_F(FaultyEngineTest, FailingForEverEndsWithHeal) {
    engine.Inject(Call::ReadRecord, FaultyEngine::Fault::FailBefore, 1, 0,
                  EngineError::Kind::Damaged);
    EXPECT_ENGINE_ERROR(engine.ReadRecord("k"), Damaged);
    EXPECT_ENGINE_ERROR(engine.ReadRecord("k"), Damaged);
    engine.Heal();
    EXPECT_FALSE(engine.ReadRecord("k").has_value());
}

TEST_F(FaultyEngineTest, ALostCallAnswersAndDoesNothing) {
    CountingProgress progress;
    engine.Inject(Call::Reserve, FaultyEngine::Fault::Lose);
    engine.Reserve({7, 1U << 20U, 2}, progress);
    EXPECT_TRUE(memory.ListReservations().empty());
}

TEST_F(FaultyEngineTest, AHookRunsBeforeTheCall) {
    int calls = 0;
    engine.SetHook(Call::WriteRecords, [&] {
        ++calls;
        EXPECT_FALSE(memory.ReadRecord("k").has_value());
    });
    Write("1");
    EXPECT_EQ(calls, 1);
}

TEST_F(FaultyEngineTest, AFailedAppendClosesTheSegment) {
    CountingProgress progress;
    engine.Reserve({7, 1U << 20U, 2}, progress);
    const SegmentId id{7, LogKind::Ring, 1};
    engine.CreateSegment(id, 1);
    const std::vector<std::string_view> parts{"m"};
    ChunkEntry entry{5, 0, 0, 0, ChunkLayout::segmentHeaderSize, 0, 0};
    ChunkLayout::SetLengths(entry, parts);
    engine.Inject(Call::Append, FaultyEngine::Fault::FailBefore);
    EXPECT_ENGINE_ERROR(engine.Append(id, 1, entry, parts, {}), Io);
    EXPECT_ENGINE_ERROR(engine.Append(id, 1, entry, parts, {}), Closed);
}

}  // namespace
}  // namespace Brantel::Engine
