// The end of a protection on a track that could not be loaded removed segments with chunks: those
// that had not been looked at yet were taken for empty.

#include <CommonMessages.pb.h>
#include <libEngine/ChunkLayout.h>
#include <libEngine/Memory/MemoryEngine.h>
#include <libTracks/Storage.h>
#include <libTracks/Unheard.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Tracks {
namespace {

using namespace Engine;

class AProtectionEndedOnATrackThatWasNotLoadedTest : public testing::Test {
  protected:
    static constexpr std::int64_t track = 7;
    static constexpr std::uint32_t segmentSize = 12'288;

    void SetUp() override {
        Unheard progress;
        engine.Reserve({track, segmentSize, 8}, progress);
    }
    // A segment with chunks at these time points, one behind the other.
    void Make(const SegmentId& id, const std::vector<std::int64_t>& timePoints) {
        const std::array<std::string_view, 1> parts{"head"};
        engine.CreateSegment(id, 1);
        ChunkEntry entry;
        entry.offset = ChunkLayout::segmentHeaderSize;
        for (const std::int64_t timePoint : timePoints) {
            entry.timePoint = timePoint;
            entry.ordinal = ordinal++;
            entry.front = ordinal > 2 ? 1 : 0;
            ChunkLayout::SetLengths(entry, parts);
            engine.Append(id, 1, entry, parts, {});
            entry.offset += entry.length;
        }
    }

    MemoryEngine engine{std::uint64_t{1} << 20U};
    std::uint64_t ordinal = 0;
};

TEST_F(AProtectionEndedOnATrackThatWasNotLoadedTest, ItIsRefusedAndEverySegmentStays) {
    Make({track, LogKind::Ring, 1}, {10, -1, 30});
    Make({track, LogKind::Ring, 2}, {40});
    ordinal = 0;
    Make({track, LogKind::Held, 1}, {5});
    std::vector<std::string> said;
    StorageOptions options;
    options.smallestSegmentBytes = segmentSize;
    options.log = [&said](const std::string& text) { said.push_back(text); };
    Storage storage(engine, options);
    ASSERT_EQ(said.back(),
              "Track 7 can't be loaded: an index names a chunk of 0 nanoseconds at -1");
    const auto tracks = storage.MakeTrackStorage();
    Protocol::ProtectionInfos infos;
    tracks->ListProtections(infos);
    ASSERT_EQ(infos.infos_size(), 1);
    EXPECT_THROW(tracks->Unprotect(static_cast<long>(infos.infos(0).handle())), std::runtime_error);
    EXPECT_EQ(engine.ListSegments(track).size(), 3U);
}

}  // namespace
}  // namespace Brantel::Tracks
