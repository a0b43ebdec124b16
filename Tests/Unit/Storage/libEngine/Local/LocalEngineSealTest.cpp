#include "Support/FaultyFileCalls.h"
#include "Support/LocalStoreTest.h"
#include "Support/Waiting.h"

#include <libEngine/Local/SegmentFormat.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Engine {
namespace {

// Sealing what was appended without a flush: who goes on does not wait for the medium.
class LocalEngineSealTest : public LocalStoreTest {
  protected:
    LocalEngineSealTest() {
        Open(&calls);
        Reserve(4);
        engine->CreateSegment(Ring(1), 1);
        entry = Append(Ring(1), 5, {"m", "data"});
    }
    ~LocalEngineSealTest() override {
        LetFlushesGo();
        Close();  // in front of what it calls
    }

    // Flushes of files, the next `count` of them, stand still until they may go on.
    void HoldFlushes(int count = std::numeric_limits<int>::max()) {
        calls.SetHook(FileCall::FlushData, [this, count] {
            std::unique_lock lock(mutex);
            if (held == count) {
                return;
            }
            ++held;
            changed.notify_all();
            changed.wait(lock, [this] { return mayGo; });
        });
    }
    void LetFlushesGo() {
        const std::lock_guard lock(mutex);
        mayGo = true;
        changed.notify_all();
    }
    void WaitForFlush() {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return held > 0; });
    }

    // As a server finds the segment that is started on a copy of the files.
    bool MayFollowLossAfterACrash(const SegmentId& id) {
        LocalOptions copied = options;
        copied.directory = folder.File("copy" + std::to_string(++copies));
        std::filesystem::copy(options.directory, copied.directory,
                              std::filesystem::copy_options::recursive);
        LocalEngine other(copied);
        for (const SegmentInfo& info : other.ListSegments(id.track)) {
            if (info.id == id) {
                return info.mayFollowLoss;
            }
        }
        ADD_FAILURE() << "the segment is not there";
        return false;
    }

    FaultyFileCalls calls;
    ChunkEntry entry;
    int copies = 0;
    std::mutex mutex;
    std::condition_variable changed;
    bool mayGo = false;  // guarded by mutex
    int held = 0;        // guarded by mutex
};

TEST_F(LocalEngineSealTest, DoesNotWaitForTheMedium) {
    HoldFlushes();
    engine->Seal(Ring(1), 1, 1);
    WaitForFlush();
    EXPECT_TRUE(Info(Ring(1)).sealed);
    EXPECT_EQ(Entries(Ring(1)), std::vector<ChunkEntry>{entry});
    EXPECT_EQ(Read(Ring(1), entry)[1], "data");
    EXPECT_TRUE(Verify(Ring(1)).empty());
    ErrorOf(EngineError::Kind::Closed, [this] { Append(Ring(1), 50, {"m"}); });
    engine->Seal(Ring(1), 1, 1);
    engine->CreateSegment(Ring(2), 1);
    Append(Ring(2), 50, {"m", "next"});
}

TEST_F(LocalEngineSealTest, IsDoneWhenTheEngineEnds) {
    HoldFlushes();
    engine->Seal(Ring(1), 1, 1);
    WaitForFlush();
    LetFlushesGo();
    Reopen();
    EXPECT_TRUE(Info(Ring(1)).sealed);
    EXPECT_EQ(Entries(Ring(1)), std::vector<ChunkEntry>{entry});
}

TEST_F(LocalEngineSealTest, WaitsForTheMediumWhenTheChunksWereFlushed) {
    Append(Ring(1), 50, {"m", "safe"}, Durability::Mode::Always);
    const std::uint64_t before = calls.CountCalls(FileCall::FlushData);
    engine->Seal(Ring(1), 1, 2);
    EXPECT_EQ(calls.CountCalls(FileCall::FlushData), before + 1);  // of the footer
}

