#pragma once

#include <cstddef>
#include <cstdint>
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
    // that; reads the answer from it.
    static constexpr std::uint64_t inMemory = 0;
    static constexpr std::uint64_t writes = 1;
    static constexpr std::uint64_t writesAndFlushes = 2;
    static constexpr std::uint64_t reads = 3;
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

  private:
    int fd;
    BareShape shape;
    std::vector<char> request;
    std::vector<char> answer;
};

// The serving end: reads the shape, then answers until the other end closes. Closes the descriptor.
// The file, if the shape has one, is in this folder.
void ServeBareExchange(int fd, const std::string& folder = "");

}  // namespace Brantel::Bench
