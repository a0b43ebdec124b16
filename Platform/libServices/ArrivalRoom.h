#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>

namespace Brantel::Services {

// The memory, in bytes, that the large messages of all connections of a listener may take while
// they arrive and are served. What does not fit waits; who came first gets room first. Thread-safe.
class ArrivalRoom {
  public:
    explicit ArrivalRoom(std::uint64_t size) : size(size) {}
    ArrivalRoom(const ArrivalRoom&) = delete;
    ArrivalRoom& operator=(const ArrivalRoom&) = delete;
    // Everything that was taken has been given back.
    ~ArrivalRoom() = default;

    // Waits until so many bytes, at most Size(), are free, and takes them. `isOver` is asked now
    // and then while it waits. False: it said so, and nothing was taken. `waited`: whether it had
    // to.
    bool Take(std::uint64_t bytes, const std::function<bool()>& isOver, bool& waited);
    void GiveBack(std::uint64_t bytes) noexcept;

    std::uint64_t Size() const { return size; }
    std::uint64_t Taken() const;

  private:
    struct Waiter {
        std::uint64_t bytes = 0;
        bool served = false;
        std::condition_variable wake;
    };

    void ServeWaiters() noexcept;

    const std::uint64_t size;
    mutable std::mutex mutex;
    // Guarded by the mutex. Each waiter is the waiting thread's own.
    std::uint64_t taken = 0;
    std::list<Waiter*> waiters;
};

}  // namespace Brantel::Services
