#include <gtest/gtest.h>

#include <StorageTool/Media/HeldBytes.h>

#include <cstddef>
#include <random>
#include <string>
#include <string_view>

namespace Brantel::Tool {
namespace {

void Append(HeldBytes& held, std::string_view bytes) {
    // More room than is filled, as a read gets it.
    bytes.copy(held.Room(bytes.size() + 100), bytes.size());
    held.Add(bytes.size());
}

TEST(HeldBytesTest, WhatWasFilledIsSeenUntilItIsCutOff) {
    HeldBytes held;
    Append(held, "first");
    Append(held, "second");
    EXPECT_EQ(held.View(), "firstsecond");
    std::string piece;
    held.Cut(5, piece);
    EXPECT_EQ(piece, "first");
    EXPECT_EQ(held.View(), "second");
    EXPECT_EQ(held.Offset(), 5U);
}

TEST(HeldBytesTest, MoreThanThereIsCannotBeCutOff) {
    HeldBytes held;
    Append(held, "all");
    std::string piece;
    held.Cut(100, piece);
    EXPECT_EQ(piece, "all");
    EXPECT_EQ(held.Offset(), 3U);
}

TEST(HeldBytesTest, WhateverIsFilledAndCutTheStreamIsTheSame) {
    std::minstd_rand random(1);
    HeldBytes held;
    std::string in;
    std::string out;
    for (int step = 0; step < 2'000; ++step) {
        const std::string bytes(random() % 300, static_cast<char>('a' + step % 26));
        Append(held, bytes);
        in += bytes;
        std::string piece;
        held.Cut(random() % 300, piece);
        out += piece;
        ASSERT_EQ(held.Offset(), out.size());
    }
    EXPECT_EQ(out + std::string(held.View()), in);
}

}  // namespace
}  // namespace Brantel::Tool
