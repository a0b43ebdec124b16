// What a checked read does when the system fails as no test can make it fail.
#include "Support/RecordFile.h"
#include "Support/ScriptedCalls.h"

#include <libProtocolX/DataChunk.h>

#include <gtest/gtest.h>

#include <string>

namespace Brantel::ProtocolX {
namespace {

using Tests::Fails;
using Tests::Passes;
using Tests::Returns;
using Tests::ScriptedCall;
using Tests::SystemCall;

// A record whose last value is longer than what is read ahead, in a file.
class DataChunkCheckedSystemTest : public testing::Test {
  protected:
    static DataChunk Sample() {
        DataChunk sample;
        sample.SetProperty("codec", "jpeg");
        sample.SetData("image", std::string(10'000, 'x'));
        return sample;
    }
    static std::string RecordOf(const DataChunk& chunk) {
        std::string record(chunk.GetSizeOnFile(), '\0');
        chunk.Write(reinterpret_cast<unsigned char*>(record.data()));
        return record;
    }

    // The record is whole up to here, and nothing in it is wrong.
    void ExpectFailure(const std::string& why) {
        EXPECT_EQ(chunk.TryReadFrom(file.Get(), &reason), 0U);
        EXPECT_EQ(reason, "Chunk record: at offset 0: " + why);
        EXPECT_TRUE(chunk.IsEqual(DataChunk()));
        EXPECT_EQ(file.Position(), 0);
    }

    const Tests::RecordFile file{RecordOf(Sample())};
    DataChunk chunk;
    std::string reason;
};

TEST_F(DataChunkCheckedSystemTest, AnInterruptedReadIsNoFailure) {
    const ScriptedCall pread(SystemCall::Pread64, {Fails(EINTR), Passes(), Fails(EINTR)});
    EXPECT_NE(chunk.TryReadFrom(file.Get(), &reason), 0U);
    EXPECT_TRUE(chunk.IsEqual(Sample()));
    EXPECT_EQ(pread.Left(), 0U);
}

TEST_F(DataChunkCheckedSystemTest, AReadThatFailsInTheLastValueIsReported) {
    const ScriptedCall pread(SystemCall::Pread64, {Passes(), Fails(EIO)});
    ExpectFailure("reading at offset 4096 failed: Input/output error");
}

TEST_F(DataChunkCheckedSystemTest, AFileThatIsCutInTheLastValueMeanwhileIsReported) {
    const ScriptedCall pread(SystemCall::Pread64, {Passes(), Returns(0)});
    ExpectFailure("the file was cut at offset 4096 while it was read");
}

TEST_F(DataChunkCheckedSystemTest, AReadThatFailsInTheHeaderIsReported) {
    const ScriptedCall pread(SystemCall::Pread64, {Fails(EIO)});
    ExpectFailure("reading at offset 0 failed: Input/output error");
}

}  // namespace
}  // namespace Brantel::ProtocolX
