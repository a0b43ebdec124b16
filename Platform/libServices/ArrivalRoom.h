#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>

namespace Brantel::Services {

// A message that is under way, and the room that it has taken. Used by one thread.
class ArrivingMessage {
  public:
    ArrivingMessage() = default;
    ArrivingMessage(const ArrivingMessage&) = delete;
    ArrivingMessage& operator=(const ArrivingMessage&) = delete;
    // It is not under way.
    ~ArrivingMessage() = default;

    // Between Enter and Leave.
    bool IsUnderWay() const { return size > 0; }
    std::uint64_t Taken() const { return taken; }

  private:
    friend class ArrivalRoom;

    // Changed with the room's mutex held, by its thread, and by others while it waits.
    std::uint64_t size = 0;
    std::uint64_t taken = 0;
    std::uint64_t wanted = 0;  // what it waits for; 0: it does not wait
    std::condition_variable served;
    std::list<ArrivingMessage*>::iterator place;
};

// The memory, in bytes, that the large messages of all connections of a listener may take while
// they arrive and are served. A message takes room step by step, each before its bytes are
// received, so that what is only announced keeps nothing from others; what does not fit waits.
//
// Whatever has begun can end: of the messages that are under way, the oldest can always get all
// that it needs. Once it has gone that is so for the next one, and so on, because at any time
//
//     bytes of a message + bytes taken by all younger ones <= size of the room
//
// Who waits is served in the order of age. Thread-safe.
class ArrivalRoom {
  public:
    explicit ArrivalRoom(std::uint64_t size) : size(size) {}
    ArrivalRoom(const ArrivalRoom&) = delete;
    ArrivalRoom& operator=(const ArrivalRoom&) = delete;
    // No message is under way any more.
    ~ArrivalRoom() = default;

    // A message of so many bytes, 1 to Size(), is announced; it has taken nothing yet.
    void Enter(ArrivingMessage& message, std::uint64_t bytes);

    // Takes so many bytes more, at most what the message still needs; waits until they are free.
    // `isOver` is asked now and then while it waits. False: it said so, and nothing was taken.
    // `waited` becomes true if it had to.
    bool Take(ArrivingMessage& message, std::uint64_t bytes, const std::function<bool()>& isOver,
              bool& waited);

    // The message needs no more than it has.
    void Complete(ArrivingMessage& message) noexcept;

    // Gives everything back.
    void Leave(ArrivingMessage& message) noexcept;

    std::uint64_t Size() const { return size; }
    std::uint64_t Taken() const;
    // Whether anybody waits.
    bool IsAwaited() const { return waiting.load(std::memory_order_relaxed) > 0; }

  private:
    void ServeLocked() noexcept;

    const std::uint64_t size;
    mutable std::mutex mutex;
    // Guarded by the mutex.
    std::uint64_t taken = 0;
    std::list<ArrivingMessage*> messages;  // from the oldest to the youngest
    // Written with the mutex held.
    std::atomic<std::uint64_t> waiting{0};
};

}  // namespace Brantel::Services
