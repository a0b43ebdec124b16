#include "Local/File.h"

#include "EngineError.h"
#include "Local/FileCalls.h"

#include <climits>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace Brantel::Engine {

namespace {

constexpr mode_t ownerOnly = 0600;

int OpenFile(IFileCalls& calls, const std::string& path, int flags) {
    const auto open = [&](int more) {
        return RetryInterrupted([&] {
            return calls.Open(path.c_str(), flags | more | O_CLOEXEC | O_NOFOLLOW, ownerOnly);
        });
    };
    // Nobody asks when a file was read last, and noting it takes a part of each small read. Only
    // its owner may refuse it.
    int descriptor = open(O_NOATIME);
    if (descriptor < 0 && errno == EPERM) {
        descriptor = open(0);
    }
    if (descriptor < 0) {
        ThrowSystemError(path + ": opening failed", errno);
    }
    return descriptor;
}

// Takes `done` bytes off the front.
std::span<iovec> Advance(std::span<iovec> parts, std::size_t done) {
    while (!parts.empty() && done >= parts[0].iov_len) {
        done -= parts[0].iov_len;
        parts = parts.subspan(1);
    }
    if (!parts.empty()) {
        parts[0].iov_base = static_cast<char*>(parts[0].iov_base) + done;
        parts[0].iov_len -= done;
    }
    return parts;
}

std::size_t SizeOf(std::span<const iovec> parts) {
    std::size_t size = 0;
    for (const iovec& part : parts) {
        size += part.iov_len;
    }
    return size;
}

int CountOf(std::span<const iovec> parts) {
    return static_cast<int>(std::min<std::size_t>(parts.size(), IOV_MAX));
}

}  // namespace

void ThrowSystemError(const std::string& what, int error) {
    const bool full = error == ENOSPC || error == EDQUOT;
    throw EngineError(full ? EngineError::Kind::NoSpace : EngineError::Kind::Io,
                      what + ": " + std::generic_category().message(error));
}

File::File(IFileCalls& calls, std::string path, int flags)
    : calls(calls), path(std::move(path)), descriptor(OpenFile(calls, this->path, flags)) {}

File::~File() {
    calls.Close(descriptor);
}

void File::Throw(const char* operation, std::uint64_t size, std::uint64_t offset) const {
    const int error = errno;
    ThrowSystemError(path + ": " + operation + " of " + std::to_string(size) + " bytes at " +
                         std::to_string(offset) + " failed",
                     error);
}

void File::ThrowFlush() const {
    // Io also for a full medium: what was written may be lost, as after no write that was refused.
    const int error = errno;
    throw EngineError(EngineError::Kind::Io,
                      path + ": flushing failed: " + std::generic_category().message(error));
}

void File::Read(void* bytes, std::size_t size, std::uint64_t offset) const {
    iovec part{bytes, size};
    Read(std::span(&part, 1), offset);
}

void File::Read(std::span<iovec> parts, std::uint64_t offset) const {
    parts = Advance(parts, 0);
    while (!parts.empty()) {
        const ssize_t done = RetryInterrupted([&] {
            return calls.ReadVector(descriptor, parts.data(), CountOf(parts),
                                    static_cast<off_t>(offset));
        });
        if (done < 0) {
            Throw("reading", SizeOf(parts), offset);
        }
        if (done == 0) {
            throw EngineError(EngineError::Kind::Damaged,
                              path + ": ends at " + std::to_string(offset) + ", " +
                                  std::to_string(SizeOf(parts)) + " bytes too early");
        }
        offset += static_cast<std::uint64_t>(done);
        parts = Advance(parts, static_cast<std::size_t>(done));
    }
}

std::size_t File::ReadSome(void* bytes, std::size_t size, std::uint64_t offset) const {
    std::size_t read = 0;
    while (read < size) {
        const iovec part{static_cast<char*>(bytes) + read, size - read};
        const ssize_t done = RetryInterrupted([&] {
            return calls.ReadVector(descriptor, &part, 1, static_cast<off_t>(offset + read));
        });
        if (done < 0) {
            Throw("reading", size - read, offset + read);
        }
        if (done == 0) {
            break;
        }
        read += static_cast<std::size_t>(done);
    }
    std::memset(static_cast<char*>(bytes) + read, 0, size - read);
    return read;
}

void File::Write(const void* bytes, std::size_t size, std::uint64_t offset) const {
    iovec part{const_cast<void*>(bytes), size};
    Write(std::span(&part, 1), offset);
}

void File::Write(std::span<iovec> parts, std::uint64_t offset) const {
    parts = Advance(parts, 0);
    while (!parts.empty()) {
        const ssize_t done = RetryInterrupted([&] {
            return calls.WriteVector(descriptor, parts.data(), CountOf(parts),
                                     static_cast<off_t>(offset));
        });
        if (done <= 0) {
            // Nothing written and no error: the medium takes no more.
            errno = done == 0 ? ENOSPC : errno;
            Throw("writing", SizeOf(parts), offset);
        }
        offset += static_cast<std::uint64_t>(done);
        parts = Advance(parts, static_cast<std::size_t>(done));
    }
}

void File::FlushData() const {
    if (RetryInterrupted([&] { return calls.FlushData(descriptor); }) < 0) {
        ThrowFlush();
    }
}

void File::Flush() const {
    if (RetryInterrupted([&] { return calls.Flush(descriptor); }) < 0) {
        ThrowFlush();
    }
}

bool File::Allocate(std::uint64_t size) const {
    if (RetryInterrupted(
            [&] { return calls.Allocate(descriptor, 0, 0, static_cast<off_t>(size)); }) == 0) {
        return true;
    }
    if (errno == EOPNOTSUPP || errno == ENOSYS) {
        return false;
    }
    Throw("reserving", size, 0);
}

void File::AllocateBehindEnd(std::uint64_t size) const noexcept {
    calls.Allocate(descriptor, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size));
}

void File::Truncate(std::uint64_t size) const {
    if (RetryInterrupted([&] { return calls.Truncate(descriptor, static_cast<off_t>(size)); }) <
        0) {
        Throw("setting the size", size, 0);
    }
}

std::uint64_t File::GetSize() const {
    struct stat status {};
    if (RetryInterrupted([&] { return calls.GetStatus(descriptor, &status); }) < 0) {
        ThrowSystemError(path + ": asking for its size failed", errno);
    }
    return static_cast<std::uint64_t>(status.st_size);
}

std::uint32_t File::GetOwner() const {
    struct stat status {};
    if (RetryInterrupted([&] { return calls.GetStatus(descriptor, &status); }) < 0) {
        ThrowSystemError(path + ": asking for its owner failed", errno);
    }
    return status.st_uid;
}

void File::ExpectRandomReads() const noexcept {
    calls.Advise(descriptor, 0, 0, POSIX_FADV_RANDOM);
}

bool File::TryLock() const {
    if (RetryInterrupted([&] { return calls.Lock(descriptor, LOCK_EX | LOCK_NB); }) == 0) {
        return true;
    }
    if (errno == EWOULDBLOCK) {
        return false;
    }
    ThrowSystemError(path + ": locking failed", errno);
}

}  // namespace Brantel::Engine
