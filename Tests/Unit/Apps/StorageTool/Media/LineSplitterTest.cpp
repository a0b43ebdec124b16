#include "SplitFixture.h"

#include <gtest/gtest.h>

#include <StorageTool/Media/LineSplitter.h>

#include <string>
#include <vector>

namespace Brantel::Tool {
namespace {

TEST(LineSplitterTest, EachLineKeepsItsEnd) {
    LineSplitter splitter;
    const Split split = FeedAtOnce(splitter, "one\n\ntwo\r\nthree");
    EXPECT_EQ(split.pieces, (std::vector<std::string>{"one\n", "\n", "two\r\n", "three"}));
    EXPECT_EQ(split.error, "");
}

TEST(LineSplitterTest, InAnyPartsTheLinesAreTheSame) {
    const std::string stream = "one\n\ntwo\r\nthree\n";
    for (unsigned seed = 1; seed < 50; ++seed) {
        LineSplitter splitter;
        const Split split = FeedInParts(splitter, stream, 4, seed);
        ASSERT_EQ(split.pieces, (std::vector<std::string>{"one\n", "\n", "two\r\n", "three\n"}));
    }
}

TEST(LineSplitterTest, ALineOverTheLimitIsRefusedWithItsPlace) {
    LineSplitter fits(4);
    EXPECT_EQ(FeedAtOnce(fits, "one\ntwo").error, "");
    for (const std::size_t most : {1U, 3U, 100U}) {
        LineSplitter splitter(4);
        const Split split = FeedInParts(splitter, "one\nthree\n", most);
        EXPECT_EQ(split.pieces, (std::vector<std::string>{"one\n"}));
        EXPECT_EQ(split.error, "The line that begins at byte 4 is over the limit of 4 bytes");
    }
}

}  // namespace
}  // namespace Brantel::Tool
