#include "Support/RecordingFileCalls.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <stdexcept>
#include <utility>

namespace Brantel::Engine {

using Kind = FileOperation::Kind;

std::string RecordingFileCalls::Below(const char* path) const {
    std::optional<std::string> below = recording.Below(path);
    if (!below) {
        throw std::logic_error(std::string(path) + " does not lie in the folder that is recorded");
    }
    return *std::move(below);
}

RecordingFileCalls::Opened RecordingFileCalls::Find(int descriptor) const {
    const std::lock_guard lock(mutex);
    return opened.at(descriptor);
}

int RecordingFileCalls::Open(const char* path, int flags, mode_t mode) {
    Opened place;
    std::optional<std::size_t> created;
    if ((flags & O_DIRECTORY) != 0) {
        place.folder = Below(path);
    } else if (const std::optional<std::uint64_t> known = recording.FindFile(path)) {
        place.file = *known;
    } else if ((flags & O_CREAT) != 0) {
        place.file = recording.NewFile();
        created = recording.Begin({.kind = Kind::Create, .file = place.file, .path = Below(path)});
    }
    const int descriptor = FileCalls::Open(path, flags, mode);
    if (created) {
        recording.End(*created, descriptor >= 0);
    }
    if (descriptor >= 0) {
        if (!created && (flags & O_TRUNC) != 0) {
            recording.End(recording.Begin({.kind = Kind::Resize, .file = place.file}), true);
        }
        const std::lock_guard lock(mutex);
        opened[descriptor] = std::move(place);
    }
    return descriptor;
}

int RecordingFileCalls::Close(int descriptor) {
    {
        const std::lock_guard lock(mutex);
        opened.erase(descriptor);
    }
    return FileCalls::Close(descriptor);
}

ssize_t RecordingFileCalls::WriteVector(int descriptor, const iovec* parts, int count,
                                        off_t offset) {
    FileOperation operation{.kind = Kind::Write,
                            .file = Find(descriptor).file,
                            .offset = static_cast<std::uint64_t>(offset)};
    for (int index = 0; index < count; ++index) {
        operation.bytes.append(static_cast<const char*>(parts[index].iov_base),
                               parts[index].iov_len);
    }
    const std::size_t index = recording.Begin(std::move(operation));
    const ssize_t written = FileCalls::WriteVector(descriptor, parts, count, offset);
    recording.EndWrite(index, written < 0 ? 0 : static_cast<std::size_t>(written));
    return written;
}

int RecordingFileCalls::Flush(int descriptor) {
    const Opened place = Find(descriptor);
    const std::size_t index =
        place.folder ? recording.Begin({.kind = Kind::FlushFolder, .path = *place.folder})
                     : recording.Begin({.kind = Kind::FlushFile, .file = place.file});
    recording.End(index, true);
    return 0;
}

int RecordingFileCalls::Allocate(int descriptor, int mode, off_t offset, off_t size) {
    struct stat status {};
    const bool grows = (mode & FALLOC_FL_KEEP_SIZE) == 0 &&
                       FileCalls::GetStatus(descriptor, &status) == 0 &&
                       status.st_size < offset + size;
    if (!grows) {
        return FileCalls::Allocate(descriptor, mode, offset, size);
    }
    const std::size_t index =
        recording.Begin({.kind = Kind::Resize,
                         .file = Find(descriptor).file,
                         .offset = static_cast<std::uint64_t>(offset + size)});
    const int result = FileCalls::Allocate(descriptor, mode, offset, size);
    recording.End(index, result == 0);
    return result;
}

int RecordingFileCalls::Truncate(int descriptor, off_t size) {
    const std::size_t index = recording.Begin({.kind = Kind::Resize,
                                               .file = Find(descriptor).file,
                                               .offset = static_cast<std::uint64_t>(size)});
    const int result = FileCalls::Truncate(descriptor, size);
    recording.End(index, result == 0);
    return result;
}

int RecordingFileCalls::MakeFolder(const char* path, mode_t mode) {
    const std::size_t index = recording.Begin({.kind = Kind::MakeFolder, .path = Below(path)});
    const int result = FileCalls::MakeFolder(path, mode);
    recording.End(index, result == 0);
    return result;
}

int RecordingFileCalls::RemoveFolder(const char* path) {
    const std::size_t index = recording.Begin({.kind = Kind::RemoveFolder, .path = Below(path)});
    const int result = FileCalls::RemoveFolder(path);
    recording.End(index, result == 0);
    return result;
}

int RecordingFileCalls::RemoveFile(const char* path) {
    const std::size_t index = recording.Begin({.kind = Kind::Remove, .path = Below(path)});
    const int result = FileCalls::RemoveFile(path);
    recording.End(index, result == 0);
    return result;
}

int RecordingFileCalls::Rename(const char* from, const char* to) {
    const std::size_t index = recording.Begin({.kind = Kind::Rename,
                                               .file = recording.FindFile(from).value_or(0),
                                               .path = Below(from),
                                               .target = Below(to)});
    const int result = FileCalls::Rename(from, to);
    recording.End(index, result == 0);
    return result;
}

}  // namespace Brantel::Engine
