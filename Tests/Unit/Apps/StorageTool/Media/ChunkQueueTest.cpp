#include <libProtocolX/DataChunk.h>
#include <libTime/TimePoint.h>

#include <gtest/gtest.h>

#include <StorageTool/Media/ChunkQueue.h>

#include <exception>
#include <memory>
#include <stdexcept>
#include <thread>

namespace Brantel::Tool {
namespace {

using Time::TimePoint;

class ChunkQueueTest : public testing::TestWithParam<ChunkQueue::Taking> {
  protected:
    static ChunkQueue::Item MakeItem(long number, std::size_t bytes) {
        ChunkQueue::Item item{std::make_unique<ProtocolX::DataChunk>(), bytes};
        item.chunk->SetTimePoint(TimePoint::Nanoseconds(number));
        return item;
    }
    long Take() {
        ChunkQueue::Item item;
        return queue.Pop(item) ? item.chunk->GetTimePoint().ToNanoseconds() : -1;
    }
    // As many as wait in the queue without anybody who takes them.
    void Fill() {
        for (long number = 0; number < 4; ++number) {
            ASSERT_TRUE(queue.Push(MakeItem(number, ChunkQueue::mostBytes / 4)));
        }
    }

    ChunkQueue queue{GetParam()};
};

TEST_P(ChunkQueueTest, ChunksComeOutInOrderUntilTheEnd) {
    constexpr long count = 5'000;
    std::thread filler([&] {
        for (long number = 0; number < count; ++number) {
            EXPECT_TRUE(queue.Push(MakeItem(number, static_cast<std::size_t>(number))));
        }
        queue.End();
    });
    for (long number = 0; number < count; ++number) {
        ASSERT_EQ(Take(), number);
    }
    EXPECT_EQ(Take(), -1);
    filler.join();
}

TEST_P(ChunkQueueTest, AFewChunksComeOutBeforeTheEndIsKnown) {
    queue.Push(MakeItem(7, 1));
    EXPECT_EQ(Take(), 7);
}

TEST_P(ChunkQueueTest, WhoFillsWaitsForRoom) {
    Fill();
    bool pushed = false;
    std::thread filler([&] { pushed = queue.Push(MakeItem(4, 1)); });
    EXPECT_EQ(Take(), 0);
    filler.join();
    EXPECT_TRUE(pushed);
}

TEST_P(ChunkQueueTest, AChunkOverTheLimitFindsRoomInAnEmptyQueue) {
    EXPECT_TRUE(queue.Push(MakeItem(1, 10 * ChunkQueue::mostBytes)));
    EXPECT_EQ(Take(), 1);
    EXPECT_TRUE(queue.Push(MakeItem(2, 10 * ChunkQueue::mostBytes)));
    EXPECT_EQ(Take(), 2);
}

TEST_P(ChunkQueueTest, WhoFillsIsToldThatNobodyTakesAnyMore) {
    Fill();
    std::thread filler([&] { EXPECT_FALSE(queue.Push(MakeItem(4, 1))); });
    queue.Leave();
    filler.join();
}

TEST_P(ChunkQueueTest, AFailureComesOutBehindTheChunksBeforeIt) {
    queue.Push(MakeItem(1, 1));
    queue.End(std::make_exception_ptr(std::runtime_error("damaged")));
    EXPECT_EQ(Take(), 1);
    EXPECT_THROW(Take(), std::runtime_error);
    EXPECT_EQ(Take(), -1);
}

TEST_P(ChunkQueueTest, WhatWasGivenBackIsUsedAgain) {
    queue.Push({queue.Spare(), 1});
    ChunkQueue::Item item;
    ASSERT_TRUE(queue.Pop(item));
    const ProtocolX::DataChunk* const chunk = item.chunk.get();
    queue.GiveBack(std::move(item));
    EXPECT_EQ(queue.Spare().get(), chunk);
    EXPECT_NE(queue.Spare(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Takings, ChunkQueueTest,
                         testing::Values(ChunkQueue::Taking::AtOnce, ChunkQueue::Taking::Together));

}  // namespace
}  // namespace Brantel::Tool
