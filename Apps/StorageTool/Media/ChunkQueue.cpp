#include "Media/ChunkQueue.h"

#include <utility>

namespace Brantel::Tool {

using ProtocolX::DataChunk;

std::unique_ptr<DataChunk> ChunkQueue::Spare() {
    const std::lock_guard lock(mutex);
    if (spare.empty()) {
        return std::make_unique<DataChunk>();
    }
    std::unique_ptr<DataChunk> chunk = std::move(spare.back());
    spare.pop_back();
    return chunk;
}

void ChunkQueue::GiveBack(std::unique_ptr<DataChunk> chunk) {
    // A few keep their memory warm; more would keep it from everybody else.
    constexpr std::size_t mostSpare = 4;
    const std::lock_guard lock(mutex);
    if (spare.size() < mostSpare) {
        spare.push_back(std::move(chunk));
    }
}

bool ChunkQueue::Push(Item item) {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] {
        return left || items.empty() ||
               (items.size() < mostChunks && bytes + item.bytes <= mostBytes);
    });
    if (left) {
        return false;
    }
    bytes += item.bytes;
    items.push_back(std::move(item));
    changed.notify_all();
    return true;
}

void ChunkQueue::End(std::exception_ptr why) {
    const std::lock_guard lock(mutex);
    ended = true;
    failure = std::move(why);
    changed.notify_all();
}

bool ChunkQueue::Pop(Item& item) {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return ended || !items.empty(); });
    if (items.empty()) {
        if (failure) {
            std::rethrow_exception(std::exchange(failure, {}));
        }
        return false;
    }
    item = std::move(items.front());
    items.pop_front();
    bytes -= item.bytes;
    changed.notify_all();
    return true;
}

void ChunkQueue::Leave() {
    const std::lock_guard lock(mutex);
    left = true;
    changed.notify_all();
}

}  // namespace Brantel::Tool
