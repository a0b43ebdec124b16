#include "Bench/BareFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <new>
#include <random>
#include <system_error>

namespace Brantel::Bench {

namespace {

constexpr std::size_t pageSize = 4096;

void Check(bool good, const char* what) {
    if (!good) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

}  // namespace

PageBuffer::PageBuffer(std::size_t wanted)
    : size(wanted),
      bytes(static_cast<char*>(
          std::aligned_alloc(pageSize, (wanted + pageSize - 1) / pageSize * pageSize))) {
    if (!bytes) {
        throw std::bad_alloc();
    }
    std::mt19937_64 random(wanted);
    std::generate(bytes.get(), bytes.get() + size, [&] { return static_cast<char>(random()); });
}

BareFile::BareFile(const std::string& path, std::uint64_t size, std::size_t blockSize)
    : descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {
    Check(descriptor >= 0, "open");
    Check(::posix_fallocate(descriptor, 0, static_cast<off_t>(size)) == 0, "posix_fallocate");
    const PageBuffer block(blockSize);
    for (std::uint64_t place = 0; place < size; place += blockSize) {
        Write(block.Get(), std::min<std::uint64_t>(blockSize, size - place), place);
    }
    Check(::fsync(descriptor) == 0, "fsync");
    ::posix_fadvise(descriptor, 0, 0, POSIX_FADV_RANDOM);
}

BareFile::BareFile(const std::string& path)
    : descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    Check(descriptor >= 0, "open");
    ::posix_fadvise(descriptor, 0, 0, POSIX_FADV_RANDOM);
}

BareFile::~BareFile() {
    ::close(descriptor);
}

void BareFile::Write(const char* bytes, std::size_t size, std::uint64_t offset) const {
    Check(
        ::pwrite(descriptor, bytes, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size),
        "pwrite");
}

void BareFile::Read(char* bytes, std::size_t size, std::uint64_t offset) const {
    Check(
        ::pread(descriptor, bytes, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size),
        "pread");
}

void BareFile::FlushData() const {
    Check(::fdatasync(descriptor) == 0, "fdatasync");
}

void FlushFileSystem(const std::string& path) {
    const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    Check(folder >= 0, "open");
    const int result = ::syncfs(folder);
    ::close(folder);
    Check(result == 0, "syncfs");
}

void ForgetPages(const std::string& folder) {
    for (const auto& file : std::filesystem::recursive_directory_iterator(folder)) {
        if (file.is_regular_file()) {
            const int descriptor = ::open(file.path().c_str(), O_RDONLY | O_CLOEXEC);
            Check(descriptor >= 0, "open");
            ::posix_fadvise(descriptor, 0, 0, POSIX_FADV_DONTNEED);
            ::close(descriptor);
        }
    }
}

}  // namespace Brantel::Bench
