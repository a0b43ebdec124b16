#include "Support/FaultyFileCalls.h"
#include "Support/LocalStoreTest.h"
#include "Support/Waiting.h"

#include <libEngine/Local/File.h>
#include <libEngine/Local/FlushGate.h>
#include <libEngine/Local/FlushMeter.h>

#include <gtest/gtest.h>

#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Engine {
namespace {

class FlushGateTest : public LocalStoreTest {
  protected:
    std::uint64_t Flushes() const { return calls.CountCalls(FileCall::FlushData); }

    FaultyFileCalls calls;
    File file{calls, folder.File("file"), O_RDWR | O_CREAT};
    FlushMeter meter;
    FlushGate gate{4096, meter};
};

TEST_F(FlushGateTest, WhatIsCleanIsNotFlushed) {
    gate.Flush(file);
    EXPECT_EQ(Flushes(), 0U);
    gate.NoteWrite(5000);
    EXPECT_EQ(gate.GetFlushedEnd(), 4096U);
    gate.Flush(file);
    gate.Flush(file);
    EXPECT_EQ(Flushes(), 1U);
    EXPECT_EQ(gate.GetFlushedEnd(), 5000U);
}

TEST_F(FlushGateTest, ThoseWhoComeDuringAFlushShareTheNextOne) {
    constexpr int late = 4;
    Tests::Gate proceed;
    std::atomic<int> entered = 0;
    calls.SetHook(FileCall::FlushData, [&] {
        if (++entered == 1) {
            proceed.Wait();
        }
    });
    gate.NoteWrite(5000);
    std::thread first([&] { gate.Flush(file); });
    ASSERT_TRUE(Tests::Eventually([&] { return entered == 1; }));
    std::vector<std::thread> others;
    std::atomic<int> started = 0;
    for (int index = 0; index < late; ++index) {
        gate.NoteWrite(6000);
        others.emplace_back([&] {
            ++started;
            gate.Flush(file);
        });
    }
    ASSERT_TRUE(Tests::Eventually([&] { return started == late; }));
    proceed.Open();
    first.join();
    for (std::thread& other : others) {
        other.join();
    }
    EXPECT_EQ(Flushes(), 2U);
    EXPECT_EQ(gate.GetFlushedEnd(), 6000U);
}

TEST_F(FlushGateTest, EachFlushIsCountedWithTheWritesThatItMadeSafe) {
    gate.NoteWrite(5000);
    gate.Flush(file);
    gate.NoteWrite(6000);
    gate.NoteWrite(7000);
    gate.NoteWrite(8000);
    gate.Flush(file);
    const EngineCounters counters = meter.Get();
    EXPECT_EQ(counters.flushNanoseconds.GetTotal(), 2U);
    EXPECT_GT(counters.flushNanoseconds.sum, 0U);
    EXPECT_EQ(counters.flushedWrites.sum, 4U);
    EXPECT_EQ(counters.flushedWrites.counts[0], 1U);
    EXPECT_EQ(counters.failedFlushes, 0U);
}

TEST_F(FlushGateTest, AFailedFlushIsCountedApart) {
    gate.NoteWrite(5000);
    calls.Inject({1, 1, EIO, FileCall::FlushData});
    ErrorOf(EngineError::Kind::Io, [this] { gate.Flush(file); });
    EXPECT_EQ(meter.Get().failedFlushes, 1U);
    EXPECT_EQ(meter.Get().flushNanoseconds.GetTotal(), 0U);
}

TEST_F(FlushGateTest, AFailedFlushIsNeverTakenForGoodByALaterOne) {
    gate.NoteWrite(5000);
    calls.Inject({1, 1, EIO, FileCall::FlushData});
    const std::string error = ErrorOf(EngineError::Kind::Io, [this] { gate.Flush(file); });
    EXPECT_TRUE(gate.HasFailed());
    EXPECT_EQ(gate.GetReason(), error);
    EXPECT_EQ(ErrorOf(EngineError::Kind::Io, [this] { gate.Flush(file); }), error);
    EXPECT_EQ(Flushes(), 1U);
    EXPECT_EQ(gate.GetFlushedEnd(), 4096U);
}

TEST_F(FlushGateTest, AfterWritingAgainAFlushCounts) {
    gate.NoteWrite(5000);
    calls.Inject({1, 1, EIO, FileCall::FlushData});
    ErrorOf(EngineError::Kind::Io, [this] { gate.Flush(file); });
    gate.Heal();
    gate.NoteWrite(5000);
    gate.Flush(file);
    EXPECT_EQ(gate.GetFlushedEnd(), 5000U);
}

}  // namespace
}  // namespace Brantel::Engine
