#include "Support/BlockedThread.h"
#include "Support/InterruptingSignal.h"

#include <libTime/TimePoint.h>

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <thread>

namespace Brantel::Time {
namespace {

// The whole arithmetic is usable in constant expressions.
static_assert(TimePoint().ToNanoseconds() == 0);
static_assert(TimePoint::Nanoseconds(5) - TimePoint::Nanoseconds(7) == TimePoint::Nanoseconds(-2));
static_assert(TimePoint::Nanoseconds(-1) < TimePoint());

TEST(TimePointTest, HighestTimePointIsTheLargestSigned64BitCount) {
    EXPECT_EQ(TimePoint::GetHighestTimePoint().ToNanoseconds(), INT64_MAX);
}

TEST(TimePointTest, FromNanosecondsSetsTheValue) {
    TimePoint timePoint = TimePoint::Nanoseconds(3);
    timePoint.FromNanoseconds(-9);
    EXPECT_EQ(timePoint.ToNanoseconds(), -9);
}

TEST(TimePointTest, ComparesBySignedCount) {
    const TimePoint low = TimePoint::Nanoseconds(INT64_MIN);
    const TimePoint high = TimePoint::Nanoseconds(INT64_MAX);
    EXPECT_TRUE(low < high);
    EXPECT_TRUE(high > low);
    EXPECT_TRUE(low <= low);
    EXPECT_TRUE(high >= high);
    EXPECT_TRUE(low != high);
    EXPECT_TRUE(low == TimePoint::Nanoseconds(INT64_MIN));
}

TEST(TimePointTest, ArithmeticWrapsAndNeverSaturates) {
    EXPECT_EQ(TimePoint::GetHighestTimePoint() + TimePoint::Nanoseconds(1),
              TimePoint::Nanoseconds(INT64_MIN));
    EXPECT_EQ(TimePoint::Nanoseconds(INT64_MIN) - TimePoint::Nanoseconds(1),
              TimePoint::GetHighestTimePoint());
    TimePoint sum = TimePoint::Nanoseconds(40);
    sum += TimePoint::Nanoseconds(2);
    EXPECT_EQ(sum, TimePoint::Nanoseconds(42));
    sum -= TimePoint::Nanoseconds(43);
    EXPECT_EQ(sum, TimePoint::Nanoseconds(-1));
}

TEST(TimePointTest, ToStringIsSecondsAPointAndNineDigits) {
    EXPECT_EQ(TimePoint().ToString(), "0.000000000");
    EXPECT_EQ(TimePoint::Nanoseconds(-1).ToString(), "-0.000000001");
    EXPECT_EQ(TimePoint::Nanoseconds(12'500'000'000).ToString(), "12.500000000");
    EXPECT_EQ(TimePoint::GetHighestTimePoint().ToString(), "9223372036.854775807");
    EXPECT_EQ(TimePoint::Nanoseconds(INT64_MIN).ToString(), "-9223372036.854775808");
}

TEST(TimePointTest, SerializesTheRawCountInEightBytes) {
    std::array<unsigned char, 8> bytes{};
    EXPECT_EQ(TimePoint::Nanoseconds(-2).GetSerializedSize(), 8U);
    EXPECT_EQ(TimePoint::Nanoseconds(0x0102030405060708).Serialize(bytes.data()), 8U);
    EXPECT_EQ(bytes, (std::array<unsigned char, 8>{8, 7, 6, 5, 4, 3, 2, 1}));
}

TEST(TimePointTest, DeserializesWhatWasSerialized) {
    for (const std::int64_t count : {INT64_MIN, std::int64_t{-1}, std::int64_t{0}, INT64_MAX}) {
        std::array<unsigned char, 8> bytes{};
        TimePoint::Nanoseconds(count).Serialize(bytes.data());
        TimePoint read;
        EXPECT_EQ(read.Deserialize(bytes.data()), 8U);
        EXPECT_EQ(read.ToNanoseconds(), count);
    }
}

class TimePointDescriptorTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(::pipe(ends.data()), 0); }
    void TearDown() override {
        ::close(ends[0]);
        CloseWritingEnd();
    }
    void CloseWritingEnd() {
        if (ends[1] >= 0) {
            ::close(ends[1]);
            ends[1] = -1;
        }
    }
    std::array<int, 2> ends{};
};

TEST_F(TimePointDescriptorTest, DeserializeReadsEightBytesFromTheDescriptor) {
    const std::array<unsigned char, 9> bytes{0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x55};
    ASSERT_EQ(::write(ends[1], bytes.data(), bytes.size()), 9);
    TimePoint read;
    EXPECT_EQ(read.Deserialize(ends[0]), 8);
    EXPECT_EQ(read.ToNanoseconds(), -2);
    unsigned char next = 0;
    EXPECT_EQ(::read(ends[0], &next, 1), 1);
    EXPECT_EQ(next, 0x55);
}

TEST_F(TimePointDescriptorTest, DeserializeAtTheEndReturnsWhatCameAndZeroesTheRest) {
    ASSERT_EQ(::write(ends[1], "\x07\x01", 2), 2);
    CloseWritingEnd();
    TimePoint read = TimePoint::GetHighestTimePoint();
    EXPECT_EQ(read.Deserialize(ends[0]), 2);
    EXPECT_EQ(read.ToNanoseconds(), 0x0107);
    EXPECT_EQ(read.Deserialize(ends[0]), 0);
    EXPECT_EQ(read.ToNanoseconds(), 0);
}

TEST_F(TimePointDescriptorTest, ASignalDoesNotEndADeserialize) {
    const Tests::InterruptingSignal interrupting(SIGUSR1);
    const pthread_t reader = ::pthread_self();
    const long id = Tests::ThisThread();
    std::thread writing([&] {
        Tests::InterruptingSignal::Send(reader, id, SYS_read);
        Tests::WaitUntilBlockedIn(id, SYS_read);
        EXPECT_EQ(::write(ends[1], "\x07\0\0\0\0\0\0\0", 8), 8);
    });
    TimePoint read;
    EXPECT_EQ(read.Deserialize(ends[0]), 8);
    writing.join();
    EXPECT_EQ(read.ToNanoseconds(), 7);
}

TEST(TimePointTest, DeserializeFromABadDescriptorReturnsMinusOne) {
    TimePoint read;
    EXPECT_EQ(read.Deserialize(-1), -1);
}

}  // namespace
}  // namespace Brantel::Time
