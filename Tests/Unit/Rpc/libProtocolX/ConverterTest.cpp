#include <libProtocolX/Converter.h>
#include <libProtocolX/DataChunk.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace Brantel::ProtocolX {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Time::TimePoint;

class ConverterTest : public testing::Test {
  protected:
    // Time point 1, duration 2, properties p, q and r, data blocks a and b.
    void FillChunk() {
        chunk.SetTimePoint(TimePoint::Nanoseconds(1));
        chunk.SetDuration(TimePoint::Nanoseconds(2));
        for (const char* key : {"p", "q", "r"}) {
            chunk.SetProperty(key, "property");
        }
        chunk.SetData("a", "block a");
        chunk.SetData("b", "block b");
    }

    template <typename List>
    static std::vector<std::string> Keys(const List& list) {
        std::vector<std::string> keys;
        for (const auto& item : list.items()) {
            keys.push_back(item.key());
        }
        return keys;
    }

    static void AddBlock(Protocol::Chunk& message, const std::string& key) {
        auto& item = *message.mutable_data()->add_items();
        item.set_key(key);
        item.set_value("block " + key);
    }

    Protocol::Chunk message;
    DataChunk chunk;
};

TEST_F(ConverterTest, FromAnUnsetTimePointYieldsZero) {
    EXPECT_EQ(Converter::From(Protocol::TimePoint()), TimePoint());
}

