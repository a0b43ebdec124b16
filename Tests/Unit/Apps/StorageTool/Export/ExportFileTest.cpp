// Export files written, cut off, damaged, continued and read again.

#include "Support/TemporaryFolder.h"

#include <libProtocolX/DataChunk.h>
#include <libTime/TimePoint.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <StorageTool/Export/DataFile.h>
#include <StorageTool/Export/ExportDamage.h>
#include <StorageTool/Export/ExportReader.h>
#include <StorageTool/Export/ExportWriter.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace Brantel::Tool {
namespace {

using ProtocolX::DataChunk;
using testing::HasSubstr;
using Tests::TemporaryFolder;
using Time::TimePoint;

constexpr std::int64_t track = 7;

class ExportFileTest : public testing::Test {
  protected:
    static DataChunk MakeChunk(std::int64_t time) {
        DataChunk chunk;
        chunk.SetTimePoint(TimePoint::Nanoseconds(time));
        chunk.SetDuration(TimePoint::Nanoseconds(1));
        chunk.SetProperty("number", std::to_string(time));
        chunk.SetData("block", std::string(static_cast<std::size_t>(50 + time), 'x'));
        return chunk;
    }
    ExportWriter Begin() const {
        ExportFormat::Header header;
        header.track = track;
        header.capacity = 4096;
        header.properties = {{"camera", "north"}};
        return {path, header};
    }
    void WriteFile(const std::vector<std::int64_t>& times) const {
        ExportWriter writer = Begin();
        AppendAll(writer, times);
        writer.Finish();
    }
    static void AppendAll(ExportWriter& writer, const std::vector<std::int64_t>& times) {
        for (const std::int64_t time : times) {
            ASSERT_EQ(writer.Append(MakeChunk(time)), "");
        }
    }
    // The time points, whose chunks are compared; `said` is the error that ended the reading.
    std::vector<std::int64_t> ReadTimes() {
        std::vector<std::int64_t> times;
        said.clear();
        wasCut = false;
        try {
            ExportReader reader(DataFile::OpenToRead(path));
            for (DataChunk chunk; reader.Next(chunk);) {
                times.push_back(chunk.GetTimePoint().ToNanoseconds());
                EXPECT_TRUE(chunk.IsEqual(MakeChunk(times.back())));
            }
        } catch (const ExportDamage& damage) {
            said = damage.what();
            wasCut = damage.IsCut();
        } catch (const std::runtime_error& error) {
            said = error.what();
        }
        return times;
    }
    std::string Bytes() const {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }
    void SetBytes(const std::string& bytes) const {
        std::ofstream(path, std::ios::binary) << bytes;
    }

    TemporaryFolder folder;
    const std::string path = folder.File("track.brantel");
    std::string said;
    bool wasCut = false;
};

TEST_F(ExportFileTest, WhatWasWrittenIsReadBack) {
    WriteFile({10, 20, 30});
    EXPECT_EQ(ReadTimes(), (std::vector<std::int64_t>{10, 20, 30}));
    EXPECT_EQ(said, "");
    const ExportReader reader(DataFile::OpenToRead(path));
    EXPECT_EQ(reader.Header().track, track);
    EXPECT_EQ(reader.Header().properties.at("camera"), "north");
}

TEST_F(ExportFileTest, AFileWithoutChunksIsWhole) {
    WriteFile({});
    EXPECT_TRUE(ReadTimes().empty());
    EXPECT_EQ(said, "");
}

TEST_F(ExportFileTest, EveryFlippedBitIsNoticed) {
    WriteFile({1, 2});
    const std::string whole = Bytes();
    for (std::size_t place = 0; place < whole.size(); ++place) {
        std::string bytes = whole;
        bytes[place] = static_cast<char>(bytes[place] ^ (1 << (place % 8)));
        SetBytes(bytes);
        ReadTimes();
        ASSERT_NE(said, "") << place;
    }
}

TEST_F(ExportFileTest, AFileCutAnywhereKeepsItsWholeRecordsAndIsContinued) {
    WriteFile({1, 2, 3});
    const std::string whole = Bytes();
    const std::size_t headerSize = ExportReader(DataFile::OpenToRead(path)).Place();
    for (std::size_t size = headerSize; size < whole.size(); size += 7) {
        SetBytes(whole.substr(0, size));
        const std::vector<std::int64_t> kept = ReadTimes();
        ASSERT_TRUE(wasCut) << size << said;
        ExportWriter writer = ExportWriter::Continue(path, track);
        ASSERT_EQ(writer.Count(), kept.size());
        ASSERT_EQ(writer.Last(), kept.empty() ? -1 : kept.back());
        for (std::int64_t time = writer.Last() < 0 ? 1 : writer.Last() + 1; time <= 3; ++time) {
            ASSERT_EQ(writer.Append(MakeChunk(time)), "");
        }
        writer.Finish();
        ASSERT_EQ(Bytes(), whole) << size;
    }
}

TEST_F(ExportFileTest, AFinishedFileIsContinuedAsIfWrittenAtOnce) {
    WriteFile({1, 2, 3, 4});
    const std::string atOnce = Bytes();
    std::filesystem::remove(path);
    WriteFile({1, 2});
    ExportWriter writer = ExportWriter::Continue(path, track);
    AppendAll(writer, {3, 4});
    writer.Finish();
    EXPECT_EQ(Bytes(), atOnce);
}

TEST_F(ExportFileTest, ADamagedFileIsNotContinuedNorChanged) {
    WriteFile({1, 2, 3});
    std::string bytes = Bytes();
    bytes[bytes.size() / 2] ^= 1;
    SetBytes(bytes);
    EXPECT_THROW(ExportWriter::Continue(path, track), ExportDamage);
    EXPECT_EQ(Bytes(), bytes);
}

TEST_F(ExportFileTest, AnotherTracksFileIsNotContinued) {
    WriteFile({1});
    const std::string before = Bytes();
    try {
        ExportWriter::Continue(path, 8);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), path + ": is the export of track 7, not of track 8");
    }
    EXPECT_EQ(Bytes(), before);
}