TEST_F(LocalEngineSealTest, TheIndexIsSafeBeforeTheFooterVouchesForIt) {
    std::uint64_t count = 1;
    for (; count <= SegmentFormat::maxInlineCount; ++count) {
        Append(Ring(1), static_cast<std::int64_t>(count) * 50, {"m"}, Durability::Mode::Always);
    }
    const std::uint64_t before = calls.CountCalls(FileCall::WriteVector);
    std::vector<std::uint64_t> written;  // in front of each flush
    calls.SetHook(FileCall::FlushData,
                  [&] { written.push_back(calls.CountCalls(FileCall::WriteVector) - before); });
    engine->Seal(Ring(1), 1, count);
    calls.SetHook(FileCall::FlushData, nullptr);
    EXPECT_EQ(written, (std::vector<std::uint64_t>{1, 2}));
}

TEST_F(LocalEngineSealTest, ARemovedSegmentIsNotWrittenAnyMore) {
    HoldFlushes(1);
    engine->Seal(Ring(1), 1, 1);
    WaitForFlush();
    const std::uint64_t before = calls.CountCalls(FileCall::WriteVector);
    std::thread remover([this] { engine->RemoveSegment(Ring(1), 1, 0); });
    EXPECT_TRUE(
        Tests::Eventually([&] { return calls.CountCalls(FileCall::WriteVector) > before; }));
    LetFlushesGo();
    remover.join();
    for (std::uint64_t number = 2; number <= 5; ++number) {
        engine->CreateSegment(Ring(number), 1);  // the last one takes the slot
    }
    const ChunkEntry other = Append(Ring(5), 60, {"m", "other"});
    Reopen();
    EXPECT_EQ(Read(Ring(5), other)[1], "other");
    EXPECT_EQ(engine->ListSegments(track).size(), 4U);
    EXPECT_TRUE(Reports().empty());
}

TEST_F(LocalEngineSealTest, TheNextSegmentMayFollowALossUntilBothAreFlushed) {
    HoldFlushes();
    engine->Seal(Ring(1), 1, 1);
    WaitForFlush();
    engine->CreateSegment(Ring(2), 1);
    Append(Ring(2), 50, {"m", "next"});
    EXPECT_TRUE(Info(Ring(2)).mayFollowLoss);
    EXPECT_TRUE(MayFollowLossAfterACrash(Ring(2)));
    LetFlushesGo();
    Append(Ring(2), 60, {"m", "safe"}, Durability::Mode::Always);
    EXPECT_FALSE(Info(Ring(2)).mayFollowLoss);
    EXPECT_FALSE(MayFollowLossAfterACrash(Ring(2)));
}

TEST_F(LocalEngineSealTest, AFlushMakesSafeWhatLiesInFrontOfTheSegment) {
    calls.Inject({1, 1, EIO, FileCall::FlushData});
    engine->Seal(Ring(1), 1, 1);  // whose flush fails, so that it has to be written again
    engine->CreateSegment(Ring(2), 1);
    Append(Ring(2), 50, {"m", "next"});
    engine->Flush(Ring(2));
    EXPECT_FALSE(Info(Ring(2)).mayFollowLoss);
    Reopen();
    EXPECT_TRUE(Info(Ring(1)).sealed);
    EXPECT_EQ(Read(Ring(1), entry)[1], "data");
}

TEST_F(LocalEngineSealTest, AFlushThatFailsMeanwhileIsToldAndMadeGood) {
    calls.Inject({1, 1, EIO, FileCall::FlushData});
    engine->Seal(Ring(1), 1, 1);
    Close();
    ASSERT_EQ(Reports().size(), 1U);
    EXPECT_NE(Reports()[0].find("flushing failed"), std::string::npos);
    Open();
    EXPECT_TRUE(Info(Ring(1)).sealed);
    EXPECT_EQ(Read(Ring(1), entry)[1], "data");
}

}  // namespace
}  // namespace Brantel::Engine