TEST_F(ConverterTest, ToFollowedByFromGivesBackTheCountNegativeValuesIncluded) {
    for (const std::int64_t count :
         {std::int64_t{0}, std::int64_t{-1}, std::int64_t{25},
          std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
        Protocol::TimePoint out;
        Converter::To(TimePoint::Nanoseconds(count), out);
        EXPECT_TRUE(out.has_nanoseconds());
        EXPECT_EQ(out.nanoseconds(), static_cast<std::uint64_t>(count));
        EXPECT_EQ(Converter::From(out).ToNanoseconds(), count);
    }
}

TEST_F(ConverterTest, FillWithAnEmptySetGivesAMessageEqualToTheChunks) {
    FillChunk();
    AddBlock(message, "old");
    Converter::Fill(chunk, message, {});
    EXPECT_THAT(Keys(message.data()), ElementsAre("a", "b"));
    Protocol::Chunk ofTheChunk;
    Converter::Swap(chunk, ofTheChunk);
    EXPECT_EQ(message.SerializeAsString(), ofTheChunk.SerializeAsString());
}

TEST_F(ConverterTest, FillWithAnEmptySetLeavesAbsentWhatTheChunkLacks) {
    AddBlock(message, "old");
    Converter::Fill(chunk, message, {});
    EXPECT_EQ(message.ByteSizeLong(), 0U);
}

TEST_F(ConverterTest, FillWithTheKeyBKeepsAllPropertiesAndOnlyTheBlockB) {
    FillChunk();
    Converter::Fill(chunk, message, {"b"});
    EXPECT_EQ(message.timecode().nanoseconds(), 1U);
    EXPECT_EQ(message.duration().nanoseconds(), 2U);
    EXPECT_THAT(Keys(message.properties()), ElementsAre("p", "q", "r"));
    EXPECT_THAT(Keys(message.data()), ElementsAre("b"));
    EXPECT_EQ(message.data().items(0).value(), "block b");
}

TEST_F(ConverterTest, FillOfASelectionDropsWhatTheMessageHeldBefore) {
    FillChunk();
    AddBlock(message, "old");
    AddBlock(message, "b");
    Converter::Fill(chunk, message, {"b"});
    EXPECT_THAT(Keys(message.data()), ElementsAre("b"));
}

TEST_F(ConverterTest, FillOfASelectionMakesEveryFieldPresent) {
    Converter::Fill(chunk, message, {"b"});
    EXPECT_TRUE(message.has_timecode() && message.has_duration() && message.has_properties() &&
                message.has_data());
    EXPECT_THAT(Keys(message.data()), IsEmpty());
}

TEST_F(ConverterTest, FillCopiesDuplicatesAndIgnoresKeysThatTheChunkLacks) {
    for (const char* key : {"b", "a", "b"}) {
        AddBlock(message, key);
    }
    Converter::CopyFrom(chunk, message);
    Protocol::Chunk out;
    Converter::Fill(chunk, out, {"b", "missing"});
    EXPECT_THAT(Keys(out.data()), ElementsAre("b", "b"));
    EXPECT_EQ(chunk.GetDataSize(), 3U);
}

TEST_F(ConverterTest, FillIntoTheReferencedMessageItselfStillSelects) {
    AddBlock(message, "a");
    AddBlock(message, "b");
    Converter::ReferenceFrom(chunk, message);
    Converter::Fill(chunk, message, {"b"});
    EXPECT_THAT(Keys(message.data()), ElementsAre("b"));
}

TEST_F(ConverterTest, AReferencingChunkReportsTheMessageAndItsLaterChanges) {
    message.mutable_properties()->add_items()->set_key("p");
    Converter::ReferenceFrom(chunk, message);
    EXPECT_EQ(chunk.GetPropertySize(), 1U);
    message.mutable_properties()->add_items()->set_key("q");
    EXPECT_EQ(chunk.GetPropertySize(), 2U);
}

TEST_F(ConverterTest, AnotherReferenceRepointsTheChunkAndLeavesTheFirstMessage) {
    Protocol::Chunk second;
    DataChunk referencing;
    AddBlock(message, "a");
    Converter::ReferenceFrom(referencing, message);
    Converter::ReferenceFrom(referencing, second);
    referencing.SetData("b", "v");
    EXPECT_THAT(Keys(message.data()), ElementsAre("a"));
    EXPECT_THAT(Keys(second.data()), ElementsAre("b"));
}

TEST_F(ConverterTest, SwapWithAnEmptyMessageMovesTheTwoPropertiesIntoIt) {
    chunk.SetProperty("p", "1");
    chunk.SetProperty("q", "2");
    const std::string* stored = &chunk.GetProperty("p");
    Converter::Swap(chunk, message);
    EXPECT_EQ(chunk.GetPropertySize(), 0U);
    EXPECT_THAT(Keys(message.properties()), ElementsAre("p", "q"));
    EXPECT_EQ(&message.properties().items(0).value(), stored);
}

TEST_F(ConverterTest, SwapWithTheReferencedMessageItselfChangesNothing) {
    AddBlock(message, "a");
    Converter::ReferenceFrom(chunk, message);
    Converter::Swap(chunk, message);
    EXPECT_THAT(Keys(message.data()), ElementsAre("a"));
    EXPECT_EQ(chunk.GetDataSize(), 1U);
}

TEST_F(ConverterTest, SwapOfAReferencingChunkExchangesTheReferencedMessagesContents) {
    Protocol::Chunk other;
    AddBlock(message, "a");
    AddBlock(other, "b");
    Converter::ReferenceFrom(chunk, message);
    Converter::Swap(chunk, other);
    EXPECT_THAT(Keys(message.data()), ElementsAre("b"));
    EXPECT_THAT(Keys(other.data()), ElementsAre("a"));
}

TEST_F(ConverterTest, CopyFromIntoAReferencingChunkOverwritesThatMessage) {
    Protocol::Chunk source;
    AddBlock(source, "new");
    AddBlock(message, "old");
    chunk.SetData("own", "v");
    Converter::ReferenceFrom(chunk, message);
    Converter::CopyFrom(chunk, source);
    EXPECT_THAT(Keys(message.data()), ElementsAre("new"));
    EXPECT_THAT(Keys(source.data()), ElementsAre("new"));
}

TEST_F(ConverterTest, CopyFromTheReferencedMessageItselfChangesNothing) {
    AddBlock(message, "a");
    Converter::ReferenceFrom(chunk, message);
    Converter::CopyFrom(chunk, message);
    EXPECT_THAT(Keys(message.data()), ElementsAre("a"));
}

}  // namespace
}  // namespace Brantel::ProtocolX
