#include <libTracks/ResizeForOverwrite.h>

#include <gtest/gtest.h>

#include <string>

namespace Brantel::Tracks {
namespace {

// A chunk that was read into a reused message came out up to twice as long as it was stored.
TEST(ResizeForOverwriteTest, AReusedTextGetsExactlyTheSizeThatIsAskedFor) {
    std::string text;
    for (const std::size_t size : {1000U, 1001U, 1999U, 5U, 0U, 100'000U}) {
        text.clear();
        ResizeForOverwrite(text, size);
        EXPECT_EQ(text.size(), size);
    }
}

}  // namespace
}  // namespace Brantel::Tracks
