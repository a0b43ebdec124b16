#include <libEngine/Local/SegmentFormat.h>

#include <gtest/gtest.h>
#include <xxhash.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Engine {
namespace {

// Builds expected bytes number by number.
class Expected {
  public:
    Expected& Number(std::uint64_t value, int size) {
        for (int index = 0; index < size; ++index) {
            bytes.push_back(static_cast<char>(value >> (8 * index)));
        }
        return *this;
    }
    Expected& Text(std::string_view text) {
        bytes += text;
        return *this;
    }
    std::string Padded(std::size_t size) const {
        return bytes + std::string(size - bytes.size(), '\0');
    }
    const std::string& Get() const { return bytes; }

  private:
    std::string bytes;
};

class SegmentFormatTest : public testing::Test {
  protected:
    static constexpr std::uint32_t size = 1U << 20U;
    const SegmentFormat::Identity identity{7, 3, 5, 1, 2, 1, size};

    static Expected ExpectedIdentity() {
        return Expected().Number(7, 8).Number(3, 8).Number(5, 8).Number(1, 8).Number(2, 8).Number(
            1, 4);
    }
    static std::string WithChecksum(const std::string& rest, std::uint64_t seed = 0) {
        return Expected().Number(XXH3_64bits_withSeed(rest.data(), rest.size(), seed), 8).Get() +
               rest;
    }
    std::string Header(SegmentFormat::HeaderState state = SegmentFormat::HeaderState::InUse) {
        std::string page(4096, 'x');
        SegmentFormat::EncodeHeader(identity, state, false, 21, page.data());
        return page;
    }
    std::string Chunk() {
        std::string bytes(ChunkLayout::HeadLength(2, 0), 'x');
        const std::vector<std::string_view> parts{"meta", "data!"};
        SegmentFormat::EncodeChunk(entry, parts, 9, 4096, identity, bytes.data());
        return bytes + "metadata!" + std::string(7, '\0');
    }