TEST_F(ExportFileTest, AnExistingFileIsNotOverwritten) {
    SetBytes("precious");
    EXPECT_THROW(Begin(), std::system_error);
    EXPECT_EQ(Bytes(), "precious");
}

TEST_F(ExportFileTest, AFileIsWrittenByOneAtATime) {
    const ExportWriter writer = Begin();
    EXPECT_THROW(ExportWriter::Continue(path, track), std::runtime_error);
}

TEST_F(ExportFileTest, AChunkThatIsNoRecordIsLeftOutWithTheReason) {
    ExportWriter writer = Begin();
    DataChunk empty = MakeChunk(1);
    empty.GetData("nothing");
    EXPECT_THAT(writer.Append(empty), HasSubstr("data block 1: the value is empty"));
    EXPECT_THAT(writer.Append(MakeChunk(2)), "");
    EXPECT_EQ(writer.Append(MakeChunk(2)), "Time point 2 is not after the one before, 2");
    writer.Finish();
    EXPECT_EQ(ReadTimes(), (std::vector<std::int64_t>{2}));
}

TEST_F(ExportFileTest, ARecordLargerThanEveryBufferIsReadBack) {
    ExportWriter writer = Begin();
    DataChunk large = MakeChunk(1);
    large.SetData("block", std::string(3 << 20, 'y'));
    ASSERT_EQ(writer.Append(large), "");
    ASSERT_EQ(writer.Append(MakeChunk(2)), "");
    writer.Finish();
    ExportReader reader(DataFile::OpenToRead(path));
    DataChunk chunk;
    ASSERT_TRUE(reader.Next(chunk));
    EXPECT_TRUE(chunk.IsEqual(large));
    ASSERT_TRUE(reader.Next(chunk));
    EXPECT_FALSE(reader.Next(chunk));
}

TEST_F(ExportFileTest, BehindDamageTheNextRecordIsFound) {
    WriteFile({1, 2, 3});
    ExportReader whole(DataFile::OpenToRead(path));
    for (DataChunk chunk; whole.Next(chunk);) {
    }
    const auto entries = whole.Entries();
    std::string bytes = Bytes();
    bytes[entries[1].place + 40] ^= 1;
    SetBytes(bytes);
    ExportReader reader(DataFile::OpenToRead(path));
    DataChunk chunk;
    ASSERT_TRUE(reader.Next(chunk));
    EXPECT_THROW(reader.Next(chunk), ExportDamage);
    EXPECT_EQ(reader.Place(), entries[1].place);
    EXPECT_EQ(reader.FindRecord(reader.Place() + 1), entries[2].place);
    EXPECT_EQ(reader.FindRecord(entries[2].place + 1), reader.Size());
}

TEST_F(ExportFileTest, WhatIsNoExportFileIsRefused) {
    SetBytes("something else, long enough for the beginning of a header");
    ReadTimes();
    EXPECT_EQ(said, path + ": is no export file: it does not begin with BRTRKEXP");
    EXPECT_THROW(DataFile::OpenToRead(folder.Path()), std::runtime_error);
    EXPECT_THROW(DataFile::OpenToRead("/dev/zero"), std::runtime_error);
}

}  // namespace
}  // namespace Brantel::Tool
