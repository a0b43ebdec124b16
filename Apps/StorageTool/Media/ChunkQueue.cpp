#include "Media/ChunkQueue.h"

#include <chrono>
#include <utility>

namespace Brantel::Tool {

using ProtocolX::DataChunk;

std::unique_ptr<DataChunk> ChunkQueue::Spare() {
    const std::lock_guard lock(mutex);
    if (spare.empty()) {
        return std::make_unique<DataChunk>();
    }
    // The one that was used last: its memory is the warmest.
    Item item = std::move(spare.back());
    spare.pop_back();
    spareBytes -= item.bytes;
    return std::move(item.chunk);
}

void ChunkQueue::GiveBack(Item item) {
    // As many as are on their way; more would keep memory from everybody else.
    constexpr std::size_t fewest = 2;
    const std::lock_guard lock(mutex);
    const bool fits = spare.size() < mostChunks && spareBytes + item.bytes <= 2 * mostBytes;
    if (fits || spare.size() < fewest) {
        spareBytes += item.bytes;
        spare.push_back(std::move(item));
    }
}

bool ChunkQueue::IsFull(std::size_t more) const {
    return !items.empty() && (items.size() >= mostChunks || bytes + more > mostBytes);
}

bool ChunkQueue::IsHalfFull() const {
    return items.size() >= mostChunks / 2 || bytes >= mostBytes / 2;
}

bool ChunkQueue::Push(Item item) {
    std::unique_lock lock(mutex);
    emptied.wait(lock, [&] { return left || !IsFull(item.bytes); });
    if (left) {
        return false;
    }
    const bool wasEmpty = items.empty();
    const bool wasHalfFull = IsHalfFull();
    bytes += item.bytes;
    items.push_back(std::move(item));
    const bool isWaitedFor = taking == Taking::AtOnce ? wasEmpty : !wasHalfFull && IsHalfFull();
    lock.unlock();
    if (isWaitedFor) {
        filled.notify_one();
    }
    return true;
}

void ChunkQueue::End(std::exception_ptr why) {
    const std::lock_guard lock(mutex);
    ended = true;
    failure = std::move(why);
    filled.notify_one();
}

bool ChunkQueue::Pop(Item& item) {
    if (taken.empty()) {
        TakeAll();
    }
    if (taken.empty()) {
        return false;
    }
    item = std::move(taken.front());
    taken.pop_front();
    return true;
}

void ChunkQueue::TakeAll() {
    constexpr std::chrono::milliseconds patience(5);
    std::unique_lock lock(mutex);
    if (taking == Taking::AtOnce) {
        filled.wait(lock, [this] { return ended || !items.empty(); });
    } else {
        while (!filled.wait_for(lock, patience, [this] { return ended || IsHalfFull(); }) &&
               items.empty()) {
        }
    }
    if (items.empty() && failure) {
        std::rethrow_exception(std::exchange(failure, {}));
    }
    taken.swap(items);
    bytes = 0;
    lock.unlock();
    emptied.notify_one();
}

void ChunkQueue::Leave() {
    const std::lock_guard lock(mutex);
    left = true;
    emptied.notify_one();
}

}  // namespace Brantel::Tool
