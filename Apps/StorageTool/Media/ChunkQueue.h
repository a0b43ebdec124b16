#pragma once

#include <libProtocolX/DataChunk.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <vector>

namespace Brantel::Tool {

// Chunks on their way from one thread to another, not more than a limit of them or of their bytes.
// Thread-safe.
class ChunkQueue {
  public:
    static constexpr std::size_t mostChunks = 256;
    static constexpr std::size_t mostBytes = std::size_t{32} << 20U;

    struct Item {
        std::unique_ptr<ProtocolX::DataChunk> chunk;
        // Of data.
        std::size_t bytes = 0;
    };

    // A chunk to be filled: an empty one, or one that has been given back, as it was left.
    std::unique_ptr<ProtocolX::DataChunk> Spare();
    void GiveBack(std::unique_ptr<ProtocolX::DataChunk> chunk);

    // Waits for room, which one chunk of any size always finds. False when the taker has gone.
    bool Push(Item item);
    // There will be no more: because all is done, or because of this failure.
    void End(std::exception_ptr failure = {});

    // The next one, waited for. False at the end; throws the failure that ended it.
    bool Pop(Item& item);
    // Nothing is taken any more: what waits to push gives up.
    void Leave();

  private:
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Item> items;
    std::size_t bytes = 0;
    std::vector<std::unique_ptr<ProtocolX::DataChunk>> spare;
    std::exception_ptr failure;
    bool ended = false;
    bool left = false;
};

}  // namespace Brantel::Tool
