#include "Support/RecordFile.h"
#include "Support/Refusal.h"

#include <libProtocolX/Converter.h>
#include <libProtocolX/DataChunk.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>

namespace Brantel::ProtocolX {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Tests::RecordBytes;
using Tests::RecordFile;
using Tests::RefusalOf;
using Time::TimePoint;

constexpr unsigned long emptySize = 48;
const std::string emptyAt = "basic_string::at: __n (which is 0) >= this->size() (which is 0)";

class DataChunkRecordTest : public testing::Test {
  protected:
    static std::string Record(const DataChunk& chunk) {
        std::string record(chunk.GetSizeOnFile(), '\xEE');
        EXPECT_EQ(chunk.Write(reinterpret_cast<unsigned char*>(record.data())), record.size());
        return record;
    }

    static unsigned long Read(DataChunk& chunk, const std::string& record) {
        return chunk.ReadFrom(reinterpret_cast<const unsigned char*>(record.data()));
    }

    // Time point 1, duration 2, one property p, data blocks a, b and c.
    static DataChunk Sample() {
        DataChunk sample;
        sample.SetTimePoint(TimePoint::Nanoseconds(1));
        sample.SetDuration(TimePoint::Nanoseconds(2));
        sample.SetProperty("p", "property");
        sample.SetData("a", "first");
        sample.SetData("b", std::string("\0second\0", 8));
        sample.SetData("c", "third");
        return sample;
    }

    // Up to and without the property count.
    static RecordBytes Head(std::uint64_t size) {
        return RecordBytes().Number(size).Number(1).Number(11).Number(22);
    }

    Protocol::Chunk message;
    DataChunk chunk;
};

TEST_F(DataChunkRecordTest, AnEmptyChunkIsTheHeaderTwoZeroTimePointsAndTwoZeroCounts) {
    EXPECT_EQ(chunk.GetSizeOnFile(), 32 + 2UL * TimePoint().GetSerializedSize());
    const std::string record = Record(chunk);
    EXPECT_EQ(
        record,
        RecordBytes().Number(emptySize).Number(1).Number(0).Number(0).Number(0).Number(0).Get());
    DataChunk read;
    read.SetProperty("old", "value");
    EXPECT_EQ(Read(read, record), emptySize);
    EXPECT_TRUE(read.IsEqual(chunk));
}

TEST_F(DataChunkRecordTest, APropertyOfTwoAndThreeBytesAddsTwentyOne) {
    chunk.SetProperty("ke", "val");
    EXPECT_EQ(chunk.GetSizeOnFile(), emptySize + 21);
    EXPECT_EQ(Record(chunk).size(), emptySize + 21);
}

TEST_F(DataChunkRecordTest, ABufferOfVersionTwoGivesZeroAndAnEmptyChunk) {
    chunk = Sample();
    EXPECT_EQ(Read(chunk, RecordBytes().Number(emptySize).Number(2).Get()), 0U);
    EXPECT_EQ(chunk.ToString(), DataChunk().ToString());
}

TEST_F(DataChunkRecordTest, AfterASuccessTheDescriptorStandsExactlyTheRecordFurther) {
    const std::string record = Record(Sample());
    const RecordFile file("..." + record + "more");
    file.Seek(3);
    EXPECT_EQ(chunk.ReadFrom(file.Get()), record.size());
    EXPECT_EQ(file.Position(), static_cast<off64_t>(3 + record.size()));
    EXPECT_TRUE(chunk.IsEqual(Sample()));
}

TEST_F(DataChunkRecordTest, AfterAnotherVersionTheDescriptorStandsWhereItStood) {
    const RecordFile file("..." + RecordBytes().Number(emptySize).Number(2).Get() + "more");
    file.Seek(3);
    chunk = Sample();
    EXPECT_EQ(chunk.ReadFrom(file.Get()), 0U);
    EXPECT_EQ(file.Position(), 3);
    EXPECT_EQ(chunk.ToString(), DataChunk().ToString());
}

TEST_F(DataChunkRecordTest, ReadingWithTheKeyBKeepsOnlyBAndStandsAtTheNextRecord) {
    const std::string record = Record(Sample());
    const RecordFile file(record + record);
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"b"}), record.size());
    EXPECT_THAT(chunk.GetDataKeys(), ElementsAre("b"));
    EXPECT_EQ(chunk.GetData("b"), std::string("\0second\0", 8));
    EXPECT_EQ(chunk.GetProperty("p"), "property");
    EXPECT_EQ(file.Position(), static_cast<off64_t>(record.size()));
}

