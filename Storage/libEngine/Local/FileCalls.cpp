#include "Local/FileCalls.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string_view>

namespace Brantel::Engine {

int FileCalls::Open(const char* path, int flags, mode_t mode) {
    return ::open(path, flags, mode);  // NOLINT(cppcoreguidelines-pro-type-vararg): the only form
}

int FileCalls::Close(int file) {
    return ::close(file);
}

ssize_t FileCalls::ReadVector(int file, const iovec* parts, int count, off_t offset) {
    // The system's way for one part is shorter.
    return count == 1 ? ::pread(file, parts->iov_base, parts->iov_len, offset)
                      : ::preadv(file, parts, count, offset);
}

ssize_t FileCalls::WriteVector(int file, const iovec* parts, int count, off_t offset) {
    return count == 1 ? ::pwrite(file, parts->iov_base, parts->iov_len, offset)
                      : ::pwritev(file, parts, count, offset);
}

int FileCalls::FlushData(int file) {
    return ::fdatasync(file);
}

int FileCalls::Flush(int file) {
    return ::fsync(file);
}

int FileCalls::Allocate(int file, int mode, off_t offset, off_t size) {
    return ::fallocate(file, mode, offset, size);
}

int FileCalls::Truncate(int file, off_t size) {
    return ::ftruncate(file, size);
}

int FileCalls::Advise(int file, off_t offset, off_t size, int advice) {
    return ::posix_fadvise(file, offset, size, advice);
}

int FileCalls::Lock(int file, int operation) {
    return ::flock(file, operation);
}

int FileCalls::GetStatus(int file, struct stat* status) {
    return ::fstat(file, status);
}

int FileCalls::GetPathStatus(const char* path, struct stat* status) {
    return ::lstat(path, status);
}

int FileCalls::GetSpace(const char* path, struct statvfs* space) {
    return ::statvfs(path, space);
}

int FileCalls::MakeFolder(const char* path, mode_t mode) {
    return ::mkdir(path, mode);
}

int FileCalls::RemoveFolder(const char* path) {
    return ::rmdir(path);
}

int FileCalls::RemoveFile(const char* path) {
    return ::unlink(path);
}

int FileCalls::Rename(const char* from, const char* to) {
    return ::rename(from, to);
}

int FileCalls::List(const char* path, std::vector<std::string>& names) {
    const auto closeFolder = [](DIR* folder) { ::closedir(folder); };
    const std::unique_ptr<DIR, decltype(closeFolder)> folder(::opendir(path), closeFolder);
    if (!folder) {
        return -1;
    }
    while (true) {
        errno = 0;
        const dirent* entry = ::readdir(folder.get());
        if (entry == nullptr) {
            return errno == 0 ? 0 : -1;
        }
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
    }
}

}  // namespace Brantel::Engine
