#include "Support/Frames.h"
#include "Support/RandomMessages.h"

#include <libServices/ElementCount.h>

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <string>

namespace Brantel::Services {
namespace {

using google::protobuf::FileDescriptorProto;
using google::protobuf::Message;

class ElementCountTest : public testing::Test {
  protected:
    static constexpr int deepest = 100;

    static bool Fits(const std::string& bytes, std::size_t limit, int depth, const Message& type) {
        ElementCount count(limit, depth);
        return count.Add(*type.GetDescriptor(),
                         reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), 0);
    }
    static bool Parses(const std::string& bytes, int depth) {
        google::protobuf::io::CodedInputStream input(
            reinterpret_cast<const std::uint8_t*>(bytes.data()), static_cast<int>(bytes.size()));
        input.SetRecursionLimit(depth);
        FileDescriptorProto parsed;
        return parsed.MergePartialFromCodedStream(&input) && input.ConsumedEntireMessage();
    }
    // The smallest limit that the bytes are within.
    static std::size_t ElementsOf(const std::string& bytes,
                                  const Message& type = FileDescriptorProto::default_instance()) {
        std::size_t elements = 0;
        while (!Fits(bytes, elements, deepest, type)) {
            ++elements;
        }
        return elements;
    }
    static int DepthOf(const std::string& bytes,
                       const Message& type = FileDescriptorProto::default_instance()) {
        int depth = 0;
        while (!Fits(bytes, std::numeric_limits<std::size_t>::max(), depth, type)) {
            ++depth;
        }
        return depth;
    }
};

TEST_F(ElementCountTest, TextsAndPartsAreElements) {
    FileDescriptorProto file;
    EXPECT_EQ(ElementsOf(file.SerializeAsString()), 0U);
    file.set_name("a");
    file.add_dependency("b");
    file.add_dependency("");
    EXPECT_EQ(ElementsOf(file.SerializeAsString()), 3U);
    file.add_message_type()->set_name("c");
    EXPECT_EQ(ElementsOf(file.SerializeAsString()), 5U);
}

TEST_F(ElementCountTest, NumbersThatTheTypeKnowsAreNot) {
    FileDescriptorProto file;
    for (int i = 0; i < 1000; ++i) {
        file.add_public_dependency(i);
    }
    EXPECT_EQ(ElementsOf(file.SerializeAsString()), 0U);
    // All in one field.
    EXPECT_EQ(ElementsOf(std::string("\x52\x03\x01\x02\x03")), 0U);
}

TEST_F(ElementCountTest, WhatTheTypeDoesNotKnowIs) {
    const std::string number = "\xA0\x06\x01";
    const std::string text = std::string("\xA2\x06\x02") + "ab";
    const std::string fixed = std::string("\xA5\x06") + std::string(4, 'f');
    const std::string wide = std::string("\xA1\x06") + std::string(8, 'w');
    EXPECT_EQ(ElementsOf(number + text + fixed + wide), 4U);
    // A number where the type has a text.
    EXPECT_EQ(ElementsOf("\x08\x01"), 1U);
}

TEST_F(ElementCountTest, NumbersOfAnEnumerationAre) {
    // Those that the enumeration lacks are kept like unknown fields.
    google::protobuf::FieldDescriptorProto field;
    field.set_label(google::protobuf::FieldDescriptorProto::LABEL_OPTIONAL);
    EXPECT_EQ(ElementsOf(field.SerializeAsString(), field), 1U);
    EXPECT_EQ(ElementsOf("\x20\x7F\x20\x7E", field), 2U);
}

TEST_F(ElementCountTest, AGroupIsAnElementAndSoIsWhatItHolds) {
    const std::string group = "\xA3\x06\x08\x01\x08\x02\xA4\x06";
    EXPECT_EQ(ElementsOf(group), 3U);
    EXPECT_EQ(ElementsOf(group + "\x0A\x01"
                                 "a"),
              4U);
    EXPECT_EQ(DepthOf(group), 1);
}

TEST_F(ElementCountTest, PartsAndGroupsNest) {
    FileDescriptorProto file;
    auto* part = file.add_message_type();
    for (int depth = 1; depth < 20; ++depth) {
        EXPECT_EQ(DepthOf(file.SerializeAsString()), depth);
        part = part->add_nested_type();
    }
    std::string groups;
    for (int depth = 1; depth < 20; ++depth) {
        groups = "\xA3\x06" + groups + "\xA4\x06";
        EXPECT_EQ(DepthOf(groups), depth);
        EXPECT_EQ(DepthOf("\x22" + Tests::FrameOf(groups)), depth + 1);
    }
}

TEST_F(ElementCountTest, BytesThatAreNoFieldsEndTheCount) {
    for (const std::string& damage :
         {std::string("\x00", 1), std::string("\x0F"), std::string("\xA4\x06"),
          std::string("\x0A\x05"), std::string("\xFF\xFF\xFF\xFF\xFF\xFF")}) {
        EXPECT_EQ(ElementsOf("\x0A\x01"
                             "a" +
                             damage +
                             "\x0A\x01"
                             "a"),
                  1U);
    }
}

TEST_F(ElementCountTest, TheReasonNamesTheLimit) {
    ElementCount count(1, 1);
    EXPECT_TRUE(count.AddText());
    EXPECT_FALSE(count.IsOver());
    EXPECT_EQ(count.Reason(), "");
    EXPECT_FALSE(count.AddText());
    EXPECT_EQ(count.Reason(), "holds more elements than the limit of 1");
    ElementCount deep(5, 1);
    EXPECT_TRUE(deep.AddPart(0));
    EXPECT_FALSE(deep.AddPart(1));
    EXPECT_EQ(deep.Reason(), "nests deeper than the limit of 1");
}

// However a message is made: what the parser goes through, the count goes through.
TEST_F(ElementCountTest, ARandomMessagesDepthIsWhatTheParserNeeds) {
    Tests::RandomMessages random(1);
    int compared = 0;
    for (int i = 0; i < 300; ++i) {
        FileDescriptorProto message;
        random.Fill(message, 2000);
        const std::string bytes =
            random.Rewritten(message.SerializePartialAsString(), *message.GetDescriptor());
        if (!Parses(bytes, deepest)) {
            continue;
        }
        const int depth = DepthOf(bytes);
        EXPECT_TRUE(Parses(bytes, depth));
        EXPECT_FALSE(depth > 0 && Parses(bytes, depth - 1));
        ++compared;
    }
    EXPECT_GT(compared, 100);
}

}  // namespace
}  // namespace Brantel::Services