TEST_F(DataChunkRecordTest, ReadingWithAnEmptySetKeepsAllThree) {
    const RecordFile file(Record(Sample()));
    EXPECT_NE(chunk.ReadFrom(file.Get(), {}), 0U);
    EXPECT_THAT(chunk.GetDataKeys(), ElementsAre("a", "b", "c"));
}

TEST_F(DataChunkRecordTest, ReadingWithKeysThatTheRecordLacksKeepsNoBlockButTheProperties) {
    const std::string record = Record(Sample());
    const RecordFile file(record);
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"x"}), record.size());
    EXPECT_THAT(chunk.GetDataKeys(), IsEmpty());
    EXPECT_THAT(chunk.GetPropertyKeys(), ElementsAre("p"));
}

TEST_F(DataChunkRecordTest, TwoEntriesOfTheSameKeyReadBackAsTwoItemsAndMakeTheChunkUnequal) {
    const std::string record =
        Head(emptySize + 2 * 18).Number(2).Entry("k", "1").Entry("k", "2").Number(0).Get();
    const RecordFile file(record);
    EXPECT_EQ(chunk.ReadFrom(file.Get()), record.size());
    EXPECT_EQ(chunk.GetPropertySize(), 2U);
    EXPECT_FALSE(chunk.IsEqual(chunk));
    DataChunk buffered;
    EXPECT_EQ(Read(buffered, record), record.size());
    EXPECT_EQ(buffered.GetPropertySize(), 2U);
}

TEST_F(DataChunkRecordTest, WritingAnEmptyDataValueThrows) {
    chunk.GetData("k");
    std::string buffer(chunk.GetSizeOnFile(), '\xEE');
    EXPECT_EQ(RefusalOf<std::out_of_range>(
                  [&] { chunk.Write(reinterpret_cast<unsigned char*>(buffer.data())); }),
              emptyAt);
}

TEST_F(DataChunkRecordTest, CountsOfZeroReadBackWithBothListsPresentButEmpty) {
    const std::string record = Record(chunk);
    for (const bool fromFile : {false, true}) {
        Protocol::Chunk read;
        DataChunk referencing;
        Converter::ReferenceFrom(referencing, read);
        const RecordFile file(record);
        EXPECT_EQ(fromFile ? referencing.ReadFrom(file.Get()) : Read(referencing, record),
                  emptySize);
        EXPECT_TRUE(read.has_properties() && read.has_data());
        EXPECT_EQ(read.properties().items_size() + read.data().items_size(), 0);
    }
}

TEST_F(DataChunkRecordTest, WriteLaysOutEveryFieldByteForByte) {
    DataChunk small;
    small.SetTimePoint(TimePoint::Nanoseconds(0x0102030405060708));
    small.SetDuration(TimePoint::Nanoseconds(-1));
    small.SetProperty("p", "vv");
    small.SetData("dd", "w");
    const std::string expected(
        "\x56\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0"
        "\x08\x07\x06\x05\x04\x03\x02\x01\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"
        "\x01\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0p\x02\0\0\0\0\0\0\0vv"
        "\x01\0\0\0\0\0\0\0\x02\0\0\0\0\0\0\0"
        "dd\x01\0\0\0\0\0\0\0w",
        86);
    EXPECT_EQ(Record(small), expected);
}

TEST_F(DataChunkRecordTest, WriteReadsAndWritesTheReferencedMessage) {
    Converter::ReferenceFrom(chunk, message);
    EXPECT_NE(Read(chunk, Record(Sample())), 0U);
    EXPECT_EQ(message.data().items_size(), 3);
    EXPECT_EQ(Record(chunk), Record(Sample()));
}

TEST_F(DataChunkRecordTest, ReadFromABufferDoesNotLookAtTheRecordSize) {
    std::string record = Record(Sample());
    record[0] = 0;
    EXPECT_EQ(Read(chunk, record), record.size());
    EXPECT_TRUE(chunk.IsEqual(Sample()));
}

