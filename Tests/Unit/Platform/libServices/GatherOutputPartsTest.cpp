#include "Support/SocketPair.h"

#include <libServices/GatherOutput.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace Brantel::Services {
namespace {

class GatherOutputPartsTest : public testing::Test {
  protected:
    // Copies the bytes into the next block and gives the rest of it back.
    void Copy(const std::string& bytes) {
        void* block = nullptr;
        int size = 0;
        ASSERT_TRUE(output.Next(&block, &size));
        std::copy(bytes.begin(), bytes.end(), static_cast<char*>(block));
        output.BackUp(size - static_cast<int>(bytes.size()));
    }
    bool Refer(const std::string& bytes) {
        return output.WriteAliasedRaw(bytes.data(), static_cast<int>(bytes.size()));
    }
    // Sends, and what the peer got.
    std::string Sent() {
        EXPECT_EQ(output.Flush(), 0);
        ends.far.FinishWriting();
        ends.near.Close();
        return ends.far.Read(1'000'000);
    }

    Tests::SocketPair ends;
    TransferPace pace;
    std::array<unsigned char, 4 * GatherOutput::blockSize> scratch{'h', 'e', 'a', 'd'};
    GatherOutput output{ends.near.Get(), SendParts, pace, scratch.data(), scratch.size(), 4};
};

TEST_F(GatherOutputPartsTest, CopiedAndReferencedBytesLeaveInTheirOrder) {
    const std::string large(5000, 'l');
    Copy("first");
    EXPECT_TRUE(Refer(large));
    Copy("last");
    EXPECT_EQ(output.ByteCount(), 5009);
    EXPECT_EQ(Sent(), "headfirst" + large + "last");
}

TEST_F(GatherOutputPartsTest, ABlockThatIsGivenBackWholeLeavesNothing) {
    const std::string large(5000, 'l');
    EXPECT_TRUE(Refer(large));
    Copy("");
    EXPECT_EQ(output.ByteCount(), 5000);
    EXPECT_EQ(Sent(), "head" + large);
}

TEST_F(GatherOutputPartsTest, NothingReferencedIsNoPart) {
    EXPECT_TRUE(Refer(""));
    EXPECT_EQ(output.ByteCount(), 0);
    EXPECT_EQ(Sent(), "head");
}

TEST_F(GatherOutputPartsTest, MorePartsThanItHoldsAreSentOnTheWay) {
    std::vector<std::string> parts;
    std::string all = "head";
    for (int i = 0; i < 200; ++i) {
        parts.push_back("part " + std::to_string(i) + std::string(100, '.'));
        all += parts.back();
    }
    for (const std::string& part : parts) {
        EXPECT_TRUE(Refer(part));
    }
    EXPECT_EQ(Sent(), all);
}

// The head and 63 more: the next block finds no place for its part.
TEST_F(GatherOutputPartsTest, ABlockBehindAFullListOfPartsIsSentToo) {
    const std::vector<std::string> parts(63, std::string(100, '.'));
    std::string all = "head";
    for (const std::string& part : parts) {
        EXPECT_TRUE(Refer(part));
        all += part;
    }
    Copy("behind");
    EXPECT_EQ(Sent(), all + "behind");
}

TEST_F(GatherOutputPartsTest, AfterAFailedSendNothingIsTakenAnyMore) {
    const std::vector<std::string> parts(63, std::string(100, '.'));
    ends.far.Close();
    for (const std::string& part : parts) {
        EXPECT_TRUE(Refer(part));
    }
    void* block = nullptr;
    int size = 0;
    EXPECT_FALSE(output.Next(&block, &size));
    EXPECT_EQ(output.Error(), EPIPE);
    EXPECT_FALSE(Refer("more"));
    EXPECT_EQ(output.Flush(), EPIPE);
}

}  // namespace
}  // namespace Brantel::Services
