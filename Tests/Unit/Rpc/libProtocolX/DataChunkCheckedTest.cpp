#include "Support/RecordFile.h"

#include <libProtocolX/ChunkRecord.h>
#include <libProtocolX/Converter.h>
#include <libProtocolX/DataChunk.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

namespace Brantel::ProtocolX {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using Tests::RecordBytes;
using Tests::RecordFile;
using Time::TimePoint;

using Keys = std::set<std::string>;

unsigned char* Bytes(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

std::string Record(const DataChunk& chunk) {
    std::string record(chunk.GetSizeOnFile(), '\0');
    chunk.Write(Bytes(record));
    return record;
}

DataChunk Sample() {
    DataChunk sample;
    sample.SetTimePoint(TimePoint::Nanoseconds(-1));
    sample.SetDuration(TimePoint::Nanoseconds(2));
    sample.SetProperty("p", "property");
    sample.SetProperty("codec", "jpeg");
    sample.SetData("image", std::string("\0first\0", 7));
    sample.SetData("thumbnail", "second");
    return sample;
}

DataChunk Before() {
    DataChunk before;
    before.SetTimePoint(TimePoint::Nanoseconds(77));
    before.SetProperty("old", "property");
    before.SetData("old", "block");
    return before;
}

// Where the bytes come from; what is promised holds for both alike.
enum class Source { Buffer, File };

class DataChunkCheckedTest : public testing::TestWithParam<Source> {
  protected:
    static constexpr off64_t offset = 5;

    // Reads from a buffer of exactly these bytes, or from a file in which they follow others, and
    // checks what every failure leaves behind.
    unsigned long TryRead(const std::string& bytes, const Keys& keys = {}) {
        chunk = Before();
        const unsigned long size =
            GetParam() == Source::Buffer ? TryReadBuffer(bytes, keys) : TryReadFile(bytes, keys);
        EXPECT_EQ(size == 0, chunk.IsEqual(Before()));
        return size;
    }

    // The reason, without what says where it is.
    std::string ReasonFor(const std::string& bytes) {
        EXPECT_EQ(TryRead(bytes), 0U);
        const std::string where =
            GetParam() == Source::Buffer ? "Chunk record: " : "Chunk record: at offset 5: ";
        EXPECT_THAT(reason, StartsWith(where));
        return reason.substr(where.size());
    }

    static RecordBytes Head(std::uint64_t size) {
        return RecordBytes().Number(size).Number(1).Number(11).Number(22);
    }

    DataChunk chunk;
    std::string reason = "untouched";

  private:
    unsigned long TryReadBuffer(const std::string& bytes, const Keys& keys) {
        // A block of its own, so that a byte read too far is found.
        const std::vector<unsigned char> buffer(bytes.begin(), bytes.end());
        return chunk.TryReadFrom(buffer.data(), buffer.size(), keys, &reason);
    }

    unsigned long TryReadFile(const std::string& bytes, const Keys& keys) {
        const RecordFile file(std::string(offset, '.') + bytes);
        file.Seek(offset);
        const unsigned long size = chunk.TryReadFrom(file.Get(), keys, &reason);
        EXPECT_EQ(file.Position(), offset + static_cast<off64_t>(size));
        return size;
    }
};

TEST_P(DataChunkCheckedTest, ReadsWhatWriteWrote) {
    const std::string record = Record(Sample());
    EXPECT_EQ(TryRead(record), record.size());
    EXPECT_EQ(reason, "");
    EXPECT_TRUE(chunk.IsEqual(Sample()));
    EXPECT_EQ(Record(chunk), record);
}

TEST_P(DataChunkCheckedTest, LeavesWhatFollowsTheRecordAlone) {
    const std::string record = Record(Sample());
    EXPECT_EQ(TryRead(record + "anything"), record.size());
}

TEST_P(DataChunkCheckedTest, SaysNothingWhenThereIsNothing) {
    EXPECT_EQ(TryRead(""), 0U);
    EXPECT_EQ(reason, "");
}

TEST_P(DataChunkCheckedTest, RefusesARecordCutAtEveryByte) {
    const std::string record = Record(Sample());
    for (std::size_t length = 1; length < record.size(); ++length) {
        const std::string expected =
            length < 16 ? "the header needs 16 bytes, " + std::to_string(length) + " are left"
                        : "the record size is " + std::to_string(record.size()) + ", but only " +
                              std::to_string(length) + " bytes are left";
        EXPECT_EQ(ReasonFor(record.substr(0, length)), expected);
    }
}

// Cut at every byte, with a record size that fits the cut: the inner limits hold too.
TEST_P(DataChunkCheckedTest, RefusesARecordCutAtEveryByteThatClaimsToBeWhole) {
    const std::string record = Record(Sample());
    for (std::size_t length = 16; length < record.size(); ++length) {
        std::string cut = record.substr(0, length);
        cut[0] = static_cast<char>(length);
        EXPECT_NE(ReasonFor(cut), "") << length;
    }
}

TEST_P(DataChunkCheckedTest, RefusesARecordWithAnyLengthOrCountChanged) {
    const std::string record = Record(Sample());
    const std::uint64_t huge = std::numeric_limits<std::uint64_t>::max();
    const std::array<std::uint64_t, 8> wrong{0,        1000,     huge,          huge - 7,
                                             huge / 2, 1U << 31, huge / 18 + 1, 3};
    std::vector<std::size_t> fields{0, 8, 32, 40};
    for (const std::string before : {"p", "property", "codec", "jpeg", "image", "thumbnail"}) {
        fields.push_back(record.find(before) + before.size());
    }
    for (const std::size_t field : fields) {
        for (const std::uint64_t number : wrong) {
            std::string damaged = record;
            std::memcpy(damaged.data() + field, &number, sizeof(number));
            if (damaged != record) {
                EXPECT_NE(ReasonFor(damaged), "") << field << " " << number;
            }
        }
    }
}

// Whatever one damaged byte makes of a record, it is refused or it is a record.
TEST_P(DataChunkCheckedTest, SurvivesEveryDamagedByte) {
    const std::string record = Record(Sample());
    for (std::size_t at = 0; at < record.size(); ++at) {
        for (const int bits : {0x01, 0x80, 0xFF}) {
            std::string damaged = record;
            damaged[at] = static_cast<char>(damaged[at] ^ bits);
            const unsigned long size = TryRead(damaged);
            EXPECT_EQ(size == 0, !reason.empty());
            EXPECT_TRUE(size == 0 || Record(chunk) == damaged) << at;
        }
    }
}

TEST_P(DataChunkCheckedTest, NamesAnUnknownVersion) {
    EXPECT_EQ(ReasonFor(RecordBytes().Number(48).Number(2).Text(std::string(32, '\0')).Get()),
              "the version is 2, only 1 is known");
}

TEST_P(DataChunkCheckedTest, NamesARecordSizeBelowTheLeast) {
    EXPECT_EQ(ReasonFor(Head(47).Number(0).Number(0).Get()),
              "the record size is 47, below the least size of 48");
}

TEST_P(DataChunkCheckedTest, NamesARecordSizeOverTheLimit) {
    EXPECT_EQ(ReasonFor(Head(2147483648).Number(0).Number(0).Get()),
              "the record size is 2147483648, over the limit of 2147483647");
}

TEST_P(DataChunkCheckedTest, NamesARecordSizeOverWhatIsLeft) {
    EXPECT_EQ(ReasonFor(Head(49).Number(0).Number(0).Get()),
              "the record size is 49, but only 48 bytes are left");
}

TEST_P(DataChunkCheckedTest, NamesARecordSizeBeyondItsEntries) {
    EXPECT_EQ(ReasonFor(Head(50).Number(0).Number(0).Text("..").Get()),
              "the record size is 50, but its entries end at 48");
}

TEST_P(DataChunkCheckedTest, NamesACountThatCantFit) {
    EXPECT_EQ(ReasonFor(Head(66).Number(2).Entry("k", "v").Number(0).Get()),
              "the property count is 2, but the 26 bytes that are left of the record hold no more "
              "than 1");
    EXPECT_EQ(ReasonFor(Head(48).Number(0).Number(1).Get()),
              "the data block count is 1, but the 0 bytes that are left of the record hold no more "
              "than 0");
}

TEST_P(DataChunkCheckedTest, NamesAMissingCount) {
    EXPECT_EQ(ReasonFor(Head(60).Number(1).Entry("k", "vvv").Get()),
              "the data block count needs 8 bytes, 0 are left of the record");
}

TEST_P(DataChunkCheckedTest, NamesTheEntryWithAnEmptyKey) {
    EXPECT_EQ(ReasonFor(Head(83).Number(2).Entry("k", "v").Entry("", "v").Number(0).Get()),
              "property 1: the key is empty");
}

TEST_P(DataChunkCheckedTest, NamesTheEntryWithAnEmptyValue) {
    EXPECT_EQ(ReasonFor(Head(66).Number(0).Number(1).Entry("kk", "").Get()),
              "data block 0: the value is empty");
}

TEST_P(DataChunkCheckedTest, NamesALengthThatCantFit) {
    EXPECT_EQ(ReasonFor(Head(66).Number(0).Number(1).Number(11).Text("0123456789").Get()),
              "data block 0: the key length is 11, but only 10 bytes are left of the record");
    EXPECT_EQ(ReasonFor(Head(66).Number(0).Number(1).Number(1).Text("k").Number(2).Text("v").Get()),
              "data block 0: the value length is 2, but only 1 bytes are left of the record");
}

TEST_P(DataChunkCheckedTest, NamesALengthThatIsMissing) {
    EXPECT_EQ(ReasonFor(Head(66).Number(0).Number(1).Number(9).Text("012345678").Text(".").Get()),
              "data block 0: the value length needs 8 bytes, 1 are left of the record");
}

TEST_P(DataChunkCheckedTest, WorksOnTheReferencedMessageAndKeepsItOnFailure) {
    Protocol::Chunk message;
    DataChunk referencing;
    Converter::ReferenceFrom(referencing, message);
    const std::string record = Record(Sample());
    const RecordFile file(record);
    const auto* bytes = reinterpret_cast<const unsigned char*>(record.data());
    const auto read = [&](std::size_t size) {
        file.Resize(static_cast<off64_t>(size));
        file.Seek(0);
        return GetParam() == Source::Buffer ? referencing.TryReadFrom(bytes, size)
                                            : referencing.TryReadFrom(file.Get());
    };
    EXPECT_EQ(read(record.size()), record.size());
    EXPECT_EQ(message.data().items_size(), 2);
    EXPECT_EQ(read(record.size() - 1), 0U);
    EXPECT_EQ(message.data().items_size(), 2);
}

TEST_P(DataChunkCheckedTest, MarksBothListsPresent) {
    Protocol::Chunk message;
    DataChunk referencing;
    Converter::ReferenceFrom(referencing, message);
    const std::string record = Record(DataChunk());
    const RecordFile file(record);
    const auto* bytes = reinterpret_cast<const unsigned char*>(record.data());
    EXPECT_EQ(GetParam() == Source::Buffer ? referencing.TryReadFrom(bytes, record.size())
                                           : referencing.TryReadFrom(file.Get()),
              record.size());
    EXPECT_TRUE(message.has_timecode() && message.has_duration() && message.has_properties() &&
                message.has_data());
}

TEST_P(DataChunkCheckedTest, KeepsOnlyTheSelectedBlocks) {
    DataChunk large = Sample();
    large.SetData("long", std::string(10000, 'x'));
    large.SetData("last", "v");
    const std::string record = Record(large);
    EXPECT_EQ(TryRead(record + record, {"last", "thumbnail", "none"}), record.size());
    EXPECT_THAT(chunk.GetDataKeys(), ElementsAre("last", "thumbnail"));
    EXPECT_EQ(chunk.GetData("last"), "v");
    EXPECT_THAT(chunk.GetPropertyKeys(), ElementsAre("codec", "p"));
}

TEST_P(DataChunkCheckedTest, ABlockThatIsNotSelectedIsCheckedToo) {
    const std::string record =
        Head(66).Number(0).Number(1).Number(1).Text("k").Number(0).Text(".").Get();
    EXPECT_EQ(TryRead(record, {"other"}), 0U);
    EXPECT_THAT(reason, HasSubstr("data block 0: the value is empty"));
}

// Longer than what is read ahead of a file, with entries on both sides of every border.
TEST_P(DataChunkCheckedTest, ReadsValuesOfAllSizesByteForByte) {
    DataChunk large;
    for (const std::size_t size : {1, 4000, 4095, 4096, 4097, 9000, 1048576, 3}) {
        std::string value(size, '\0');
        std::generate(value.begin(), value.end(),
                      [next = size]() mutable { return static_cast<char>(next = next * 31 + 7); });
        large.SetData("block " + std::to_string(size), value);
    }
    const std::string record = Record(large);
    EXPECT_EQ(TryRead(record), record.size());
    EXPECT_EQ(Record(chunk), record);
}

INSTANTIATE_TEST_SUITE_P(Both, DataChunkCheckedTest, testing::Values(Source::Buffer, Source::File),
                         [](const auto& test) {
                             return test.param == Source::Buffer ? "Buffer" : "File";
                         });

class DataChunkCheckedFileTest : public testing::Test {
  protected:
    DataChunk chunk;
    std::string reason;
};

TEST_F(DataChunkCheckedFileTest, RecordsThatFollowEachOtherEndWithoutAReason) {
    const std::string record = Record(Sample());
    const RecordFile file(record + record + record);
    int count = 0;
    while (chunk.TryReadFrom(file.Get(), &reason) != 0) {
        ++count;
    }
    EXPECT_EQ(count, 3);
    EXPECT_EQ(reason, "");
}

TEST_F(DataChunkCheckedFileTest, BehindTheEndThereIsNothing) {
    const RecordFile file("abc");
    file.Seek(100);
    EXPECT_EQ(chunk.TryReadFrom(file.Get(), &reason), 0U);
    EXPECT_EQ(reason, "");
    EXPECT_EQ(file.Position(), 100);
}

TEST_F(DataChunkCheckedFileTest, AHugeSparseFileTakesNoMemory) {
    const RecordFile file(RecordBytes().Number(std::uint64_t{1} << 40).Number(1).Get());
    file.Resize(off64_t{1} << 40);
    EXPECT_EQ(chunk.TryReadFrom(file.Get(), &reason), 0U);
    EXPECT_EQ(reason,
              "Chunk record: at offset 0: the record size is 1099511627776, over the limit of "
              "2147483647");
}

TEST_F(DataChunkCheckedFileTest, RefusesAPipe) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    EXPECT_EQ(chunk.TryReadFrom(ends[0], &reason), 0U);
    EXPECT_EQ(reason, "Chunk record: descriptor " + std::to_string(ends[0]) +
                          " is not a regular file, nothing bounds what comes out of it");
    close(ends[0]);
    close(ends[1]);
}

TEST_F(DataChunkCheckedFileTest, RefusesADevice) {
    const int device = open("/dev/zero", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(chunk.TryReadFrom(device, &reason), 0U);
    EXPECT_THAT(reason, HasSubstr("is not a regular file"));
    close(device);
}

TEST_F(DataChunkCheckedFileTest, SaysWhatTheSystemSaysOfABadDescriptor) {
    EXPECT_EQ(chunk.TryReadFrom(-1, &reason), 0U);
    EXPECT_EQ(reason, "Chunk record: descriptor -1: Bad file descriptor");
}

TEST_F(DataChunkCheckedFileTest, SaysThatADescriptorHasNoPosition) {
    const RecordFile file(Record(Sample()));
    const std::string name = "/proc/self/fd/" + std::to_string(file.Get());
    const int path = open(name.c_str(), O_PATH | O_CLOEXEC);
    EXPECT_EQ(chunk.TryReadFrom(path, &reason), 0U);
    EXPECT_EQ(reason, "Chunk record: descriptor " + std::to_string(path) +
                          " has no position: Bad file descriptor");
    close(path);
}

TEST_F(DataChunkCheckedFileTest, SaysWhatTheSystemSaysOfAFailedRead) {
    const RecordFile file(Record(Sample()));
    const std::string name = "/proc/self/fd/" + std::to_string(file.Get());
    const int writable = open(name.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(chunk.TryReadFrom(writable, &reason), 0U);
    EXPECT_EQ(reason, "Chunk record: at offset 0: reading at offset 0 failed: Bad file descriptor");
    close(writable);
}

// The attributes of the system's devices are regular files that are shorter than their size says.
TEST_F(DataChunkCheckedFileTest, SaysThatAFileEndedBeforeItsSize) {
    const int attribute = open("/sys/devices/system/cpu/online", O_RDONLY | O_CLOEXEC);
    if (attribute < 0) {
        GTEST_SKIP() << "no attributes of devices here";
    }
    EXPECT_EQ(chunk.TryReadFrom(attribute, &reason), 0U);
    EXPECT_THAT(reason, HasSubstr("the file was cut at offset"));
    EXPECT_EQ(lseek64(attribute, 0, SEEK_CUR), 0);
    close(attribute);
}

class DataChunkCheckedWriteTest : public testing::Test {
  protected:
    unsigned long TryWrite(std::size_t capacity) {
        buffer.assign(capacity, '\xEE');
        return chunk.TryWrite(Bytes(buffer), capacity, &reason);
    }

    bool IsUntouched() const {
        return std::all_of(buffer.begin(), buffer.end(), [](char byte) { return byte == '\xEE'; });
    }

    DataChunk chunk = Sample();
    std::string buffer;
    std::string reason = "untouched";
};

TEST_F(DataChunkCheckedWriteTest, WritesWhatWriteWrites) {
    const std::string record = Record(chunk);
    EXPECT_EQ(TryWrite(record.size() + 3), record.size());
    EXPECT_EQ(buffer, record + "\xEE\xEE\xEE");
    EXPECT_EQ(reason, "");
    EXPECT_EQ(chunk.TryWrite(Bytes(buffer), record.size()), record.size());
}

TEST_F(DataChunkCheckedWriteTest, RefusesABufferThatIsOneByteTooSmall) {
    const unsigned long size = chunk.GetSizeOnFile();
    EXPECT_EQ(TryWrite(size - 1), 0U);
    EXPECT_EQ(reason, "Chunk record: the record size is " + std::to_string(size) +
                          ", but the buffer has room for " + std::to_string(size - 1));
    EXPECT_TRUE(IsUntouched());
    EXPECT_EQ(chunk.TryWrite(Bytes(buffer), size - 1), 0U);
}

TEST_F(DataChunkCheckedWriteTest, RefusesARecordOverTheLimitOfMessages) {
    EXPECT_EQ(ChunkRecord::WhyNotWritable(Protocol::Chunk(), 2147483647, 2147483648), "");
    EXPECT_EQ(ChunkRecord::WhyNotWritable(Protocol::Chunk(), 2147483648, 2147483648),
              "Chunk record: the record size is 2147483648, over the limit of 2147483647");
}

TEST_F(DataChunkCheckedWriteTest, NamesTheEntryWithAnEmptyValue) {
    chunk.GetData("empty");
    EXPECT_EQ(TryWrite(1000), 0U);
    EXPECT_EQ(reason, "Chunk record: data block 2: the value is empty");
    EXPECT_TRUE(IsUntouched());
}

TEST_F(DataChunkCheckedWriteTest, NamesTheEntryWithAnEmptyKey) {
    Protocol::Chunk message;
    auto& item = *message.mutable_properties()->add_items();
    item.set_key("");
    item.set_value("v");
    Converter::CopyFrom(chunk, message);
    EXPECT_EQ(TryWrite(1000), 0U);
    EXPECT_EQ(reason, "Chunk record: property 0: the key is empty");
    EXPECT_TRUE(IsUntouched());
}

}  // namespace
}  // namespace Brantel::ProtocolX