    const ChunkEntry entry{100, 40, 11, 6, 8192, 128, 116};
};

TEST_F(SegmentFormatTest, AHeaderHasItsBytes) {
    const std::string rest = Expected()
                                 .Text("BRSEGHDR")
                                 .Number(1, 4)
                                 .Number(1, 4)
                                 .Text(ExpectedIdentity().Get())
                                 .Number(size, 4)
                                 .Padded(72);
    std::string bytes = WithChecksum(rest);
    const std::string front = Expected().Number(21, 8).Get();
    std::uint64_t seed = 0;
    std::memcpy(&seed, bytes.data(), sizeof seed);
    bytes += front + WithChecksum(front, seed).substr(0, 8);
    EXPECT_EQ(Header(), bytes + std::string(4096 - 96, '\0'));
}

TEST_F(SegmentFormatTest, AFooterHasItsBytes) {
    SegmentFormat::Footer footer;
    footer.state = SegmentFormat::FooterState::Sealed;
    footer.identity = identity;
    footer.count = 1;
    footer.durationSum = 40;
    footer.end = 8320;
    footer.first = footer.last = SegmentFormat::Pack(entry);
    std::string page(4096, 'x');
    SegmentFormat::EncodeFooter(footer, std::vector{SegmentFormat::Pack(entry)}, page.data());

    const std::string packed = Expected()
                                   .Number(100, 8)
                                   .Number(40, 8)
                                   .Number(11, 8)
                                   .Number(6, 8)
                                   .Number(8192, 4)
                                   .Number(128, 4)
                                   .Number(116, 4)
                                   .Number(0, 4)
                                   .Get();
    const std::string rest = Expected()
                                 .Text("BRSEGFTR")
                                 .Number(1, 4)
                                 .Number(2, 4)
                                 .Text(ExpectedIdentity().Get())
                                 .Number(size, 4)
                                 .Number(1, 8)
                                 .Number(40, 8)
                                 .Number(8320, 4)
                                 .Number(1, 4)
                                 .Number(0, 8)
                                 .Text(packed + packed + packed)
                                 .Get();
    EXPECT_EQ(page, WithChecksum(rest) + std::string(4096 - 248, '\0'));
}

TEST_F(SegmentFormatTest, AChunkHasItsBytes) {
    const std::string stamped = ExpectedIdentity().Get().substr(0, 32) +
                                Expected().Number(0, 8).Number(1, 4).Number(size, 4).Get();
    const std::uint64_t stamp = XXH3_64bits(stamped.data(), stamped.size());
    const std::string rest = Expected()
                                 .Text("CHNK")
                                 .Number(2, 4)
                                 .Number(100, 8)
                                 .Number(40, 8)
                                 .Number(11, 8)
                                 .Number(6, 8)
                                 .Number(9, 8)
                                 .Number(8192, 4)
                                 .Number(128, 4)
                                 .Number(116, 4)
                                 .Number(4096, 4)
                                 .Number(3, 4)
                                 .Number(0, 4)
                                 .Number(XXH3_64bits("meta", 4), 8)
                                 .Number(4, 4)
                                 .Number(0, 4)
                                 .Number(XXH3_64bits("data!", 5), 8)
                                 .Number(5, 4)
                                 .Number(0, 4)
                                 .Get();
    EXPECT_EQ(Chunk(), WithChecksum(rest, stamp) + "metadata!" + std::string(7, '\0'));
}

TEST_F(SegmentFormatTest, WhatWasEncodedIsDecoded) {
    const auto header = SegmentFormat::DecodeHeader(Header().data(), size);
    ASSERT_TRUE(header.has_value());
    EXPECT_EQ(header->identity.GetId(), (SegmentId{7, LogKind::Held, 3}));
    EXPECT_EQ(header->ringFront, 21U);
    std::size_t needed = 0;
    const std::string chunk = Chunk();
    const auto head = SegmentFormat::DecodeChunk(chunk.data(), chunk.size(), 8192, identity,
                                                 identity.GetStamp(), needed);
    ASSERT_TRUE(head.has_value());
    EXPECT_EQ(head->GetEntry(), entry);
    EXPECT_EQ(head->epoch, 9U);
    EXPECT_EQ(SegmentFormat::Unpack(SegmentFormat::Pack(entry)), entry);
}

TEST_F(SegmentFormatTest, AChangedBitOfAHeaderIsNoticed) {
    for (std::size_t place = 0; place < sizeof(SegmentFormat::Header); ++place) {
        std::string page = Header();
        page[place] = static_cast<char>(page[place] ^ 0x10);
        EXPECT_FALSE(SegmentFormat::DecodeHeader(page.data(), size).has_value()) << place;
    }
}

TEST_F(SegmentFormatTest, AHeaderOfAnEarlierProgramTellsNoFront) {
    std::string page = Header();
    page.replace(80, 16, std::string(16, '\0'));
    const auto header = SegmentFormat::DecodeHeader(page.data(), size);
    ASSERT_TRUE(header.has_value());
    EXPECT_EQ(header->ringFront, 0U);
}

TEST_F(SegmentFormatTest, AChangedBitOfAChunksHeadIsNoticed) {
    for (std::size_t place = 0; place < ChunkLayout::HeadLength(2, 0); ++place) {
        std::string chunk = Chunk();
        chunk[place] = static_cast<char>(chunk[place] ^ 0x10);
        std::size_t needed = 0;
        EXPECT_FALSE(SegmentFormat::DecodeChunk(chunk.data(), chunk.size(), 8192, identity,
                                                identity.GetStamp(), needed)
                         .has_value())
            << place;
    }
}

TEST_F(SegmentFormatTest, AChunkOfAnotherSegmentOrPlaceIsNoChunkHere) {
    const std::string chunk = Chunk();
    std::size_t needed = 0;
    const auto decode = [&](std::uint32_t offset, const SegmentFormat::Identity& where) {
        return SegmentFormat::DecodeChunk(chunk.data(), chunk.size(), offset, where,
                                          where.GetStamp(), needed);
    };
    EXPECT_TRUE(decode(8192, identity).has_value());
    EXPECT_FALSE(decode(8200, identity).has_value());
    SegmentFormat::Identity claimed = identity;
    claimed.epoch = 77;
    EXPECT_TRUE(decode(8192, claimed).has_value());
    for (SegmentFormat::Identity other : {SegmentFormat::Identity{8, 3, 5, 1, 2, 1, size},
                                          {7, 4, 5, 1, 2, 1, size},
                                          {7, 3, 6, 1, 2, 1, size},
                                          {7, 3, 5, 2, 2, 1, size},
                                          {7, 3, 5, 1, 2, 0, size}}) {
        EXPECT_FALSE(decode(8192, other).has_value());
    }
}

TEST_F(SegmentFormatTest, AHeadThatIsNotThereYetTellsHowMuchItNeeds) {
    const std::string chunk = Chunk();
    std::size_t needed = 0;
    for (const std::size_t available : {std::size_t{0}, std::size_t{79}}) {
        EXPECT_FALSE(SegmentFormat::DecodeChunk(chunk.data(), available, 8192, identity,
                                                identity.GetStamp(), needed));
        EXPECT_EQ(needed, 80U);
    }
    EXPECT_FALSE(
        SegmentFormat::DecodeChunk(chunk.data(), 111, 8192, identity, identity.GetStamp(), needed));
    EXPECT_EQ(needed, 112U);
}

TEST_F(SegmentFormatTest, PagesOfAFileOfAnotherSizeAreRefused) {
    EXPECT_FALSE(SegmentFormat::DecodeHeader(Header().data(), size * 2).has_value());
}

}  // namespace
}  // namespace Brantel::Engine
