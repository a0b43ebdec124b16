#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Brantel::Tool {

// The part of a stream that has come and is not cut off yet. Knows where in the stream it lies.
class HeldBytes {
  public:
    void Append(std::string_view bytes);

    // What is held; valid until the next Append or Cut.
    std::string_view View() const { return std::string_view(bytes).substr(begin); }

    // Moves the first `size` bytes of the view to `piece`, whose memory is used again.
    void Cut(std::size_t size, std::string& piece);

    // The place in the stream of the first byte of the view.
    std::uint64_t Offset() const { return offset; }

  private:
    std::string bytes;
    std::size_t begin = 0;
    std::uint64_t offset = 0;
};

}  // namespace Brantel::Tool
