#pragma once

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

namespace Brantel::Engine {

// Every call that the engine makes on segment files and folders, as the system has it: results and
// errno are the system's, nothing is retried. What stands underneath decides what fails and what is
// recorded. Thread-safe. (The catalogue's own file calls go through SQLite's VFS.)
class IFileCalls {
  public:
    virtual ~IFileCalls() = default;

    virtual int Open(const char* path, int flags, mode_t mode) = 0;
    virtual int Close(int file) = 0;
    virtual ssize_t ReadVector(int file, const iovec* parts, int count, off_t offset) = 0;
    virtual ssize_t WriteVector(int file, const iovec* parts, int count, off_t offset) = 0;
    virtual int FlushData(int file) = 0;  // fdatasync
    virtual int Flush(int file) = 0;      // fsync
    virtual int Allocate(int file, int mode, off_t offset, off_t size) = 0;
    virtual int Truncate(int file, off_t size) = 0;
    virtual int Advise(int file, off_t offset, off_t size, int advice) = 0;  // answers the error
    virtual int Lock(int file, int operation) = 0;                           // flock
    virtual int GetStatus(int file, struct stat* status) = 0;
    virtual int GetPathStatus(const char* path, struct stat* status) = 0;  // lstat
    virtual int GetSpace(const char* path, struct statvfs* space) = 0;
    virtual int MakeFolder(const char* path, mode_t mode) = 0;
    virtual int RemoveFolder(const char* path) = 0;
    virtual int RemoveFile(const char* path) = 0;
    virtual int Rename(const char* from, const char* to) = 0;
    // The names in a folder without "." and "..", in any order.
    virtual int List(const char* path, std::vector<std::string>& names) = 0;
};

// Repeats a call that a signal interrupted.
template <typename Call>
auto RetryInterrupted(Call call) {
    while (true) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) {
            return result;
        }
    }
}

// The operating system's.
class FileCalls : public IFileCalls {
  public:
    int Open(const char* path, int flags, mode_t mode) override;
    int Close(int file) override;
    ssize_t ReadVector(int file, const iovec* parts, int count, off_t offset) override;
    ssize_t WriteVector(int file, const iovec* parts, int count, off_t offset) override;
    int FlushData(int file) override;
    int Flush(int file) override;
    int Allocate(int file, int mode, off_t offset, off_t size) override;
    int Truncate(int file, off_t size) override;
    int Advise(int file, off_t offset, off_t size, int advice) override;
    int Lock(int file, int operation) override;
    int GetStatus(int file, struct stat* status) override;
    int GetPathStatus(const char* path, struct stat* status) override;
    int GetSpace(const char* path, struct statvfs* space) override;
    int MakeFolder(const char* path, mode_t mode) override;
    int RemoveFolder(const char* path) override;
    int RemoveFile(const char* path) override;
    int Rename(const char* from, const char* to) override;
    int List(const char* path, std::vector<std::string>& names) override;
};

}  // namespace Brantel::Engine