TEST_F(DataChunkRecordTest, WriteOfAnEmptyValueLeavesTheRecordUpToItsZeroLength) {
    auto& item = *message.mutable_properties()->add_items();
    item.set_key("k");
    item.set_value("");
    Converter::ReferenceFrom(chunk, message);
    std::string buffer(chunk.GetSizeOnFile(), '\xEE');
    EXPECT_EQ(RefusalOf<std::out_of_range>(
                  [&] { chunk.Write(reinterpret_cast<unsigned char*>(buffer.data())); }),
              emptyAt);
    const std::string written = RecordBytes()
                                    .Number(buffer.size())
                                    .Number(1)
                                    .Number(0)
                                    .Number(0)
                                    .Number(1)
                                    .Number(1)
                                    .Text("k")
                                    .Number(0)
                                    .Get();
    EXPECT_EQ(buffer, written + std::string(buffer.size() - written.size(), '\xEE'));
}

TEST_F(DataChunkRecordTest, WriteOfAnEmptyKeyLeavesTheRecordUpToItsZeroLength) {
    auto& item = *message.mutable_data()->add_items();
    item.set_key("");
    item.set_value("v");
    Converter::ReferenceFrom(chunk, message);
    std::string buffer(chunk.GetSizeOnFile(), '\xEE');
    EXPECT_EQ(RefusalOf<std::out_of_range>(
                  [&] { chunk.Write(reinterpret_cast<unsigned char*>(buffer.data())); }),
              emptyAt);
    const std::string written = RecordBytes()
                                    .Number(buffer.size())
                                    .Number(1)
                                    .Number(0)
                                    .Number(0)
                                    .Number(0)
                                    .Number(1)
                                    .Number(0)
                                    .Get();
    EXPECT_EQ(buffer, written + std::string(buffer.size() - written.size(), '\xEE'));
}

// A record whose second property has an empty key, or an empty value.
class DataChunkEmptyEntryTest : public DataChunkRecordTest,
                                public testing::WithParamInterface<const char*> {
  protected:
    static std::string Damaged() {
        RecordBytes record = Head(1000).Number(2).Entry("k", "v");
        if (std::string(GetParam()) == "key") {
            return record.Number(0).Number(0).Get();
        }
        return record.Number(1).Text("l").Number(0).Number(0).Get();
    }
};

TEST_P(DataChunkEmptyEntryTest, InABufferThrowsAndKeepsTheEntriesBefore) {
    EXPECT_EQ(RefusalOf<std::out_of_range>([&] { Read(chunk, Damaged()); }), emptyAt);
    EXPECT_THAT(chunk.GetPropertyKeys(), ElementsAre("k"));
    EXPECT_EQ(chunk.GetTimePoint(), TimePoint::Nanoseconds(11));
    EXPECT_EQ(chunk.GetDuration(), TimePoint::Nanoseconds(22));
}

TEST_P(DataChunkEmptyEntryTest, InAFileThrowsKeepsTheEntriesBeforeAndDoesNotGoBack) {
    const RecordFile file(Damaged());
    EXPECT_EQ(RefusalOf<std::out_of_range>([&] { chunk.ReadFrom(file.Get()); }), emptyAt);
    EXPECT_THAT(chunk.GetPropertyKeys(), ElementsAre("k"));
    EXPECT_GT(file.Position(), 40);
}

INSTANTIATE_TEST_SUITE_P(Both, DataChunkEmptyEntryTest, testing::Values("key", "value"),
                         [](const auto& test) { return std::string(test.param); });

TEST_F(DataChunkRecordTest, AnEmptyKeptValueInAFilteredReadThrows) {
    const RecordFile file(
        Head(1000).Number(0).Number(2).Entry("a", "1").Number(1).Text("b").Number(0).Get());
    EXPECT_EQ(RefusalOf<std::out_of_range>([&] {
                  chunk.ReadFrom(file.Get(), {"a", "b"});
              }),
              emptyAt);
    const DataChunk& read = chunk;
    EXPECT_EQ(read.GetData("a"), "1");
}

TEST_F(DataChunkRecordTest, AnEmptyKeyInAFilteredReadThrows) {
    const RecordFile file(Head(1000).Number(0).Number(1).Number(0).Get());
    EXPECT_EQ(RefusalOf<std::out_of_range>([&] { chunk.ReadFrom(file.Get(), {"a"}); }), emptyAt);
}

