#include "Support/Text.h"
#include "Unit/Rpc/libProtocolX/schema/SchemaText.h"

#include <CommonMessages.pb.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace Protocol {
namespace {

using namespace std::string_literals;

constexpr const char* schema = R"(enum Protocol.VideoStandard
  0 PAL
  1 NTSC_DROP
  2 NTSC_NO_DROP
enum Protocol.VideoCodec
  0 RAW
  1 JPEG
message Protocol.TimePoint
  1 nanoseconds optional fixed64
message Protocol.PropertyList
  1 items repeated Protocol.PropertyList.Item
message Protocol.PropertyList.Item
  1 key required string
  2 value required bytes
message Protocol.KeyList
  1 keys repeated string
message Protocol.DataList
  1 items repeated Protocol.DataList.Item
message Protocol.DataList.Item
  1 key required string
  2 value required bytes
message Protocol.Chunk
  1 timecode optional Protocol.TimePoint
  2 duration optional Protocol.TimePoint
  3 properties optional Protocol.PropertyList
  4 data optional Protocol.DataList
message Protocol.TrackParameters
  1 id optional fixed64
  2 size optional fixed64
  3 commandId optional fixed64
message Protocol.TrackList
  1 trackIds repeated fixed64
message Protocol.ProtectionInfo
  1 handle optional fixed64
  2 trackId optional fixed64
  3 tcIn optional Protocol.TimePoint
  4 tcOut optional Protocol.TimePoint
message Protocol.ProtectionInfos
  1 infos repeated Protocol.ProtectionInfo
message Protocol.Ids
  1 ids repeated fixed64
message Protocol.CommandInfo
  1 type optional Protocol.CommandInfo.Type
  2 progression optional fixed64
enum Protocol.CommandInfo.Type
  1 NOT_EXIST
  2 FINISHED
  3 CANCELED
  4 QUEUED
  5 ONGOING
message Protocol.WorkerInfo
  1 type optional Protocol.WorkerInfo.Type
  2 workerId optional fixed64
  3 trackId optional fixed64
  4 connectionId optional fixed64
  5 throughput optional fixed64
  6 clientIpV4Address optional string
enum Protocol.WorkerInfo.Type
  1 NONE
  2 WRITER
  3 READER
message Protocol.WorkerInfos
  1 infos repeated Protocol.WorkerInfo
message Protocol.TrackInfo
  1 trackId optional fixed64
  2 tpIn optional Protocol.TimePoint
  3 tpOut optional Protocol.TimePoint
  4 size optional fixed64
  5 capacity optional fixed64
message Protocol.TrackInfos
  1 infos repeated Protocol.TrackInfo
)";

TEST(CommonMessagesTest, EveryEnumAndEveryFieldHasItsNumberNameLabelTypeAndPlace) {
    EXPECT_EQ(SchemaText(*Chunk::descriptor()->file()).Get(), schema);
}

TEST(CommonMessagesTest, FileIsOfPackageProtocolAndVersion2) {
    const auto& file = *Chunk::descriptor()->file();
    EXPECT_EQ(file.name(), "CommonMessages.proto");
    EXPECT_EQ(file.package(), "Protocol");
    EXPECT_EQ(file.syntax(), google::protobuf::FileDescriptor::SYNTAX_PROTO2);
    EXPECT_EQ(file.dependency_count(), 0);
}

TEST(CommonMessagesTest, ATimePointWithoutNanosecondsReadsAs0Nanoseconds) {
    TimePoint timePoint;
    ASSERT_TRUE(timePoint.ParseFromString(""));
    EXPECT_FALSE(timePoint.has_nanoseconds());
    EXPECT_EQ(timePoint.nanoseconds(), 0U);
}

TEST(CommonMessagesTest, ANegativeValueTravelsAsItsTwosComplementBitPattern) {
    TimePoint timePoint;
    timePoint.set_nanoseconds(static_cast<std::uint64_t>(-2L));
    EXPECT_EQ(timePoint.SerializeAsString(), "\x09\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s);
}

template <class List>
void ExpectThatKeyAndValueAreRequired() {
    List list;
    EXPECT_FALSE(list.ParseFromString("\x0A\x03\x0A\x01k"s)) << "an item without value";
    EXPECT_FALSE(list.ParseFromString("\x0A\x03\x12\x01v"s)) << "an item without key";
    EXPECT_FALSE(list.ParseFromString("\x0A\x00"s)) << "an empty item";
    EXPECT_TRUE(list.ParseFromString("\x0A\x06\x0A\x01k\x12\x01v"s));
}

TEST(CommonMessagesTest, BothFieldsOfAPropertyListItemAreRequired) {
    ExpectThatKeyAndValueAreRequired<PropertyList>();
}

TEST(CommonMessagesTest, BothFieldsOfADataListItemAreRequired) {
    ExpectThatKeyAndValueAreRequired<DataList>();
}

TEST(CommonMessagesTest, AnEmptyKeyOrValueThatIsPresentIsValid) {
    PropertyList properties;
    ASSERT_TRUE(properties.ParseFromString("\x0A\x04\x0A\x00\x12\x00"s));
    EXPECT_TRUE(properties.items(0).has_key());
    EXPECT_TRUE(properties.items(0).has_value());
    DataList data;
    ASSERT_TRUE(data.ParseFromString("\x0A\x04\x0A\x00\x12\x00"s));
    EXPECT_TRUE(data.items(0).has_key());
    EXPECT_TRUE(data.items(0).has_value());
}

TEST(CommonMessagesTest, ValuesWithZeroBytesInsideTravelUnchanged) {
    Chunk chunk;
    auto& property = *chunk.mutable_properties()->add_items();
    property.set_key("p");
    property.set_value("\0a\0"s);
    auto& block = *chunk.mutable_data()->add_items();
    block.set_key("d");
    block.set_value("\0\0\xFF"s);

    Chunk received;
    ASSERT_TRUE(received.ParseFromString(chunk.SerializeAsString()));
    EXPECT_EQ(received.properties().items(0).value(), "\0a\0"s);
    EXPECT_EQ(received.data().items(0).value(), "\0\0\xFF"s);
}

}  // namespace
}  // namespace Protocol
