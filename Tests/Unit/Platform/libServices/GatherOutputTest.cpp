#include <libServices/GatherOutput.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Services {
namespace {

using testing::ElementsAre;

iovec Part(std::string_view bytes) {
    return {const_cast<char*>(bytes.data()), bytes.size()};
}

// Bytes that begin `ahead` bytes before a cache line.
class Payload {
  public:
    Payload(std::size_t size, std::size_t ahead, char first) : memory(size + 2 * cacheLineSize, 0) {
        const auto base = reinterpret_cast<std::uintptr_t>(memory.data());
        const std::size_t toLine = (cacheLineSize - base % cacheLineSize) % cacheLineSize;
        bytes = {memory.data() + toLine + cacheLineSize - ahead, size};
        for (std::size_t i = 0; i < memory.size(); ++i) {
            memory[i] = static_cast<char>(first + static_cast<char>(i % 31));
        }
    }
    Payload(const Payload&) = delete;
    Payload& operator=(const Payload&) = delete;

    std::string_view Bytes() const { return bytes; }

  private:
    std::string memory;
    std::string_view bytes;
};

// A pair whose sends stay apart, so that the other end sees what left together.
class SendAlignedTest : public testing::Test {
  protected:
    SendAlignedTest() {
        EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data()));
        const int room = 4 << 20;
        ::setsockopt(ends[0], SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof(room));
    }
    ~SendAlignedTest() override {
        ::close(ends[0]);
        ::close(ends[1]);
    }

    // What left, send by send.
    std::vector<std::string> Send(std::vector<iovec> parts) {
        EXPECT_EQ(0, SendAligned(ends[0], parts.data(), parts.size(), pace));
        ::shutdown(ends[0], SHUT_WR);
        std::vector<std::string> sends;
        std::string record(1 << 20, 0);
        for (ssize_t size = 0; (size = ::recv(ends[1], record.data(), record.size(), 0)) > 0;) {
            sends.push_back(record.substr(0, static_cast<std::size_t>(size)));
        }
        return sends;
    }

    std::array<int, 2> ends{};
    TransferPace pace;
};

TEST_F(SendAlignedTest, SmallPartsLeaveInOneSend) {
    EXPECT_THAT(Send({Part("head"), Part("body"), Part("end")}), ElementsAre("headbodyend"));
}

TEST_F(SendAlignedTest, ALargePartBeginsASendAtItsFirstWholeCacheLine) {
    const Payload large(alignedPartSize, 5, 'a');
    const std::string body(large.Bytes());
    EXPECT_THAT(Send({Part("head"), Part(large.Bytes()), Part("end")}),
                ElementsAre("head" + body.substr(0, 5), body.substr(5) + "end"));
}

TEST_F(SendAlignedTest, ALargePartAtACacheLineIsNotCut) {
    const Payload large(alignedPartSize, 0, 'a');
    EXPECT_THAT(Send({Part("head"), Part(large.Bytes())}),
                ElementsAre("head", std::string(large.Bytes())));
}

TEST_F(SendAlignedTest, ALargePartAloneAtACacheLineLeavesInOneSend) {
    const Payload large(alignedPartSize, 0, 'a');
    EXPECT_THAT(Send({Part(large.Bytes())}), ElementsAre(std::string(large.Bytes())));
}

TEST_F(SendAlignedTest, EveryLargePartBeginsASendOfItsOwn) {
    const Payload first(alignedPartSize, 63, 'a');
    const Payload second(alignedPartSize + 17, 1, 'k');
    const std::string one(first.Bytes());
    const std::string two(second.Bytes());
    EXPECT_THAT(Send({Part(first.Bytes()), Part("between"), Part(second.Bytes())}),
                ElementsAre(one.substr(0, 63), one.substr(63) + "between" + two.substr(0, 1),
                            two.substr(1)));
}

TEST_F(SendAlignedTest, APartJustBelowTheSizeIsNotLarge) {
    const Payload nearly(alignedPartSize - 1, 5, 'a');
    EXPECT_THAT(Send({Part("head"), Part(nearly.Bytes())}),
                ElementsAre("head" + std::string(nearly.Bytes())));
}

TEST_F(SendAlignedTest, AnErrorOfTheFirstSendIsTheResult) {
    const Payload large(alignedPartSize, 5, 'a');
    ::close(ends[1]);
    std::vector<iovec> parts{Part("head"), Part(large.Bytes())};
    EXPECT_EQ(EPIPE, SendAligned(ends[0], parts.data(), parts.size(), pace));
}

}  // namespace
}  // namespace Brantel::Services