TEST_F(DataChunkRecordTest, AnEmptySkippedValueInAFilteredReadIsNoFailure) {
    const std::string record =
        Head(emptySize + 17).Number(0).Number(1).Number(1).Text("a").Number(0).Get();
    const RecordFile file(record);
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"b"}), record.size());
}

TEST_F(DataChunkRecordTest, AWrongRecordSizeGivesZeroGoesBackAndKeepsWhatWasRead) {
    std::string record = Record(Sample());
    ++record[0];
    for (const std::set<std::string>& keys : {std::set<std::string>(), {"b"}}) {
        const RecordFile file("..." + record + "more");
        file.Seek(3);
        EXPECT_EQ(chunk.ReadFrom(file.Get(), keys), 0U);
        EXPECT_EQ(file.Position(), 3);
        EXPECT_EQ(chunk.GetDataSize(), keys.empty() ? 3U : 1U);
    }
}

TEST_F(DataChunkRecordTest, AtTheEndOfAFileGivesZeroAndStaysThere) {
    const RecordFile file("abc");
    file.Seek(3);
    chunk = Sample();
    EXPECT_EQ(chunk.ReadFrom(file.Get()), 0U);
    EXPECT_EQ(file.Position(), 3);
    EXPECT_EQ(chunk.ToString(), DataChunk().ToString());
}

TEST_F(DataChunkRecordTest, BehindTheEndOfAFileGivesZeroAndStaysThere) {
    const RecordFile file("abc");
    file.Seek(100);
    EXPECT_EQ(chunk.ReadFrom(file.Get()), 0U);
    EXPECT_EQ(file.Position(), 100);
}

TEST_F(DataChunkRecordTest, AHeaderCutShortAnywhereGivesZeroAndGoesBackByWhatWasRead) {
    const std::string record = Record(Sample());
    Converter::ReferenceFrom(chunk, message);
    for (std::size_t length = 0; length < 16; ++length) {
        const RecordFile file("..." + record.substr(0, length));
        file.Seek(3);
        EXPECT_EQ(chunk.ReadFrom(file.Get()), 0U) << length;
        EXPECT_EQ(file.Position(), 3) << length;
        EXPECT_EQ(message.ByteSizeLong(), 0U) << length;
    }
}

TEST_F(DataChunkRecordTest, AFileThatEndsBetweenEntriesGivesZeroAndGoesBack) {
    const std::string record = Record(Sample());
    for (const std::size_t length : {16, 24, 32}) {  // before the time points and the first count
        const RecordFile file("..." + record.substr(0, length));
        file.Seek(3);
        EXPECT_EQ(chunk.ReadFrom(file.Get()), 0U) << length;
        EXPECT_EQ(file.Position(), 3) << length;
    }
}

TEST_F(DataChunkRecordTest, AFileThatEndsBeforeALengthThrowsAtOnce) {
    const RecordFile file(Head(1000).Number(1000000000).Get());
    EXPECT_EQ(RefusalOf<std::out_of_range>([&] { chunk.ReadFrom(file.Get()); }), emptyAt);
    EXPECT_EQ(chunk.GetPropertySize(), 0U);
}

TEST_F(DataChunkRecordTest, AFileThatEndsInAValueGivesZerosInItsRestAndGoesBack) {
    const std::string record = Record(Sample());
    const RecordFile file(record.substr(0, record.size() - 2));
    EXPECT_EQ(chunk.ReadFrom(file.Get()), 0U);
    EXPECT_EQ(file.Position(), 0);
    EXPECT_EQ(chunk.GetData("c"), std::string("thi\0\0", 5));
}

TEST_F(DataChunkRecordTest, AFilteredReadCountsAKeptValueByItsDeclaredLength) {
    const std::string record = Record(Sample());
    const RecordFile file(record.substr(0, record.size() - 2));
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"c"}), record.size());
    EXPECT_EQ(chunk.GetData("c"), std::string("thi\0\0", 5));
    EXPECT_EQ(file.Position(), static_cast<off64_t>(record.size() - 2));
}

TEST_F(DataChunkRecordTest, AFilteredReadThatDeclaresMoreThanTheFileHasDoesNotGoBackTooFar) {
    const std::string record = Head(999).Number(0).Number(1).Number(1).Text("k").Number(500).Get();
    const RecordFile file("..." + record);
    file.Seek(3);
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"k"}), 0U);
    EXPECT_EQ(file.Position(), 3);
}

