#include "Conformance/EngineConformanceTest.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace Brantel::Engine {

TEST_P(EngineConformanceTest, ANewEngineHasNotFailedToFlush) {
    EXPECT_EQ(Engine().GetCounters().failedFlushes, 0U);
}

TEST_P(EngineConformanceTest, EachCountedFlushHasATimeAndAGroup) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    for (std::int64_t time = 1; time <= 5; ++time) {
        Append(Ring(1), time, {"m", "data"});
    }
    const EngineCounters counters = Engine().GetCounters();
    EXPECT_EQ(counters.flushNanoseconds.GetTotal(), counters.flushedWrites.GetTotal());
    EXPECT_GE(counters.flushedWrites.sum, counters.flushedWrites.GetTotal());
}

TEST_P(EngineConformanceTest, CountersOnlyGrow) {
    Reserve(2);
    Engine().CreateSegment(Ring(1), 1);
    EngineCounters before = Engine().GetCounters();
    for (std::int64_t time = 1; time <= 5; ++time) {
        Append(Ring(1), time, {"m", "data"},
               time % 2 == 0 ? Durability::Mode::Os : Durability::Mode::Always);
        const EngineCounters after = Engine().GetCounters();
        EXPECT_GE(after.flushNanoseconds.GetTotal(), before.flushNanoseconds.GetTotal());
        EXPECT_GE(after.flushedWrites.sum, before.flushedWrites.sum);
        before = after;
    }
}

}  // namespace Brantel::Engine
