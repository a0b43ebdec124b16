#include "Export/DataFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Brantel::Tool {

namespace {

constexpr mode_t readableByAll = 0644;

int Open(const std::string& path, int flags) {
    const int descriptor = open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, readableByAll);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return descriptor;
}

// What is no regular file is not even waited for, as the opening of a pipe would.
int OpenRegular(const std::string& path, int flags) {
    const int descriptor = Open(path, flags | O_NONBLOCK);
    struct stat status {};
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(descriptor);
        throw std::runtime_error(path + ": is no regular file");
    }
    return descriptor;
}

}  // namespace

DataFile DataFile::OpenToRead(const std::string& path) {
    return {OpenRegular(path, O_RDONLY), path};
}

DataFile DataFile::OpenToChange(const std::string& path) {
    return {OpenRegular(path, O_RDWR), path};
}

DataFile DataFile::Create(const std::string& path) {
    return {Open(path, O_RDWR | O_CREAT | O_EXCL), path};
}

DataFile::DataFile(int descriptor, std::string name)
    : descriptor(descriptor), path(std::move(name)) {}

DataFile::DataFile(DataFile&& other) noexcept
    : descriptor(std::exchange(other.descriptor, -1)), path(std::move(other.path)) {}

DataFile::~DataFile() {
    if (descriptor >= 0) {
        close(descriptor);
    }
}

std::uint64_t DataFile::Size() const {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) {
        Fail("fstat");
    }
    return static_cast<std::uint64_t>(status.st_size);
}

std::size_t DataFile::Read(std::uint64_t place, char* to, std::size_t size) const {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count =
            pread(descriptor, to + done, size - done, static_cast<off_t>(place + done));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            Fail("read");
        }
        if (count == 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    return done;
}

void DataFile::ReadAll(std::uint64_t place, char* to, std::size_t size) const {
    const std::size_t count = Read(place, to, size);
    if (count != size) {
        throw std::runtime_error(path + ": ends at byte " + std::to_string(place + count));
    }
}

void DataFile::Write(std::uint64_t place, std::string_view bytes) const {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = pwrite(descriptor, bytes.data() + done, bytes.size() - done,
                                     static_cast<off_t>(place + done));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            Fail("write");
        }
        done += static_cast<std::size_t>(count);
    }
}

void DataFile::Truncate(std::uint64_t size) const {
    if (ftruncate(descriptor, static_cast<off_t>(size)) != 0) {
        Fail("truncate");
    }
}

void DataFile::Flush() const {
    if (fsync(descriptor) != 0) {
        Fail("fsync");
    }
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    const int folder = open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_CLOEXEC);
    if (folder >= 0) {
        // Some file systems can't flush folders and say so; nothing can be done then.
        static_cast<void>(fsync(folder));
        close(folder);
    }
}

void DataFile::Lock() const {
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            throw std::runtime_error(path + ": another program is writing it");
        }
        Fail("flock");
    }
}

void DataFile::Fail(const char* what) const {
    throw std::system_error(errno, std::generic_category(), path + ": " + what);
}

}  // namespace Brantel::Tool