TEST_F(DataChunkRecordTest, AFilteredReadOfAHugeSkippedLengthGoesBack) {
    const std::string record = Head(999)
                                   .Number(0)
                                   .Number(1)
                                   .Number(1)
                                   .Text("k")
                                   .Number(std::numeric_limits<std::uint64_t>::max() - 7)
                                   .Get();
    const RecordFile file("..." + record);
    file.Seek(3);
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"x"}), 0U);
    EXPECT_EQ(file.Position(), 3);
}

// Taken for a distance, this length leads to before the file: nothing is skipped then.
TEST_F(DataChunkRecordTest, AFilteredReadOfALengthThatNoFileHasGoesBack) {
    const std::string record =
        Head(999).Number(0).Number(1).Number(1).Text("k").Number(std::uint64_t{1} << 63).Get();
    const RecordFile file("..." + record);
    file.Seek(3);
    EXPECT_EQ(chunk.ReadFrom(file.Get(), {"x"}), 0U);
    EXPECT_EQ(file.Position(), 3);
}

TEST_F(DataChunkRecordTest, ADescriptorThatCantBeReadGivesZero) {
    EXPECT_EQ(chunk.ReadFrom(-1), 0U);
    EXPECT_EQ(chunk.ReadFrom(-1, {"k"}), 0U);
}

TEST_F(DataChunkRecordTest, ReadsThatFailDoNotMoveTheDescriptor) {
    const RecordFile file(Record(Sample()));
    const std::string name = "/proc/self/fd/" + std::to_string(file.Get());
    const int writable = open(name.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(lseek64(writable, 3, SEEK_SET), 3);
    EXPECT_EQ(chunk.ReadFrom(writable), 0U);
    EXPECT_EQ(lseek64(writable, 0, SEEK_CUR), 3);
    close(writable);
}

TEST_F(DataChunkRecordTest, AHostileLengthMakesTheStringThrow) {
    const std::string record =
        Head(1000).Number(1).Number(std::numeric_limits<std::uint64_t>::max()).Get();
    EXPECT_THROW(Read(chunk, record), std::length_error);
    const RecordFile file(record);
    EXPECT_THROW(chunk.ReadFrom(file.Get()), std::length_error);
}

TEST_F(DataChunkRecordTest, RecordsThatFollowEachOtherAreReadOneAfterTheOther) {
    std::string all;
    for (long count = 0; count < 5; ++count) {
        DataChunk one = Sample();
        one.SetTimePoint(TimePoint::Nanoseconds(count));
        all += Record(one);
    }
    const RecordFile file(all);
    for (long count = 0; count < 5; ++count) {
        EXPECT_NE(chunk.ReadFrom(file.Get()), 0U);
        EXPECT_EQ(chunk.GetTimePoint(), TimePoint::Nanoseconds(count));
    }
    EXPECT_EQ(chunk.ReadFrom(file.Get()), 0U);
    EXPECT_EQ(file.Position(), static_cast<off64_t>(all.size()));
}

TEST_F(DataChunkRecordTest, ARecordThatIsWholeInAPipeIsReadFromIt) {
    const std::string record = Record(Sample());
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(write(ends[1], record.data(), record.size()), static_cast<ssize_t>(record.size()));
    EXPECT_EQ(chunk.ReadFrom(ends[0]), record.size());
    EXPECT_TRUE(chunk.IsEqual(Sample()));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(DataChunkRecordTest, ALongRecordComesBackByteForByte) {
    std::string value(3'000'000, '\0');
    std::generate(value.begin(), value.end(),
                  [next = 0U]() mutable { return static_cast<char>(next = next * 31 + 7); });
    chunk.SetData("image", value);
    const std::string record = Record(chunk);
    DataChunk buffered;
    EXPECT_EQ(Read(buffered, record), record.size());
    EXPECT_EQ(buffered.GetData("image"), value);
    const RecordFile file(record);
    DataChunk filed;
    EXPECT_EQ(filed.ReadFrom(file.Get()), record.size());
    EXPECT_EQ(filed.GetData("image"), value);
}

}  // namespace
}  // namespace Brantel::ProtocolX
