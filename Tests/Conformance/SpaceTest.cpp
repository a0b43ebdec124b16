#include "Conformance/EngineConformanceTest.h"

#include <gtest/gtest.h>

#include <vector>

namespace Brantel::Engine {

TEST_P(EngineConformanceTest, AReservationIsTakenFromTheAvailableSpace) {
    const Space before = Engine().GetSpace();
    Reserve(4);
    const Space after = Engine().GetSpace();
    EXPECT_GE(before.available - after.available, 4U * segmentSize);
    EXPECT_EQ(after.reserved - before.reserved, 4U * segmentSize);
    EXPECT_EQ(Engine().ListReservations(), (std::vector<Reservation>{{track, segmentSize, 4}}));
}

TEST_P(EngineConformanceTest, AReservationOverTheAvailableSpaceIsRefusedAndChangesNothing) {
    const std::uint64_t available = Engine().GetSpace().available;
    EXPECT_ENGINE_ERROR(Reserve(available / segmentSize + 1), NoSpace);
    EXPECT_EQ(Engine().GetSpace().available, available);
    EXPECT_TRUE(Engine().ListReservations().empty());
}

TEST_P(EngineConformanceTest, ReservingReportsItsProgressFromTheMomentThatItIsPromised) {
    class FirstReport : public CountingProgress {
      public:
        explicit FirstReport(IEngine& engine) : engine(engine) {}
        bool Report(std::uint64_t done, std::uint64_t total) override {
            if (reports == 0) {
                reservedAtFirst = engine.GetSpace().reserved;
            }
            return CountingProgress::Report(done, total);
        }
        IEngine& engine;
        std::uint64_t reservedAtFirst = 0;
    } progress(Engine());
    Engine().Reserve({track, segmentSize, 4}, progress);
    EXPECT_EQ(progress.reservedAtFirst, 4U * segmentSize);
    EXPECT_GE(progress.reports, 2);
    EXPECT_EQ(progress.lastDone, progress.lastTotal);
}

TEST_P(EngineConformanceTest, ACancelledReservationIsUndone) {
    CountingProgress progress;
    progress.stopAtReport = 1;
    EXPECT_ENGINE_ERROR(Engine().Reserve({track, segmentSize, 4}, progress), Cancelled);
    EXPECT_EQ(Engine().GetSpace().reserved, 0U);
    EXPECT_TRUE(Engine().ListReservations().empty());
}

TEST_P(EngineConformanceTest, ACancelledGrowthLeavesTheFormerReservation) {
    Reserve(2);
    CountingProgress progress;
    progress.stopAtReport = 1;
    EXPECT_ENGINE_ERROR(Engine().Reserve({track, segmentSize, 4}, progress), Cancelled);
    EXPECT_EQ(Engine().ListReservations(), (std::vector<Reservation>{{track, segmentSize, 2}}));
}

TEST_P(EngineConformanceTest, ReservingTheSameAgainDoesNothing) {
    Reserve(4);
    Reserve(4);
    EXPECT_EQ(Engine().GetSpace().reserved, 4U * segmentSize);
}

TEST_P(EngineConformanceTest, AGrownReservationKeepsTheSegmentsAndTakesMore) {
    Reserve(1);
    Engine().CreateSegment(Ring(1), 1);
    const ChunkEntry entry = Append(Ring(1), 5, {"m", "data"});
    EXPECT_ENGINE_ERROR(Engine().CreateSegment(Ring(2), 1), NoSpace);
    Reserve(2);
    Engine().CreateSegment(Ring(2), 1);
    EXPECT_EQ(Read(Ring(1), entry), (std::vector<std::string>{"m", "data"}));
}

TEST_P(EngineConformanceTest, AReservationOfAnotherSegmentSizeIsRefused) {
    Reserve(2);
    CountingProgress progress;
    EXPECT_ENGINE_ERROR(Engine().Reserve({track, 2 * segmentSize, 2}, progress), Refused);
}

TEST_P(EngineConformanceTest, AReservationShrinksToWhatIsNotUsed) {
    Reserve(3);
    Engine().CreateSegment(Ring(1), 1);
    Engine().CreateSegment(Ring(2), 1);
    Reserve(2);
    EXPECT_EQ(Engine().GetSpace().reserved, 2U * segmentSize);
    EXPECT_ENGINE_ERROR(Reserve(1), Refused);
    EXPECT_EQ(Engine().ListReservations(), (std::vector<Reservation>{{track, segmentSize, 2}}));
}

TEST_P(EngineConformanceTest, ReleasingGivesBackTheSpaceAndTheSegments) {
    Reserve(2);
    Reserve(2, 8);
    Engine().CreateSegment(Ring(1), 1);
    const ChunkEntry entry = Append(Ring(1), 5, {"m"});
    CountingProgress first;
    Engine().Release(track, first);
    CountingProgress second;
    Engine().Release(track, second);
    EXPECT_TRUE(Engine().ListSegments(track).empty());
    EXPECT_ENGINE_ERROR(Read(Ring(1), entry), Gone);
    EXPECT_EQ(Engine().ListReservations(), (std::vector<Reservation>{{8, segmentSize, 2}}));
    EXPECT_EQ(Engine().GetSpace().reserved, 2U * segmentSize);
}

TEST_P(EngineConformanceTest, ReservationsSurviveARestartAndACrash) {
    Reserve(2);
    harness->Restart();
    EXPECT_EQ(Engine().ListReservations(), (std::vector<Reservation>{{track, segmentSize, 2}}));
    Reserve(3);
    harness->Crash();
    EXPECT_EQ(Engine().ListReservations(), (std::vector<Reservation>{{track, segmentSize, 3}}));
    EXPECT_EQ(Engine().GetSpace().reserved, 3U * segmentSize);
}

TEST_P(EngineConformanceTest, AReleasedTrackStaysReleasedAfterACrash) {
    Reserve(2);
    CountingProgress progress;
    Engine().Release(track, progress);
    harness->Crash();
    EXPECT_TRUE(Engine().ListReservations().empty());
    EXPECT_TRUE(Engine().ListSegments(track).empty());
}

}  // namespace Brantel::Engine
