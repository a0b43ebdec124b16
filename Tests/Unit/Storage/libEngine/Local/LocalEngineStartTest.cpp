#include "Support/LocalStoreTest.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace Brantel::Engine {
namespace {

using Clock = std::chrono::steady_clock;

std::int64_t MillisecondsSince(Clock::time_point begin) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
}

// What opening a store takes, which does not grow with the number of chunks.
class LocalEngineStartTest : public LocalStoreTest {
  protected:
    LocalEngineStartTest() { PlaceInMemory(); }

    static constexpr std::uint32_t smallSize = 3 * ChunkLayout::unit;

    static std::uint64_t Number(const char* variable, std::uint64_t usual) {
        const char* wanted = std::getenv(variable);
        return wanted == nullptr ? usual : std::strtoull(wanted, nullptr, 10);
    }
};

// BRANTEL_START_SEGMENTS changes how many.
TEST_F(LocalEngineStartTest, ManySealedSegmentsAreOpenedWithinASecond) {
    const std::uint64_t segments = Number("BRANTEL_START_SEGMENTS", 1000);
    constexpr std::uint64_t perTrack = 100;
    Open();
    SilentProgress progress;
    for (std::uint64_t first = 0; first < segments; first += perTrack) {
        const auto id = static_cast<TrackId>(first / perTrack) + 1;
        engine->Reserve({id, smallSize, perTrack}, progress);
        for (std::uint64_t number = 1; number <= perTrack; ++number) {
            const SegmentId segment{id, LogKind::Ring, number};
            engine->CreateSegment(segment, 1);
            Append(segment, 10, {"m", "data"});
            engine->Seal(segment, 1, 1);
        }
    }
    Close();
    const Clock::time_point begin = Clock::now();
    Open();
    const std::int64_t took = MillisecondsSince(begin);
    std::printf("%llu sealed segments opened in %lld ms\n",
                static_cast<unsigned long long>(segments), static_cast<long long>(took));
    EXPECT_LT(took, 1000);
    std::uint64_t found = 0;
    for (const Reservation& reservation : engine->ListReservations()) {
        found += engine->ListSegments(reservation.track).size();
    }
    EXPECT_EQ(found, (segments + perTrack - 1) / perTrack * perTrack);
    EXPECT_TRUE(Reports().empty());
}

}  // namespace
}  // namespace Brantel::Engine
