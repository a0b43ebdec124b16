#include <gtest/gtest.h>

#include <StorageServer/OperationMetrics.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace Brantel::Server {
namespace {

using Outcome = OperationRecord::Outcome;
using Kind = OperationRecord::Kind;

class OperationMetricsTest : public testing::Test {
  protected:
    void Call(std::string_view operation, Outcome outcome = Outcome::Done,
              std::chrono::nanoseconds duration = std::chrono::microseconds(1),
              Kind kind = Kind::Query, std::uint64_t bytes = 0) {
        OperationRecord record;
        record.operation = operation;
        record.outcome = outcome;
        record.duration = duration;
        record.kind = kind;
        record.bytes = bytes;
        metrics.OnOperation(record);
    }

    OperationMetrics metrics;
};

TEST_F(OperationMetricsTest, NothingHasOccurredAtTheBeginning) {
    EXPECT_TRUE(metrics.Get().lines.empty());
    EXPECT_EQ(metrics.Get().bytesIn, 0U);
}

TEST_F(OperationMetricsTest, CallsAreCountedByOperationAndOutcome) {
    Call("GetChunk");
    Call("GetChunk");
    Call("GetChunk", Outcome::Failed);
    Call("Append");
    const auto lines = metrics.Get().lines;
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].operation, "Append");
    EXPECT_EQ(lines[1].operation, "GetChunk");
    EXPECT_EQ(lines[1].outcome, Outcome::Done);
    EXPECT_EQ(lines[1].nanoseconds.GetTotal(), 2U);
    EXPECT_EQ(lines[2].outcome, Outcome::Failed);
    EXPECT_EQ(lines[2].nanoseconds.GetTotal(), 1U);
}

TEST_F(OperationMetricsTest, ATimeOnABoundIsBelowIt) {
    Call("Wait", Outcome::Done, std::chrono::microseconds(10));
    Call("Wait", Outcome::Done, std::chrono::microseconds(10) + std::chrono::nanoseconds(1));
    Call("Wait", Outcome::Done, std::chrono::hours(1));
    const auto times = metrics.Get().lines.at(0).nanoseconds;
    EXPECT_EQ(times.counts.front(), 1U);
    EXPECT_EQ(times.counts.at(1), 1U);
    EXPECT_EQ(times.counts.back(), 1U);
    EXPECT_EQ(times.sum, 20'001U + 3'600'000'000'000U);
}

TEST_F(OperationMetricsTest, WhatIsAppendedComesInAndWhatIsReadGoesOut) {
    Call("Append", Outcome::Done, {}, Kind::Append, 100);
    Call("GetChunk", Outcome::Done, {}, Kind::Read, 30);
    Call("GetNextChunk", Outcome::Done, {}, Kind::Read, 3);
    Call("Append", Outcome::Failed, {}, Kind::Append, 1000);
    EXPECT_EQ(metrics.Get().bytesIn, 100U);
    EXPECT_EQ(metrics.Get().bytesOut, 33U);
}

TEST_F(OperationMetricsTest, WhatRolesRefuseIsSummedUp) {
    Call("ClearTrack", Outcome::Denied);
    Call("Append", Outcome::Denied);
    Call("GetWorkerInfos", Outcome::Limited);
    EXPECT_EQ(metrics.Get().denied, 2U);
}

TEST_F(OperationMetricsTest, TooManyNamesAreCountedTogether) {
    std::vector<std::string> names;
    for (std::size_t index = 0; index < OperationMetrics::operationLimit + 5; ++index) {
        names.push_back("Operation" + std::to_string(index));
    }
    for (const std::string& name : names) {
        Call(name);
    }
    const auto lines = metrics.Get().lines;
    ASSERT_EQ(lines.size(), OperationMetrics::operationLimit + 1);
    EXPECT_EQ(lines.back().operation, "other");
    EXPECT_EQ(lines.back().nanoseconds.GetTotal(), 5U);
}

TEST_F(OperationMetricsTest, NoCallOfSeveralThreadsIsLost) {
    constexpr int threads = 4;
    constexpr int calls = 2000;
    std::vector<std::thread> callers;
    for (int thread = 0; thread < threads; ++thread) {
        callers.emplace_back([this] {
            for (int call = 0; call < calls; ++call) {
                Call(call % 2 == 0 ? "GetChunk" : "Append");
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    const auto lines = metrics.Get().lines;
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].nanoseconds.GetTotal() + lines[1].nanoseconds.GetTotal(),
              static_cast<std::uint64_t>(threads) * calls);
}

}  // namespace
}  // namespace Brantel::Server
