#include "Support/FaultyFileCalls.h"
#include "Support/LocalStoreTest.h"
#include "Support/ProcessState.h"
#include "Support/Waiting.h"

#include <libEngine/Local/SegmentFormat.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Brantel::Engine {
namespace {

// When a slot is used again, and what its file says about the segment that had it: no loss of power
// may bring that back in pieces, nor make what was recycled look as if it were missing.
class SlotMarkTest : public LocalStoreTest {
  protected:
    static constexpr std::uint64_t slotCount = 8;

    SlotMarkTest() {
        // Nothing is flushed in the background: each flush has its reason in a call.
        options.flushThreads = 0;
        options.sealThreads = 0;
        Open(&calls);
        Reserve(slotCount);
        for (std::uint64_t number = 1; number <= slotCount; ++number) {
            engine->CreateSegment(Ring(number), 1);
            Append(Ring(number), static_cast<std::int64_t>(number), {"m"});
        }
    }
    ~SlotMarkTest() override { Close(); }  // in front of what it calls

    void MakeAllSafe() { engine->Flush(Ring(slotCount)); }

    template <typename Action>
    std::uint64_t CountFlushes(Action action) {
        const std::uint64_t before = calls.CountCalls(FileCall::FlushData);
        action();
        return calls.CountCalls(FileCall::FlushData) - before;
    }

    std::optional<SegmentFormat::Header> HeaderOf(std::uint32_t slot) {
        const std::string file = ReadFile(SlotPath(slot));
        return SegmentFormat::DecodeHeader(file.data(), file.size());
    }

    // The first slot's header as it is flushed while the slot is used again, in one flush.
    std::optional<SegmentFormat::Header> HeaderThatIsFlushedForTheNextSegment() {
        std::optional<SegmentFormat::Header> flushed;
        calls.SetHook(FileCall::FlushData, [&] { flushed = HeaderOf(0); });
        EXPECT_EQ(CountFlushes([this] { engine->CreateSegment(Ring(9), 1); }), 1U);
        calls.SetHook(FileCall::FlushData, nullptr);
        return flushed;
    }

