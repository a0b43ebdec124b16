#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace Brantel::Tool {

// The part of a stream that has come and is not cut off yet. Knows where in the stream it lies.
class HeldBytes {
  public:
    // Room for so many bytes behind those that are held, to be filled; valid until the next call.
    char* Room(std::size_t size);
    // So many bytes of the room have been filled.
    void Add(std::size_t size) { end += size; }

    // What is held; valid until the next Room or Cut.
    std::string_view View() const { return {bytes.get() + begin, end - begin}; }

    // Copies the first `size` bytes of the view to `piece`, whose memory is used again, and lets
    // them go.
    void Cut(std::size_t size, std::string& piece);

    // The place in the stream of the first byte of the view.
    std::uint64_t Offset() const { return offset; }

  private:
    std::unique_ptr<char[]> bytes;  // NOLINT(*-avoid-c-arrays)
    std::size_t capacity = 0;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::uint64_t offset = 0;
};

}  // namespace Brantel::Tool
