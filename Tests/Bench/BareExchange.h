#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace Brantel::Bench {

// The baseline of the transport benchmarks: both ends move a fixed number of bytes each way over a
// stream socket, with buffers made once and nothing else.
struct BareShape {
    std::uint64_t requestSize = 0;
    std::uint64_t answerSize = 0;
    std::uint64_t polls = 0;  // 1: both ends poll for a moment before they block
    std::uint64_t file = inMemory;

    // What the serving end does with each request beside: nothing; writes it to a file, and flushes
    // that; reads the answer from it. Or it answers once another connection, whose shape wakes, has
    // sent a request more; the first time at once.
    static constexpr std::uint64_t inMemory = 0;
    static constexpr std::uint64_t writes = 1;
    static constexpr std::uint64_t writesAndFlushes = 2;
    static constexpr std::uint64_t reads = 3;
    static constexpr std::uint64_t waits = 4;

    std::uint64_t wakes = 0;  // 1: each request wakes those that wait
    // The serving end copies the larger of request and answer to, or from, one of so many places,
    // in turn.
    std::uint64_t places = 0;
};

// Owns the descriptor.
class BareExchange {
  public:
    // Tells the serving end which shape the connection has.
    BareExchange(int fd, const BareShape& shape);
    ~BareExchange();
    BareExchange(const BareExchange&) = delete;
    BareExchange& operator=(const BareExchange&) = delete;

    void Call();
    // The halves of a call.
    void Ask();
    void Hear();
    int Descriptor() const { return fd; }

  private:
    int fd;
    BareShape shape;
    std::vector<char> request;
    std::vector<char> answer;
};

// What connections of one serving process wait for. Thread-safe.
class BareBell {
  public:
    void Ring() {
        const std::lock_guard lock(mutex);
        ++rings;
        change.notify_all();
    }
    std::uint64_t Rings() {
        const std::lock_guard lock(mutex);
        return rings;
    }
    // Until it has rung more often than so often.
    void WaitFor(std::uint64_t times) {
        std::unique_lock lock(mutex);
        change.wait(lock, [&] { return rings > times; });
    }

  private:
    std::mutex mutex;
    std::condition_variable change;
    std::uint64_t rings = 0;
};

// The serving end: reads the shape, then answers until the other end closes. Closes the descriptor.
// The file, if the shape has one, is in this folder; the bell is borrowed.
void ServeBareExchange(int fd, const std::string& folder, BareBell& bell);

}  // namespace Brantel::Bench
