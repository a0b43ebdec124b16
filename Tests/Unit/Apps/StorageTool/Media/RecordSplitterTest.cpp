#include "SplitFixture.h"

#include <libProtocolX/DataChunk.h>

#include <gtest/gtest.h>

#include <StorageTool/Media/RecordSplitter.h>

#include <string>
#include <vector>

namespace Brantel::Tool {
namespace {

std::string Record(const std::string& bytes) {
    ProtocolX::DataChunk chunk;
    chunk.SetData("block", bytes);
    std::string record(chunk.GetSizeOnFile(), '\0');
    chunk.Write(reinterpret_cast<unsigned char*>(record.data()));
    return record;
}

TEST(RecordSplitterTest, EachRecordIsAPieceInAnyParts) {
    for (unsigned seed = 1; seed < 50; ++seed) {
        RecordSplitter splitter;
        const Split split = FeedInParts(splitter, Record("one") + Record("number two"), 30, seed);
        ASSERT_EQ(split.pieces, (std::vector<std::string>{Record("one"), Record("number two")}));
        ASSERT_EQ(split.error, "");
    }
}

TEST(RecordSplitterTest, AStreamThatEndsWithinARecordSaysWhere) {
    const std::string record = Record("one");
    for (std::size_t size = 1; size < record.size(); ++size) {
        RecordSplitter splitter;
        ASSERT_EQ(FeedAtOnce(splitter, record.substr(0, size)).error,
                  "The stream ends at byte " + std::to_string(size) +
                      ", within the chunk record that began at byte 0");
    }
}

TEST(RecordSplitterTest, ASizeThatCannotBeIsRefusedBeforeItsBytesCome) {
    const std::string record = Record("one");
    RecordSplitter small;
    EXPECT_EQ(FeedAtOnce(small, record + std::string(8, '\0')).error,
              "The chunk record at byte " + std::to_string(record.size()) +
                  " says it has 0 bytes; it must have 48 to 134217728");
    RecordSplitter large(record.size() - 1);
    EXPECT_EQ(FeedAtOnce(large, record.substr(0, 8)).error,
              "The chunk record at byte 0 says it has " + std::to_string(record.size()) +
                  " bytes; it must have 48 to " + std::to_string(record.size() - 1));
}

}  // namespace
}  // namespace Brantel::Tool
