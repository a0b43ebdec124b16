#include "Local/FolderCalls.h"

#include "Local/File.h"
#include "Local/FileCalls.h"

#include <fcntl.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>

namespace Brantel::Engine {

namespace {

constexpr mode_t ownerOnly = 0700;

}  // namespace

std::string FolderCalls::ParentOf(const std::string& path) {
    const std::size_t end = path.find_last_not_of('/');
    const std::size_t slash = end == std::string::npos ? end : path.rfind('/', end);
    if (slash == std::string::npos) {
        return end == std::string::npos ? "/" : ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::optional<struct stat> FolderCalls::GetStatus(const std::string& path) const {
    struct stat status {};
    if (RetryInterrupted([&] { return calls.GetPathStatus(path.c_str(), &status); }) < 0) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        ThrowSystemError(path + ": asking what it is failed", errno);
    }
    return status;
}

void FolderCalls::MakeFolder(const std::string& path) const {
    if (RetryInterrupted([&] { return calls.MakeFolder(path.c_str(), ownerOnly); }) < 0 &&
        errno != EEXIST) {
        ThrowSystemError(path + ": making the folder failed", errno);
    }
    // Also when it was there: whoever made it may have been cut off before this.
    FlushFolder(ParentOf(path));
}

void FolderCalls::RemoveFolder(const std::string& path) const {
    if (RetryInterrupted([&] { return calls.RemoveFolder(path.c_str()); }) < 0 && errno != ENOENT) {
        ThrowSystemError(path + ": removing the folder failed", errno);
    }
}

void FolderCalls::RemoveFile(const std::string& path) const {
    if (RetryInterrupted([&] { return calls.RemoveFile(path.c_str()); }) < 0 && errno != ENOENT) {
        ThrowSystemError(path + ": removing failed", errno);
    }
}

void FolderCalls::Rename(const std::string& from, const std::string& to) const {
    if (RetryInterrupted([&] { return calls.Rename(from.c_str(), to.c_str()); }) < 0) {
        ThrowSystemError(from + ": renaming to " + to + " failed", errno);
    }
}

std::vector<std::string> FolderCalls::List(const std::string& path) const {
    std::vector<std::string> names;
    if (RetryInterrupted([&] {
            names.clear();
            return calls.List(path.c_str(), names);
        }) < 0) {
        if (errno == ENOENT) {
            return {};
        }
        ThrowSystemError(path + ": listing the folder failed", errno);
    }
    std::sort(names.begin(), names.end());
    return names;
}

void FolderCalls::FlushFolder(const std::string& path) const {
    // The dot lets the folder's own name be a symbolic link, as that of the store's parent may be.
    File(calls, path + "/.", O_RDONLY | O_DIRECTORY).Flush();
}

std::uint64_t FolderCalls::GetFreeSpace(const std::string& path) const {
    struct statvfs space {};
    if (RetryInterrupted([&] { return calls.GetSpace(path.c_str(), &space); }) < 0) {
        ThrowSystemError(path + ": asking for the free space failed", errno);
    }
    return static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
}

void FolderCalls::WriteFile(const std::string& path, const std::string& text) const {
    const std::string fresh = path + ".new";
    {
        const File file(calls, fresh, O_WRONLY | O_CREAT | O_TRUNC);
        file.Write(text.data(), text.size(), 0);
        file.Flush();
    }
    Rename(fresh, path);
    FlushFolder(ParentOf(path));
}

}  // namespace Brantel::Engine
