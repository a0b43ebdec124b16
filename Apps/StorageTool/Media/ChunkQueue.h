#pragma once

#include <libProtocolX/DataChunk.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <vector>

namespace Brantel::Tool {

// Chunks on their way from one thread to another, not more than twice a limit of them or of their
// bytes. Waking a thread costs about as much as a call to the server, and takes a processor from
// those who talk to each other, so that both sides are woken for many chunks at once: who fills
// when half of it is empty, who takes as Taking says. One thread fills, one takes.
class ChunkQueue {
  public:
    static constexpr std::size_t mostChunks = 256;
    // Little enough to stay in a processor's cache.
    static constexpr std::size_t mostBytes = std::size_t{1} << 20U;

    enum class Taking : std::uint8_t {
        // Each chunk as soon as it is there: for those that come when they come.
        AtOnce,
        // Half a queue at a time, or what has come within some milliseconds.
        Together
    };

    struct Item {
        std::unique_ptr<ProtocolX::DataChunk> chunk;
        // Of data.
        std::size_t bytes = 0;
    };

    explicit ChunkQueue(Taking taking) : taking(taking) {}

    // A chunk to be filled: an empty one, or one that has been given back, as it was left.
    std::unique_ptr<ProtocolX::DataChunk> Spare();
    void GiveBack(Item item);

    // Waits for room, which one chunk of any size always finds. False when the taker has gone.
    bool Push(Item item);
    // There will be no more: because all is done, or because of this failure.
    void End(std::exception_ptr failure = {});

    // The next one, waited for. False at the end; throws the failure that ended it.
    bool Pop(Item& item);
    // Nothing is taken any more: what waits to push gives up.
    void Leave();

  private:
    bool IsFull(std::size_t more) const;
    bool IsHalfFull() const;
    // Fills `taken`, which is empty then only at the end.
    void TakeAll();

    const Taking taking;

    // Of the taker alone.
    std::deque<Item> taken;

    // Guards what follows.
    std::mutex mutex;
    std::condition_variable filled;
    std::condition_variable emptied;
    std::deque<Item> items;
    std::size_t bytes = 0;
    std::vector<Item> spare;
    std::size_t spareBytes = 0;
    std::exception_ptr failure;
    bool ended = false;
    bool left = false;
};

}  // namespace Brantel::Tool