    FaultyFileCalls calls;
};

TEST_F(SlotMarkTest, ASlotThatHeldNothingIsUsedWithoutAFlush) {
    Close();
    Open(&calls);
    Reserve(slotCount + 1);
    EXPECT_EQ(CountFlushes([this] { engine->CreateSegment(Ring(9), 1); }), 0U);
}

TEST_F(SlotMarkTest, ASlotIsWrittenOverWhenItIsSafeThatItsSegmentIsGone) {
    MakeAllSafe();
    EXPECT_EQ(CountFlushes([this] { engine->RemoveSegment(Ring(1), 1, 1); }), 0U);
    const auto flushed = HeaderThatIsFlushedForTheNextSegment();
    ASSERT_TRUE(flushed.has_value());
    EXPECT_EQ(flushed->state, SegmentFormat::HeaderState::Free);
    EXPECT_EQ(flushed->ringFront, 1U);
}

TEST_F(SlotMarkTest, AThreadFlushesTheMarkAheadOfItsUse) {
    Close();
    options.flushThreads = 1;
    Open(&calls);
    const std::uint64_t before = calls.CountCalls(FileCall::FlushData);
    engine->RemoveSegment(Ring(1), 1, 1);
    Tests::Eventually([&] { return calls.CountCalls(FileCall::FlushData) > before; });
    engine->CreateSegment(Ring(9), 1);
    EXPECT_EQ(calls.CountCalls(FileCall::FlushData), before + 1);
}

TEST_F(SlotMarkTest, AMarkThatCanNotBeFlushedIsToldAndTheNextHeaderIsFlushedFirst) {
    MakeAllSafe();
    engine->RemoveSegment(Ring(1), 1, 1);
    calls.Inject({1, 1, EIO, FileCall::FlushData});
    EXPECT_EQ(CountFlushes([this] { engine->CreateSegment(Ring(9), 1); }), 2U);
    ASSERT_EQ(Reports().size(), 1U);
    EXPECT_NE(Reports()[0].find("flushing failed"), std::string::npos);
}

TEST_F(SlotMarkTest, AMarkThatCanNotBeWrittenLetsTheNextHeaderBeFlushedFirst) {
    MakeAllSafe();
    calls.Inject({1, 1, EIO, FileCall::WriteVector});
    engine->RemoveSegment(Ring(1), 1, 1);
    const auto flushed = HeaderThatIsFlushedForTheNextSegment();
    ASSERT_TRUE(flushed.has_value());
    EXPECT_EQ(flushed->identity.number, 9U);
    EXPECT_EQ(flushed->ringFront, 1U);
}

TEST_F(SlotMarkTest, AfterARestartTheNextHeaderIsFlushedFirst) {
    engine->RemoveSegment(Ring(1), 1, 1);
    Close();
    Open(&calls);
    EXPECT_EQ(engine->GetRingFront(track), 1U);
    EXPECT_EQ(CountFlushes([this] { engine->CreateSegment(Ring(9), 1); }), 1U);
    EXPECT_EQ(HeaderOf(0)->ringFront, 1U);
}

TEST_F(SlotMarkTest, ALostMarkBringsTheSegmentBackWhole) {
    const std::string header = ReadFile(SlotPath(0)).substr(0, SegmentFormat::pageSize);
    engine->RemoveSegment(Ring(1), 1, 1);
    Close();
    WriteAt(SlotPath(0), 0, header);
    Open();
    EXPECT_EQ(engine->GetRingFront(track), 0U);
    EXPECT_EQ(Info(Ring(1)).count, 1U);
    EXPECT_TRUE(Verify(Ring(1)).empty());
    EXPECT_TRUE(Reports().empty());
}

// What the next segment in the slot wrote may be lost but for chunks here and there.
TEST_F(SlotMarkTest, WhereTheRingBeginsIsKnownByTheMarkAlone) {
    engine->RemoveSegment(Ring(1), 1, 1);
    const std::string marked = ReadFile(SlotPath(0));
    engine->CreateSegment(Ring(9), 1);
    Append(Ring(9), 9, {"m", "its front tells of it, too"});
    const std::string chunks = ReadFile(SlotPath(0)).substr(SegmentFormat::pageSize, 64);
    Close();
    WriteFile(SlotPath(0), marked);
    WriteAt(SlotPath(0), SegmentFormat::pageSize, chunks);
    Open();
    EXPECT_EQ(engine->GetRingFront(track), 1U);
    EXPECT_EQ(engine->ListSegments(track).size(), slotCount - 1);
    EXPECT_TRUE(Reports().empty());
}

TEST_F(SlotMarkTest, NoLaterHeaderInTheSlotTellsLess) {
    MakeAllSafe();
    engine->RemoveSegment(Ring(1), 1, 5);
    engine->RemoveSegment(Ring(2), 1, 3);
    EXPECT_EQ(HeaderOf(1)->ringFront, 5U);
    engine->CreateSegment(Ring(9), 1);
    EXPECT_EQ(HeaderOf(0)->ringFront, 5U);
    Append(Ring(9), 9, {"m"}, Durability::Mode::Always);
    Close();
    Open(&calls);
    engine->Claim(Ring(9), 2);
    EXPECT_EQ(HeaderOf(0)->identity.epoch, 2U);
    EXPECT_EQ(HeaderOf(0)->ringFront, 5U);
    EXPECT_EQ(engine->GetRingFront(track), 5U);
}

TEST_F(SlotMarkTest, TheMarksOfAnEarlierProgramTellNothing) {
    engine->RemoveSegment(Ring(1), 1, 5);
    Close();
    WriteAt(SlotPath(0), 80, std::string(16, '\0'));
    Open();
    EXPECT_EQ(engine->GetRingFront(track), 0U);
    EXPECT_EQ(engine->ListSegments(track).size(), slotCount - 1);
    EXPECT_TRUE(Reports().empty());
}

// Later ones of its log count as safe when they are: so it must be safe itself, or its mark.
TEST_F(SlotMarkTest, ASegmentThatIsNotSafeIsFlushedWhenItIsRemoved) {
    EXPECT_EQ(CountFlushes([this] { engine->RemoveSegment(Ring(1), 1, 1); }), 1U);
    EXPECT_EQ(CountFlushes([this] { MakeAllSafe(); }), slotCount - 1);
}

TEST_F(SlotMarkTest, AboutHalfOfARingIsSafeWhenASlotIsUsedAgain) {
    engine->RemoveSegment(Ring(1), 1, 1);
    engine->CreateSegment(Ring(9), 1);
    EXPECT_FALSE(Info(Ring(6)).mayFollowLoss);
    EXPECT_TRUE(Info(Ring(7)).mayFollowLoss);
    EXPECT_EQ(CountFlushes([this] { engine->Flush(Ring(6)); }), 0U);
}

TEST_F(SlotMarkTest, ATrackThatIsMadeUnderTheNumberOfAnotherBeginsAnew) {
    SilentProgress progress;
    engine->RemoveSegment(Ring(1), 1, 5);
    engine->Release(track, progress);
    EXPECT_EQ(engine->GetRingFront(track), 0U);
    Reserve(2);
    engine->CreateSegment(Ring(1), 1);
    Append(Ring(1), 5, {"m"});
    Reopen();
    EXPECT_EQ(engine->GetRingFront(track), 0U);
}

TEST_F(SlotMarkTest, ManySlotsThatAreFreeKeepNoFilesOpen) {
    Close();
    options.flushThreads = 1;
    options.openFiles = 1;
    Open(&calls);
    for (std::uint64_t number = 1; number <= slotCount; ++number) {
        engine->Claim(Ring(number), 2);
    }
    const std::size_t before = Tests::OpenDescriptors();
    for (std::uint64_t number = 1; number < slotCount; ++number) {
        engine->RemoveSegment(Ring(number), 2, number);
    }
    // One stays open in the cache.
    EXPECT_TRUE(
        Tests::Eventually([before] { return Tests::OpenDescriptors() + slotCount - 2 <= before; }));
}

}  // namespace
}  // namespace Brantel::Engine
