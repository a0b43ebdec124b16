// A track whose record was lost, and whose held chunk says that it lasts beyond the largest time
// point, came back with a protection that ended before it began: the sum of both overflowed.

#include <CommonMessages.pb.h>
#include <libEngine/ChunkLayout.h>
#include <libEngine/Memory/MemoryEngine.h>
#include <libTracks/Storage.h>
#include <libTracks/Unheard.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <string_view>

namespace Brantel::Tracks {
namespace {

using namespace Engine;

class ADurationBehindTheEndOfTimeTest : public testing::Test {
  protected:
    static constexpr std::int64_t track = 7;
    static constexpr std::uint32_t segmentSize = 12'288;
    static constexpr std::int64_t endOfTime = std::numeric_limits<std::int64_t>::max();

    void SetUp() override {
        Unheard progress;
        engine.Reserve({track, segmentSize, 8}, progress);
    }

    // A segment with one chunk, among those of chunks that are held.
    void Hold(std::int64_t timePoint, std::int64_t duration) {
        const SegmentId id{track, LogKind::Held, segments++};
        const std::array<std::string_view, 1> parts{"head"};
        engine.CreateSegment(id, 1);
        ChunkEntry entry;
        entry.timePoint = timePoint;
        entry.duration = duration;
        entry.offset = ChunkLayout::segmentHeaderSize;
        ChunkLayout::SetLengths(entry, parts);
        engine.Append(id, 1, entry, parts, {});
    }

    Protocol::ProtectionInfos ProtectionsAfterRepair() {
        StorageOptions options;
        options.smallestSegmentBytes = segmentSize;
        Storage storage(engine, options);
        Protocol::ProtectionInfos infos;
        storage.MakeTrackStorage()->ListProtections(infos);
        return infos;
    }

    MemoryEngine engine{std::uint64_t{1} << 20U};
    std::uint64_t segments = 0;
};

TEST_F(ADurationBehindTheEndOfTimeTest, NothingStandsInForIt) {
    Hold(108, endOfTime);
    EXPECT_EQ(ProtectionsAfterRepair().infos_size(), 0);
}

TEST_F(ADurationBehindTheEndOfTimeTest, WhatIsHeldToTheEndOfTimeStaysSo) {
    Hold(108, endOfTime - 108);
    const auto infos = ProtectionsAfterRepair();
    ASSERT_EQ(infos.infos_size(), 1);
    EXPECT_EQ(infos.infos(0).tcin().nanoseconds(), 108U);
    EXPECT_EQ(infos.infos(0).tcout().nanoseconds(), static_cast<std::uint64_t>(endOfTime));
}

}  // namespace
}  // namespace Brantel::Tracks
