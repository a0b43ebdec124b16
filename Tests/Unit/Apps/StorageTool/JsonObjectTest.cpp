#include <gtest/gtest.h>

#include <StorageTool/JsonObject.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace Brantel::Tool {
namespace {

TEST(JsonObjectTest, MembersKeepTheirOrder) {
    JsonObject object;
    object.Add("z", 1).Add("a", true).Add("m", "text").AddNull("n");
    EXPECT_EQ(object.Print(), R"({"z":1,"a":true,"m":"text","n":null})");
}

TEST(JsonObjectTest, NumbersBeyondTwoToThe53AreStrings) {
    const std::int64_t limit = std::int64_t{1} << 53U;
    JsonObject object;
    object.Add("a", limit).Add("b", limit + 1).Add("c", -limit - 1);
    EXPECT_EQ(object.Print(),
              R"({"a":9007199254740992,"b":"9007199254740993","c":"-9007199254740993"})");
}

TEST(JsonObjectTest, ALineIsOneLine) {
    JsonObject object;
    object.Add("text", "a\n\"b\"\x01");
    EXPECT_EQ(object.Print(), R"({"text":"a\n\"b\"\u0001"})");
}

TEST(JsonObjectTest, BytesThatAreNoTextAreInBase64) {
    JsonObject object;
    object.AddBytes("a", "text")
        .AddBytes("b", "\xff")
        .AddBytes("c", "\xff\xfe")
        .AddBytes("d", std::string_view("\xff\x00\xfe\x01", 4));
    EXPECT_EQ(object.Print(),
              R"({"a":"text","bBase64":"/w==","cBase64":"//4=","dBase64":"/wD+AQ=="})");
}

TEST(JsonObjectTest, ObjectsHoldObjects) {
    JsonObject inner;
    inner.Add("a", 1);
    JsonObject outer;
    outer.Add("one", inner).Add("many", std::vector<JsonObject>{inner, inner});
    EXPECT_EQ(outer.Print(), R"({"one":{"a":1},"many":[{"a":1},{"a":1}]})");
}

}  // namespace
}  // namespace Brantel::Tool
