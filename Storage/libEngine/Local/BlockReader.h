#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace Brantel::Engine {

class File;

// Reads a segment file from front to back, in large blocks. Not thread-safe.
class BlockReader {
  public:
    // `size`: what the file should have; behind its real end it reads as zeros.
    BlockReader(const File& file, std::uint64_t size) : file(file), size(size) {}

    // At least `wanted` bytes at `offset`, fewer when the segment ends before. Borrowed until the
    // next call.
    std::string_view Get(std::uint64_t offset, std::size_t wanted);

    static constexpr std::size_t blockSize = 1U << 20U;

  private:
    const File& file;
    const std::uint64_t size;
    std::unique_ptr<char[]> block;
    std::size_t capacity = 0;
    std::uint64_t blockOffset = 0;
    std::size_t filled = 0;
};

}  // namespace Brantel::Engine
