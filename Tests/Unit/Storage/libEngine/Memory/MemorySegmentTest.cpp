#include <libEngine/ChunkLayout.h>
#include <libEngine/Memory/MemorySegment.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace Brantel::Engine {
namespace {

class MemorySegmentTest : public testing::Test {
  protected:
    // A chunk whose second part is this text, which is offered.
    static ChunkEntry Append(MemorySegment& segment, std::string& text) {
        const std::array<std::string_view, 2> parts{"meta", text};
        const std::array<std::string*, 2> offered{nullptr, &text};
        ChunkEntry entry;
        entry.offset = ChunkLayout::segmentHeaderSize;
        ChunkLayout::SetLengths(entry, parts);
        segment.Append(1, entry, parts, offered);
        return entry;
    }
    // Whether it was taken then.
    static bool IsTaken(std::string& text) {
        MemorySegment segment({1, LogKind::Ring, 1}, 4U << 20U, 1);
        Append(segment, text);
        return text.empty();
    }
    // What the part's damage is found to be.
    static std::string TextOfDamage(MemorySegment& segment, std::size_t part) {
        class Observer : public IVerifyObserver {
          public:
            bool Report(std::uint64_t /*done*/, std::uint64_t /*total*/) override { return true; }
            void OnDamage(const Damage& damage) override { text += damage.text; }
            std::string text;
        };
        segment.FlipBit(segment.ReadEntries().at(0), part);
        Observer observer;
        segment.Verify(0, observer);
        return observer.text;
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

TEST_F(MemorySegmentTest, ABitIsFlippedInThePartThatIsMeant) {
    std::string text(100'000, 'x');
    MemorySegment segment({1, LogKind::Ring, 1}, 4U << 20U, 1);
    Append(segment, text);
    EXPECT_THAT(TextOfDamage(segment, 1), testing::HasSubstr("of part 1 of"));
}

TEST_F(MemorySegmentTest, ABitOfAnEmptyPartIsFlippedInTheFirstOne) {
    std::string text;
    MemorySegment segment({1, LogKind::Ring, 1}, 4U << 20U, 1);
    Append(segment, text);
    EXPECT_THAT(TextOfDamage(segment, 1), testing::HasSubstr("of part 0 of"));
}

}  // namespace
}  // namespace Brantel::Engine
