#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace Brantel::Bench {

// Memory that begins at a page, filled with bytes that do not compress.
class PageBuffer {
  public:
    explicit PageBuffer(std::size_t size);

    char* Get() const { return bytes.get(); }
    std::size_t GetSize() const { return size; }

  private:
    struct Free {
        void operator()(char* memory) const { std::free(memory); }  // NOLINT: of aligned_alloc
    };

    const std::size_t size;
    std::unique_ptr<char, Free> bytes;
};

// The baseline of the engine's benchmarks: a file whose blocks are all there, that is written and
// read by the bare calls of the system. Calls are checked; a short one is an error.
class BareFile {
  public:
    // Makes the file and writes to all of it in blocks of this size, as large as `size` at most;
    // flushes it. The system keeps in memory what was written in such blocks.
    BareFile(const std::string& path, std::uint64_t size,
             std::size_t blockSize = std::size_t{1} << 20U);
    // Opens one that exists, to be read.
    explicit BareFile(const std::string& path);
    ~BareFile();
    BareFile(const BareFile&) = delete;
    BareFile& operator=(const BareFile&) = delete;

    void Write(const char* bytes, std::size_t size, std::uint64_t offset) const;
    void Read(char* bytes, std::size_t size, std::uint64_t offset) const;
    void FlushData() const;

  private:
    int descriptor;
};

// Everything of the file system that holds the path is on the medium when it returns.
void FlushFileSystem(const std::string& path);

// Asks the system to forget the pages that it keeps of all files in the folder.
void ForgetPages(const std::string& folder);

}  // namespace Brantel::Bench
