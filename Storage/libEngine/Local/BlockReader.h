#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string_view>

namespace Brantel::Engine {

class File;

// Reads a segment file from front to back, in large blocks. Pages that the medium does not give any
// more read as zeros, as long as they are few. Not thread-safe.
class BlockReader {
  public:
    // `size`: what the file should have; behind its real end it reads as zeros.
    BlockReader(const File& file, std::uint64_t size) : file(file), size(size) {}

    // At least `wanted` bytes at `offset`, fewer when the segment ends before. Borrowed until the
    // next call. Throws EngineError (Io) when the medium rather than a place of it fails.
    std::string_view Get(std::uint64_t offset, std::size_t wanted);

    // The end of the last page that begins in front of `end`, holds `begin` or lies behind it, and
    // could not be read; 0: all could, as far as they were asked for.
    std::uint64_t FindUnreadable(std::uint64_t begin, std::uint64_t end) const;

    static constexpr std::size_t blockSize = 1U << 20U;

  private:
    void Fill(std::uint64_t begin, std::size_t count);

    const File& file;
    const std::uint64_t size;
    std::unique_ptr<char[]> block;  // NOLINT(*-avoid-c-arrays)
    std::size_t capacity = 0;
    std::uint64_t blockOffset = 0;
    std::size_t filled = 0;
    std::set<std::uint64_t> unreadable;  // offsets of pages
};

}  // namespace Brantel::Engine
