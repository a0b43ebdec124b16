#include "Support/FaultyFileCalls.h"

#include <cerrno>
#include <cstddef>
#include <utility>

namespace Brantel::Engine {

void FaultyFileCalls::Inject(const Fault& wanted) {
    const std::lock_guard lock(mutex);
    fault = wanted;
    active = true;
    calls = 0;
    faults = 0;
}

void FaultyFileCalls::Heal() {
    const std::lock_guard lock(mutex);
    active = false;
}

std::uint64_t FaultyFileCalls::CountCalls() const {
    const std::lock_guard lock(mutex);
    return calls;
}

std::uint64_t FaultyFileCalls::CountCalls(FileCall kind) const {
    const std::lock_guard lock(mutex);
    return callsOfKind.at(static_cast<std::size_t>(kind));
}

std::uint64_t FaultyFileCalls::CountFaults() const {
    const std::lock_guard lock(mutex);
    return faults;
}

void FaultyFileCalls::SetHook(FileCall kind, std::function<void()> hook) {
    const std::lock_guard lock(mutex);
    hooks.at(static_cast<std::size_t>(kind)) = std::move(hook);
}

FaultyFileCalls::Outcome FaultyFileCalls::Enter(FileCall kind) {
    std::function<void()> hook;
    Outcome outcome = Outcome::Pass;
    int error = 0;
    {
        const std::lock_guard lock(mutex);
        ++callsOfKind.at(static_cast<std::size_t>(kind));
        ++calls;
        hook = hooks.at(static_cast<std::size_t>(kind));
        const bool meant = active && (!fault.kind || *fault.kind == kind) && calls >= fault.from &&
                           (fault.times == 0 || faults < fault.times);
        if (meant) {
            ++faults;
            error = fault.error;
            outcome = error == 0 ? Outcome::Short : Outcome::Fail;
        }
    }
    if (hook) {
        hook();
    }
    errno = error;
    return outcome;
}

template <typename Action>
auto FaultyFileCalls::Run(FileCall kind, Action action) {
    using Result = decltype(action());
    return Enter(kind) == Outcome::Fail ? static_cast<Result>(-1) : action();
}

int FaultyFileCalls::Open(const char* path, int flags, mode_t mode) {
    return Run(FileCall::Open, [&] { return FileCalls::Open(path, flags, mode); });
}

ssize_t FaultyFileCalls::ReadVector(int file, const iovec* parts, int count, off_t offset) {
    const Outcome outcome = Enter(FileCall::ReadVector);
    if (outcome == Outcome::Fail) {
        return -1;
    }
    if (outcome == Outcome::Short && parts->iov_len > 1) {
        const iovec half{parts->iov_base, parts->iov_len / 2};
        return FileCalls::ReadVector(file, &half, 1, offset);
    }
    return FileCalls::ReadVector(file, parts, count, offset);
}

ssize_t FaultyFileCalls::WriteVector(int file, const iovec* parts, int count, off_t offset) {
    const Outcome outcome = Enter(FileCall::WriteVector);
    if (outcome == Outcome::Fail) {
        return -1;
    }
    if (outcome == Outcome::Short && parts->iov_len > 1) {
        const iovec half{parts->iov_base, parts->iov_len / 2};
        return FileCalls::WriteVector(file, &half, 1, offset);
    }
    return FileCalls::WriteVector(file, parts, count, offset);
}

int FaultyFileCalls::FlushData(int file) {
    return Run(FileCall::FlushData, [&] { return FileCalls::FlushData(file); });
}

int FaultyFileCalls::Flush(int file) {
    return Run(FileCall::Flush, [&] { return FileCalls::Flush(file); });
}

int FaultyFileCalls::Allocate(int file, int mode, off_t offset, off_t size) {
    return Run(FileCall::Allocate, [&] { return FileCalls::Allocate(file, mode, offset, size); });
}

int FaultyFileCalls::Truncate(int file, off_t size) {
    return Run(FileCall::Truncate, [&] { return FileCalls::Truncate(file, size); });
}

int FaultyFileCalls::Lock(int file, int operation) {
    return Run(FileCall::Lock, [&] { return FileCalls::Lock(file, operation); });
}

int FaultyFileCalls::GetStatus(int file, struct stat* status) {
    return Run(FileCall::GetStatus, [&] { return FileCalls::GetStatus(file, status); });
}

int FaultyFileCalls::GetPathStatus(const char* path, struct stat* status) {
    return Run(FileCall::GetPathStatus, [&] { return FileCalls::GetPathStatus(path, status); });
}

int FaultyFileCalls::GetSpace(const char* path, struct statvfs* space) {
    return Run(FileCall::GetSpace, [&] { return FileCalls::GetSpace(path, space); });
}

int FaultyFileCalls::MakeFolder(const char* path, mode_t mode) {
    return Run(FileCall::MakeFolder, [&] { return FileCalls::MakeFolder(path, mode); });
}

int FaultyFileCalls::RemoveFolder(const char* path) {
    return Run(FileCall::RemoveFolder, [&] { return FileCalls::RemoveFolder(path); });
}

int FaultyFileCalls::RemoveFile(const char* path) {
    return Run(FileCall::RemoveFile, [&] { return FileCalls::RemoveFile(path); });
}

int FaultyFileCalls::Rename(const char* from, const char* to) {
    return Run(FileCall::Rename, [&] { return FileCalls::Rename(from, to); });
}

int FaultyFileCalls::List(const char* path, std::vector<std::string>& names) {
    return Run(FileCall::List, [&] { return FileCalls::List(path, names); });
}

}  // namespace Brantel::Engine
