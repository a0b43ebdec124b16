#include <gtest/gtest.h>

#include <StorageTool/Export/ExportFormat.h>

#include <stdexcept>
#include <string>

namespace Brantel::Tool {
namespace {

using std::string_literals::operator""s;

ExportFormat::Header MakeHeader() {
    ExportFormat::Header header;
    header.track = 7;
    header.capacity = 1 << 20;
    header.properties = {{"a", "b"}};
    return header;
}

TEST(ExportFormatTest, TheHeaderIsLaidOutAsDrawn) {
    const std::string bytes = ExportFormat::EncodeHeader(MakeHeader());
    EXPECT_EQ(bytes.substr(0, bytes.size() - 8),
              "BRTRKEXP"
              "\x01\0\0\0"
              "\x3A\0\0\0"
              "\x07\0\0\0\0\0\0\0"
              "\0\0\x10\0\0\0\0\0"
              "\x01\0\0\0\0\0\0\0"
              "\x01\0\0\0a\x01\0\0\0b"s);
    EXPECT_EQ(bytes.size(), 58U);
}

TEST(ExportFormatTest, TheHeaderIsReadBack) {
    const ExportFormat::Header header =
        ExportFormat::DecodeHeader(ExportFormat::EncodeHeader(MakeHeader()));
    EXPECT_EQ(header.track, 7);
    EXPECT_EQ(header.capacity, 1 << 20);
    EXPECT_EQ(header.properties, MakeHeader().properties);
}

TEST(ExportFormatTest, EveryFlippedBitOfTheHeaderIsNoticed) {
    const std::string whole = ExportFormat::EncodeHeader(MakeHeader());
    for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
        std::string bytes = whole;
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << (bit % 8)));
        EXPECT_THROW(ExportFormat::DecodeHeader(bytes), std::runtime_error) << bit;
    }
}

TEST(ExportFormatTest, AnotherVersionIsRefusedByNumber) {
    std::string bytes = ExportFormat::EncodeHeader(MakeHeader());
    bytes[8] = 2;
    try {
        ExportFormat::DecodeHeader(bytes);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "is an export file of version 2; this program knows version 1");
    }
}

TEST(ExportFormatTest, EveryFlippedBitOfTheTrailerIsNoticed) {
    ExportFormat::Trailer trailer;
    trailer.count = 3;
    const std::string whole = ExportFormat::EncodeTrailer(trailer);
    ASSERT_TRUE(ExportFormat::DecodeTrailer(whole, trailer));
    for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
        std::string bytes = whole;
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << (bit % 8)));
        EXPECT_FALSE(ExportFormat::DecodeTrailer(bytes, trailer)) << bit;
    }
}

}  // namespace
}  // namespace Brantel::Tool
