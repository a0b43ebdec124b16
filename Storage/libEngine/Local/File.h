#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Brantel::Engine {

class IFileCalls;

// An open file. Calls are carried out whole: interrupted and short ones are continued. Failures
// throw EngineError (NoSpace or Io) with the path, the place and what the system said. Thread-safe.
class File {
  public:
    // `flags` as of open(2); close-on-exec and not following a symbolic link are added. A file that
    // is created is its owner's alone.
    File(IFileCalls& calls, std::string path, int flags);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    // Throws Damaged when the file ends before.
    void Read(void* bytes, std::size_t size, std::uint64_t offset) const;
    // The parts are used up by the call.
    void Read(std::span<iovec> parts, std::uint64_t offset) const;
    // Reads until the file ends; the bytes behind its end are zeroed. Returns what was read.
    std::size_t ReadSome(void* bytes, std::size_t size, std::uint64_t offset) const;

    void Write(const void* bytes, std::size_t size, std::uint64_t offset) const;
    // The parts are used up by the call.
    void Write(std::span<iovec> parts, std::uint64_t offset) const;

    // The bytes, and what is needed to find them again. Failures are Io.
    void FlushData() const;
    // That, and all else that the system keeps of the file.
    void Flush() const;

    // Takes the space from the medium where it can be taken ahead; false where that is not known.
    bool Allocate(std::uint64_t size) const;
    // The same behind the end of the file, whose size stays; where it can't be done, it is not.
    void AllocateBehindEnd(std::uint64_t size) const noexcept;
    void Truncate(std::uint64_t size) const;
    std::uint64_t GetSize() const;
    std::uint32_t GetOwner() const;
    // No reading ahead: chunks are read whole, by place. Only advice.
    void ExpectRandomReads() const noexcept;
    // False when somebody else has the file locked. Held until the object ends.
    bool TryLock() const;

    const std::string& GetPath() const { return path; }

  private:
    [[noreturn]] void Throw(const char* operation, std::uint64_t size, std::uint64_t offset) const;
    [[noreturn]] void ThrowFlush() const;

    IFileCalls& calls;
    const std::string path;
    const int descriptor;
};

// Throws an EngineError for what the system said: NoSpace for a full medium, Io for all else.
[[noreturn]] void ThrowSystemError(const std::string& what, int error);

}  // namespace Brantel::Engine
