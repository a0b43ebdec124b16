#include "Unit/Storage/libTracks/StorageTest.h"

#include <libEngine/ChunkLayout.h>
#include <libTracks/EncodedChunk.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace Brantel::Tracks {
namespace {

using Engine::ChunkLayout;

class EncodedChunkTest : public testing::Test {
  protected:
    static constexpr std::size_t large = 100'000;
    static constexpr std::uint64_t line = 64;

    void Encode(std::size_t size) {
        chunk = MakeChunk(10, 1, {{"small", "a"}, {"data", Bytes(size)}}, {{"key", "value"}});
        encoded.Encode(7, chunk);
    }
    // Where the last data block lies in a file, less where it lies in memory, within a line.
    std::uint64_t ShiftAt(std::uint64_t offset) const {
        const auto parts = encoded.GetParts();
        const std::uint64_t place =
            offset + ChunkLayout::HeadLength(parts.size(), parts[0].size()) + parts[1].size();
        return (place - reinterpret_cast<std::uintptr_t>(parts[2].data())) % line;
    }

    Protocol::Chunk chunk;
    EncodedChunk encoded;
};

TEST_F(EncodedChunkTest, OnlyLargeDataBlocksAreOffered) {
    Encode(large);
    EXPECT_TRUE(encoded.GetOffered().empty());
    encoded.Offer(chunk);
    ASSERT_EQ(encoded.GetOffered().size(), 3U);
    EXPECT_EQ(encoded.GetOffered()[0], nullptr);
    EXPECT_EQ(encoded.GetOffered()[1], nullptr);
    EXPECT_EQ(encoded.GetOffered()[2], &chunk.data().items(1).value());
}

TEST_F(EncodedChunkTest, WhatWasOfferedIsForgottenWithTheNextChunk) {
    Encode(large);
    encoded.Offer(chunk);
    encoded.Encode(7, chunk);
    EXPECT_TRUE(encoded.GetOffered().empty());
    Encode(10);
    encoded.Offer(chunk);
    EXPECT_TRUE(encoded.GetOffered().empty());
}

TEST_F(EncodedChunkTest, ALargeDataBlockLiesInTheFileAsInMemory) {
    Encode(large);
    for (std::uint64_t offset = 4096; offset < 4096 + 2 * line; offset += 8) {
        encoded.AlignTo(offset);
        EXPECT_EQ(ShiftAt(offset), 0U) << offset;
        std::uint64_t bytes = 0;
        for (const std::string_view part : encoded.GetParts()) {
            bytes += part.size();
        }
        EXPECT_EQ(encoded.GetBytes(), bytes);
    }
}

TEST_F(EncodedChunkTest, AligningCostsLessThanALineAndCanBeTakenBack) {
    Encode(large);
    const std::uint64_t before = encoded.GetBytes();
    const std::string first(encoded.GetParts()[0]);
    encoded.AlignTo(4104);
    EXPECT_LT(encoded.GetBytes() - before, line);
    encoded.Unalign();
    EXPECT_EQ(encoded.GetBytes(), before);
    EXPECT_EQ(encoded.GetParts()[0], first);
}

TEST_F(EncodedChunkTest, SmallChunksAreNotAligned) {
    Encode(1000);
    const std::uint64_t before = encoded.GetBytes();
    EXPECT_FALSE(encoded.AlignTo(4104));
    EXPECT_EQ(encoded.GetBytes(), before);
}

}  // namespace
}  // namespace Brantel::Tracks
