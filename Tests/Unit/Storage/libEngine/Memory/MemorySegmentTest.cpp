#include <libEngine/ChunkLayout.h>
#include <libEngine/Memory/MemorySegment.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace Brantel::Engine {
namespace {

class MemorySegmentTest : public testing::Test {
  protected:
    // Whether the text was taken when it was offered as the second part of a chunk.
    static bool IsTaken(std::string& text) {
        MemorySegment segment({1, LogKind::Ring, 1}, 4U << 20U, 1);
        const std::array<std::string_view, 2> parts{"meta", text};
        const std::array<std::string*, 2> offered{nullptr, &text};
        ChunkEntry entry;
        entry.offset = ChunkLayout::segmentHeaderSize;
        entry.length = static_cast<std::uint32_t>(ChunkLayout::Length(2, 4 + text.size()));
        entry.headLength = static_cast<std::uint32_t>(ChunkLayout::HeadLength(2, 4));
        segment.Append(1, entry, parts, offered);
        return text.empty();
    }
};

TEST_F(MemorySegmentTest, ATextOfMiddleSizeIsTaken) {
    std::string text(100'000, 'x');
    EXPECT_TRUE(IsTaken(text));
}

TEST_F(MemorySegmentTest, SmallAndLargeTextsAreCopied) {
    std::string small(1000, 'x');
    EXPECT_FALSE(IsTaken(small));
    std::string large(1'000'000, 'x');
    EXPECT_FALSE(IsTaken(large));
}

TEST_F(MemorySegmentTest, ATextThatHasMuchMoreMemoryThanItUsesIsCopied) {
    std::string text(100'000, 'x');
    text.reserve(200'000);
    EXPECT_FALSE(IsTaken(text));
}

}  // namespace
}  // namespace Brantel::Engine
