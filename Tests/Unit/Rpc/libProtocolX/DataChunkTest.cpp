#include "Support/FlushedOutput.h"
#include "Support/Refusal.h"

#include <libProtocolX/Converter.h>
#include <libProtocolX/DataChunk.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <type_traits>

namespace Brantel::ProtocolX {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Time::TimePoint;

using Strings = std::set<std::string>;
using Tests::RefusalOf;

const std::string withZeros("a\0b\0", 4);

const unsigned char* Bytes(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

class DataChunkTest : public testing::Test {
  protected:
    // What IsEqual returned, and what it printed.
    static std::pair<bool, std::string> Compare(const DataChunk& one, const DataChunk& other) {
        testing::internal::CaptureStdout();
        const bool equal = one.IsEqual(other);
        return {equal, testing::internal::GetCapturedStdout()};
    }

    void Reference() { Converter::ReferenceFrom(chunk, message); }

    // The lists of the message that is referenced, as "key=value" in their order.
    template <typename List>
    static std::vector<std::string> Items(const List& list) {
        std::vector<std::string> items;
        for (const auto& item : list.items()) {
            items.push_back(item.key() + "=" + item.value());
        }
        return items;
    }

    Protocol::Chunk message;
    DataChunk chunk;
};

TEST_F(DataChunkTest, ANewChunkIsEmptyAndThrowsForTheKeyX) {
    EXPECT_EQ(chunk.GetTimePoint(), TimePoint());
    EXPECT_EQ(chunk.GetDuration(), TimePoint());
    EXPECT_EQ(chunk.GetPropertySize(), 0U);
    EXPECT_EQ(chunk.GetDataSize(), 0U);
    EXPECT_THAT(chunk.GetPropertyKeys(), IsEmpty());
    EXPECT_THAT(chunk.GetDataKeys(), IsEmpty());
    EXPECT_EQ(RefusalOf([&] { chunk.GetProperty("x"); }), "DataChunk: property key x not found");
}

TEST_F(DataChunkTest, SettingAPropertyTwiceLeavesOneItemWithTheSecondValue) {
    Reference();
    chunk.SetProperty("k", "a");
    chunk.SetProperty("k", "bb");
    EXPECT_EQ(chunk.GetPropertySize(), 1U);
    EXPECT_THAT(Items(message.properties()), ElementsAre("k=bb"));
    EXPECT_EQ(chunk.GetProperty("k"), "bb");
}

TEST_F(DataChunkTest, TheStringFormOfSetPropertyPutsTwoBlanksForAnEmptyKey) {
    EXPECT_EQ(RefusalOf([&] { chunk.SetProperty("", "v"); }),
              "SetProperty: key and value cannot be empty:  v");
}

TEST_F(DataChunkTest, TheStringFormOfSetPropertyEndsInKeyAndBlankForAnEmptyValue) {
    EXPECT_EQ(RefusalOf([&] { chunk.SetProperty("k", ""); }),
              "SetProperty: key and value cannot be empty: k ");
}

TEST_F(DataChunkTest, ThePointerFormOfSetDataRefusesASizeOfZero) {
    EXPECT_EQ(RefusalOf([&] { chunk.SetData("k", nullptr, 0); }),
              "SetData: key cannot be empty nor dataSize 0");
}

TEST_F(DataChunkTest, TheNonConstGetDataOfAMissingKeyAppendsAnEmptyBlock) {
    const DataChunk& read = chunk;
    EXPECT_EQ(chunk.GetData("k"), "");
    EXPECT_EQ(chunk.GetDataSize(), 1U);
    EXPECT_EQ(read.GetData("k"), "");
}

TEST_F(DataChunkTest, ThePointerFormOfGetPropertyReturnsNullForAMissingKey) {
    long size = 77;
    EXPECT_EQ(chunk.GetProperty("k", 1, size), nullptr);
    EXPECT_EQ(size, 77);
}

TEST_F(DataChunkTest, AChunkWithADuplicatedPropertyIsNotEqualToItsCopyAndPrintsNothing) {
    for (const char* key : {"b", "a", "b"}) {
        auto& item = *message.mutable_properties()->add_items();
        item.set_key(key);
        item.set_value("v");
    }
    Converter::CopyFrom(chunk, message);
    EXPECT_THAT(chunk.GetPropertyKeys(), ElementsAre("a", "b"));
    EXPECT_EQ(chunk.GetPropertySize(), 3U);
    EXPECT_EQ(Compare(chunk, DataChunk(chunk)), std::pair(false, std::string()));
}

TEST_F(DataChunkTest, IsEqualPrintsTheKeyThatTheOtherChunkLacks) {
    DataChunk other;
    chunk.SetProperty("a", "v");
    other.SetProperty("b", "v");
    const std::string line = "DataChunk IsEqual error: DataChunk: property key a not found\n";
    EXPECT_EQ(Compare(chunk, other), std::pair(false, line));
}

TEST_F(DataChunkTest, CopyMetadataReplacesThePropertiesAndLeavesTheData) {
    DataChunk source;
    source.SetProperty("p", "1");
    chunk.SetProperty("q", "2");
    chunk.SetData("d", "3");
    chunk.CopyMetadata(source);
    EXPECT_THAT(chunk.GetPropertyKeys(), ElementsAre("p"));
    EXPECT_THAT(chunk.GetDataKeys(), ElementsAre("d"));
}

TEST_F(DataChunkTest, ToStringCountsTwoPropertiesAndOneDataBlock) {
    chunk.SetTimePoint(TimePoint::Nanoseconds(1500000000));
    chunk.SetDuration(TimePoint::Nanoseconds(40000000));
    chunk.SetProperty("p", "1");
    chunk.SetProperty("q", "2");
    chunk.SetData("d", "3");
    EXPECT_EQ(chunk.ToString(), "Tc: 1.500000000\nDur: 0.040000000\nNb props: 2\nNb data: 1\n");
}

TEST_F(DataChunkTest, SettingAPropertyOfAReferencingChunkAddsTheItemToTheMessage) {
    Reference();
    chunk.SetProperty("k", "v");
    EXPECT_THAT(Items(message.properties()), ElementsAre("k=v"));
}

TEST_F(DataChunkTest, DestroyingAReferencingChunkLeavesTheMessageEmpty) {
    auto referencing = std::make_unique<DataChunk>();
    Converter::ReferenceFrom(*referencing, message);
    referencing->SetProperty("k", "v");
    referencing->SetTimePoint(TimePoint::Nanoseconds(1));
    referencing.reset();
    EXPECT_EQ(message.ByteSizeLong(), 0U);
    EXPECT_FALSE(message.has_properties());
}

TEST_F(DataChunkTest, AssigningAReferencingChunkToItselfDetachesItWithTheContents) {
    Reference();
    chunk.SetProperty("k", "v");
    const DataChunk& itself = chunk;
    chunk = itself;
    message.Clear();
    EXPECT_EQ(chunk.GetProperty("k"), "v");
    chunk.SetProperty("l", "w");
    EXPECT_FALSE(message.has_properties());
}

TEST_F(DataChunkTest, AssigningAnOwningChunkToItselfKeepsTheContents) {
    chunk.SetData("k", "v");
    const DataChunk& itself = chunk;
    chunk = itself;
    EXPECT_EQ(chunk.GetData("k"), "v");
}

TEST_F(DataChunkTest, AssignmentEndsAReferenceAndLeavesTheMessageAlone) {
    message.mutable_timecode()->set_nanoseconds(5);
    Reference();
    DataChunk other;
    other.SetTimePoint(TimePoint::Nanoseconds(9));
    chunk = other;
    EXPECT_EQ(chunk.GetTimePoint(), TimePoint::Nanoseconds(9));
    chunk.SetTimePoint(TimePoint::Nanoseconds(10));
    EXPECT_EQ(message.timecode().nanoseconds(), 5U);
}

TEST_F(DataChunkTest, AssignmentFromAReferencingChunkCopiesTheMessage) {
    Reference();
    chunk.SetProperty("k", "v");
    DataChunk copy;
    copy = chunk;
    copy.SetProperty("k", "w");
    EXPECT_THAT(Items(message.properties()), ElementsAre("k=v"));
}

TEST_F(DataChunkTest, ACopyOfAReferencingChunkOwnsItsContents) {
    Reference();
    chunk.SetProperty("k", "v");
    DataChunk copy(chunk);
    message.Clear();
    EXPECT_EQ(copy.GetProperty("k"), "v");
}

TEST_F(DataChunkTest, IsCopiedWhereItCouldBeMoved) {
    chunk.SetProperty("k", "v");
    const DataChunk moved(std::move(chunk));  // NOLINT(performance-move-const-arg)
    EXPECT_EQ(chunk.GetProperty("k"), "v");   // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(moved.GetProperty("k"), "v");
}

TEST_F(DataChunkTest, HasNoVirtualOperations) {
    EXPECT_FALSE(std::is_polymorphic_v<DataChunk>);
    EXPECT_EQ(sizeof(DataChunk), sizeof(Protocol::Chunk) + sizeof(Protocol::Chunk*));
}

TEST_F(DataChunkTest, ClearEmptiesTheMessageWithAllPresence) {
    Reference();
    chunk.SetTimePoint(TimePoint());
    chunk.SetDuration(TimePoint());
    chunk.GetData("k");
    chunk.Clear();
    EXPECT_FALSE(message.has_timecode() || message.has_duration() || message.has_data());
}

TEST_F(DataChunkTest, TimePointAndDurationKeepNegativeCounts) {
    chunk.SetTimePoint(TimePoint::Nanoseconds(-7));
    chunk.SetDuration(TimePoint::GetHighestTimePoint());
    EXPECT_EQ(chunk.GetTimePoint(), TimePoint::Nanoseconds(-7));
    EXPECT_EQ(chunk.GetDuration(), TimePoint::GetHighestTimePoint());
}

TEST_F(DataChunkTest, SettersMarkWhatTheyTouchAsPresent) {
    Reference();
    chunk.SetTimePoint(TimePoint());
    EXPECT_TRUE(message.has_timecode());
    chunk.SetDuration(TimePoint());
    EXPECT_TRUE(message.has_duration());
    chunk.SetProperty("k", "v");
    EXPECT_TRUE(message.has_properties());
    chunk.SetData("k", "v");
    EXPECT_TRUE(message.has_data());
}

TEST_F(DataChunkTest, ReadingCreatesNothing) {
    Reference();
    const DataChunk& read = chunk;
    long size = 0;
    read.GetTimePoint();
    read.GetDuration();
    read.GetPropertySize();
    read.GetPropertyKeys();
    read.GetProperty("k", 1, size);
    read.GetDataSize();
    read.GetDataKeys();
    read.GetData("k", 1, size);
    read.ToString();
    read.GetSizeOnFile();
    read.IsEqual(DataChunk());
    EXPECT_FALSE(message.has_timecode() || message.has_duration() || message.has_properties() ||
                 message.has_data());
}

TEST_F(DataChunkTest, RefusedArgumentsCreateNothing) {
    Reference();
    RefusalOf([&] { chunk.SetProperty("", "v"); });
    RefusalOf([&] { chunk.SetProperty("k", nullptr, 0); });
    RefusalOf([&] { chunk.SetData("k", ""); });
    RefusalOf([&] { chunk.SetData("", nullptr, 1); });
    RefusalOf([&] { chunk.GetData(""); });
    EXPECT_FALSE(message.has_properties() || message.has_data());
}

TEST_F(DataChunkTest, ItemsKeepTheOrderInWhichTheyWereAddedAndTheirPlaceWhenOverwritten) {
    Reference();
    for (const char* key : {"b", "a", "c"}) {
        chunk.SetProperty(key, "1");
        chunk.SetData(key, "1");
    }
    chunk.SetProperty("b", "2");
    chunk.SetData("a", "22");
    EXPECT_THAT(Items(message.properties()), ElementsAre("b=2", "a=1", "c=1"));
    EXPECT_THAT(Items(message.data()), ElementsAre("b=1", "a=22", "c=1"));
}

TEST_F(DataChunkTest, ThePointerFormsOverwriteAndAppendBytes) {
    chunk.SetProperty("k", Bytes("longer"), 6);
    chunk.SetProperty("k", Bytes(withZeros), 4);
    chunk.SetData("k", Bytes("longer"), 6);
    chunk.SetData("k", Bytes(withZeros), 4);
    EXPECT_EQ(chunk.GetProperty("k"), withZeros);
    EXPECT_EQ(chunk.GetData("k"), withZeros);
    EXPECT_EQ(chunk.GetPropertySize() + chunk.GetDataSize(), 2U);
}

TEST_F(DataChunkTest, ThePointerFormsOfTheGettersHandOutTheStoredBytes) {
    chunk.SetProperty("p", withZeros);
    chunk.SetData("d", withZeros);
    long size = 0;
    EXPECT_EQ(chunk.GetProperty("p...", 1, size), Bytes(chunk.GetProperty("p")));
    EXPECT_EQ(size, 4);
    size = 0;
    EXPECT_EQ(chunk.GetData("d...", 1, size), Bytes(chunk.GetData("d")));
    EXPECT_EQ(size, 4);
}

TEST_F(DataChunkTest, ThePointerFormOfGetDataReturnsNullForAMissingKey) {
    long size = 77;
    EXPECT_EQ(chunk.GetData("k", 1, size), nullptr);
    EXPECT_EQ(size, 77);
}

TEST_F(DataChunkTest, KeysMatchWithAllTheirBytes) {
    chunk.SetData(std::string("k\0a", 3), "1");
    chunk.SetData(std::string("k\0b", 3), "2");
    chunk.SetData("k", "3");
    const DataChunk& read = chunk;
    EXPECT_EQ(read.GetData(std::string("k\0b", 3)), "2");
    EXPECT_EQ(read.GetData("k"), "3");
    EXPECT_EQ(chunk.GetDataSize(), 3U);
}

TEST_F(DataChunkTest, TheFirstOfSeveralMatchesWins) {
    for (const char* value : {"first", "second"}) {
        auto& item = *message.mutable_data()->add_items();
        item.set_key("k");
        item.set_value(value);
    }
    Reference();
    const DataChunk& read = chunk;
    EXPECT_EQ(read.GetData("k"), "first");
    chunk.SetData("k", "new");
    EXPECT_THAT(Items(message.data()), ElementsAre("k=new", "k=second"));
}

TEST_F(DataChunkTest, AnEmptyKeyIsLookedUpLikeAnyOther) {
    EXPECT_EQ(RefusalOf([&] { chunk.GetProperty(""); }), "DataChunk: property key  not found");
    auto& item = *message.mutable_properties()->add_items();
    item.set_key("");
    item.set_value("v");
    Reference();
    EXPECT_EQ(chunk.GetProperty(""), "v");
}

TEST_F(DataChunkTest, GetDataNamesAMissingKey) {
    const DataChunk& read = chunk;
    EXPECT_EQ(RefusalOf([&] { read.GetData("image"); }), "DataChunk: data key image not found");
}

TEST_F(DataChunkTest, TheNonConstGetDataRefusesAnEmptyKey) {
    EXPECT_EQ(RefusalOf([&] { chunk.GetData(""); }), "GetData: key cannot be empty");
}

TEST_F(DataChunkTest, TheNonConstGetDataHandsOutAnExistingBlockToBeFilledInPlace) {
    chunk.SetData("k", "old");
    chunk.GetData("k") += " and new";
    const DataChunk& read = chunk;
    EXPECT_EQ(read.GetData("k"), "old and new");
}

TEST_F(DataChunkTest, ThePointerFormOfSetPropertyRefusesASizeOfZeroAndAnEmptyKeyAlike) {
    const std::string text = "SetProperty: key cannot be empty nor propSize 0";
    EXPECT_EQ(RefusalOf([&] { chunk.SetProperty("k", nullptr, 0); }), text);
    EXPECT_EQ(RefusalOf([&] { chunk.SetProperty("", Bytes("v"), 1); }), text);
}

TEST_F(DataChunkTest, ThePointerFormOfSetDataRefusesAnEmptyKey) {
    EXPECT_EQ(RefusalOf([&] { chunk.SetData("", Bytes("v"), 1); }),
              "SetData: key cannot be empty nor dataSize 0");
}

TEST_F(DataChunkTest, TheStringFormOfSetDataRefusesAnEmptyKeyOrValue) {
    const std::string text = "SetData: key and value cannot be empty: ";
    EXPECT_EQ(RefusalOf([&] { chunk.SetData("", "v"); }), text + " v");
    EXPECT_EQ(RefusalOf([&] { chunk.SetData("k", ""); }), text + "k ");
    EXPECT_EQ(RefusalOf([&] { chunk.SetData("", ""); }), text + " ");
}

TEST_F(DataChunkTest, CopyMetadataMakesWhatTheSourceLacksPresentAndEmpty) {
    Reference();
    chunk.SetTimePoint(TimePoint::Nanoseconds(5));
    chunk.SetProperty("q", "2");
    chunk.CopyMetadata(DataChunk());
    EXPECT_TRUE(message.has_timecode() && message.has_duration() && message.has_properties());
    EXPECT_FALSE(message.has_data());
    EXPECT_EQ(chunk.GetTimePoint(), TimePoint());
    EXPECT_EQ(chunk.GetPropertySize(), 0U);
}

TEST_F(DataChunkTest, CopyMetadataCopiesTimePointAndDuration) {
    DataChunk source;
    source.SetTimePoint(TimePoint::Nanoseconds(5));
    source.SetDuration(TimePoint::Nanoseconds(6));
    chunk.CopyMetadata(source);
    EXPECT_EQ(chunk.GetTimePoint(), TimePoint::Nanoseconds(5));
    EXPECT_EQ(chunk.GetDuration(), TimePoint::Nanoseconds(6));
}

TEST_F(DataChunkTest, IsEqualIgnoresTheOrderOfTheItems) {
    DataChunk other;
    chunk.SetProperty("p", "1");
    chunk.SetProperty("q", "2");
    chunk.SetData("d", "3");
    other.SetProperty("q", "2");
    other.SetProperty("p", "1");
    other.SetData("d", "3");
    EXPECT_EQ(Compare(chunk, other), std::pair(true, std::string()));
}

TEST_F(DataChunkTest, IsEqualComparesTimePointDurationAndEveryValue) {
    chunk.SetTimePoint(TimePoint::Nanoseconds(1));
    chunk.SetDuration(TimePoint::Nanoseconds(2));
    chunk.SetProperty("p", "1");
    chunk.SetData("d", "3");
    const auto unequalAfter = [this](auto change) {
        DataChunk other(chunk);
        change(other);
        return Compare(chunk, other) == std::pair(false, std::string());
    };
    EXPECT_TRUE(unequalAfter([](DataChunk& c) { c.SetTimePoint(TimePoint::Nanoseconds(9)); }));
    EXPECT_TRUE(unequalAfter([](DataChunk& c) { c.SetDuration(TimePoint::Nanoseconds(9)); }));
    EXPECT_TRUE(unequalAfter([](DataChunk& c) { c.SetProperty("p", "2"); }));
    EXPECT_TRUE(unequalAfter([](DataChunk& c) { c.SetProperty("p", "10"); }));
    EXPECT_TRUE(unequalAfter([](DataChunk& c) { c.SetData("d", "4"); }));
    EXPECT_TRUE(unequalAfter([](DataChunk& c) { c.SetProperty("q", "1"); }));
    EXPECT_TRUE(unequalAfter([](DataChunk& c) { c.SetData("e", "1"); }));
    EXPECT_FALSE(unequalAfter([](DataChunk&) {}));
}

TEST_F(DataChunkTest, IsEqualFlushesTheLineThatItPrints) {
    DataChunk other;
    chunk.SetProperty("a", "v");
    other.SetProperty("b", "v");
    const Tests::FlushedOutput output;
    EXPECT_FALSE(chunk.IsEqual(other));
    EXPECT_EQ(output.Get(), "DataChunk IsEqual error: DataChunk: property key a not found\n");
}

TEST_F(DataChunkTest, IsEqualPrintsTheFirstInOrderOfTheKeysThatTheOtherChunkLacks) {
    DataChunk other;
    for (const char* key : {"c", "b", "a"}) {
        chunk.SetProperty(key, "v");
        other.SetProperty(std::string("other ") + key, "v");
    }
    other.SetProperty("other a", "differs");
    const std::string line = "DataChunk IsEqual error: DataChunk: property key a not found\n";
    EXPECT_EQ(Compare(chunk, other), std::pair(false, line));
}

TEST_F(DataChunkTest, IsEqualSaysNothingOfKeysWhenSomethingBeforeThemDiffers) {
    DataChunk other;
    chunk.SetProperty("a", "v");
    other.SetProperty("b", "v");
    other.SetProperty("c", "v");
    EXPECT_EQ(Compare(chunk, other), std::pair(false, std::string())) << "the number of entries";
    chunk.SetProperty("d", "v");
    other.SetDuration(TimePoint::Nanoseconds(1));
    EXPECT_EQ(Compare(chunk, other), std::pair(false, std::string())) << "the duration";
}

TEST_F(DataChunkTest, AChunkWithADuplicatedDataBlockIsNotEqualToItsCopyAndPrintsNothing) {
    for (const char* key : {"b", "a", "b"}) {
        auto& item = *message.mutable_data()->add_items();
        item.set_key(key);
        item.set_value("v");
    }
    Converter::CopyFrom(chunk, message);
    EXPECT_THAT(chunk.GetDataKeys(), ElementsAre("a", "b"));
    EXPECT_EQ(chunk.GetDataSize(), 3U);
    EXPECT_EQ(Compare(chunk, DataChunk(chunk)), std::pair(false, std::string()));
}

TEST_F(DataChunkTest, IsEqualPrintsTheDataKeyThatTheOtherChunkLacks) {
    DataChunk other;
    chunk.SetData("image", "v");
    other.SetData("sound", "v");
    const std::string line = "DataChunk IsEqual error: DataChunk: data key image not found\n";
    EXPECT_EQ(Compare(chunk, other), std::pair(false, line));
}

TEST_F(DataChunkTest, ToStringOfAnEmptyChunkNamesNothing) {
    EXPECT_EQ(chunk.ToString(), "Tc: 0.000000000\nDur: 0.000000000\nNb props: 0\nNb data: 0\n");
}

}  // namespace
}  // namespace Brantel::ProtocolX
