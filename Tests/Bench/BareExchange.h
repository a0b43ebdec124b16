#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Brantel::Bench {

// The baseline of the transport benchmarks: both ends move a fixed number of bytes each way over a
// stream socket, with buffers made once and nothing else.
struct BareShape {
    std::uint64_t requestSize = 0;
    std::uint64_t answerSize = 0;
    std::uint64_t polls = 0;  // 1: both ends poll for a moment before they block
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
void ServeBareExchange(int fd);

}  // namespace Brantel::Bench
