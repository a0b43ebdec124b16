#include "SplitFixture.h"

#include <gtest/gtest.h>

#include <StorageTool/Media/SizeSplitter.h>

#include <string>
#include <vector>

namespace Brantel::Tool {
namespace {

TEST(SizeSplitterTest, AllPiecesButTheLastHaveTheSize) {
    for (const std::size_t most : {1U, 2U, 3U, 100U}) {
        SizeSplitter splitter(3);
        const Split split = FeedInParts(splitter, "abcdefgh", most);
        EXPECT_EQ(split.pieces, (std::vector<std::string>{"abc", "def", "gh"}));
    }
}

TEST(SizeSplitterTest, AStreamThatFillsItsLastPieceHasNoEmptyOne) {
    SizeSplitter splitter(4);
    EXPECT_EQ(FeedAtOnce(splitter, "abcdefgh").pieces, (std::vector<std::string>{"abcd", "efgh"}));
    SizeSplitter none(4);
    EXPECT_TRUE(FeedAtOnce(none, "").pieces.empty());
}

}  // namespace
}  // namespace Brantel::Tool
