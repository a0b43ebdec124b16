#include "Support/RecordingVfs.h"

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace Brantel::Engine {

using Kind = FileOperation::Kind;

namespace {

struct Recorded {
    FileRecording* recording = nullptr;
    std::uint64_t file = 0;
    std::string folder;
    bool flushFolder = false;  // by the first flush, as the system's VFS does for a journal
};

// What SQLite gives room for; the system's file lies behind it.
struct RecordedFile {
    sqlite3_file base;
    Recorded* recorded;

    sqlite3_file* System() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

struct Registered {
    FileRecording& recording;
    sqlite3_vfs* system;
};

RecordedFile& Of(sqlite3_file* file) {
    return *reinterpret_cast<RecordedFile*>(file);
}

sqlite3_file* SystemOf(sqlite3_file* file) {
    return Of(file).System();
}

sqlite3_int64 SizeOf(sqlite3_file* system) {
    sqlite3_int64 size = 0;
    return system->pMethods->xFileSize(system, &size) == SQLITE_OK ? size : 0;
}

// Carries out a call that may change the size, in whatever way the system's VFS rounds it.
template <typename Call>
int RecordSize(sqlite3_file* file, const Call& call) {
    const Recorded& recorded = *Of(file).recorded;
    const sqlite3_int64 before = SizeOf(SystemOf(file));
    const std::size_t index =
        recorded.recording->Begin({.kind = Kind::Resize, .file = recorded.file});
    const int result = call();
    const sqlite3_int64 after = SizeOf(SystemOf(file));
    recorded.recording->EndResize(index, static_cast<std::uint64_t>(after), after != before);
    return result;
}

int Close(sqlite3_file* file) {
    const int result = SystemOf(file)->pMethods->xClose(SystemOf(file));
    delete Of(file).recorded;
    return result;
}

int Read(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset) {
    return SystemOf(file)->pMethods->xRead(SystemOf(file), bytes, size, offset);
}

int Write(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
    const Recorded& recorded = *Of(file).recorded;
    const std::size_t index = recorded.recording->Begin(
        {.kind = Kind::Write,
         .file = recorded.file,
         .offset = static_cast<std::uint64_t>(offset),
         .bytes = {static_cast<const char*>(bytes), static_cast<std::size_t>(size)}});
    const int result = SystemOf(file)->pMethods->xWrite(SystemOf(file), bytes, size, offset);
    recorded.recording->End(index, result == SQLITE_OK);
    return result;
}

int Truncate(sqlite3_file* file, sqlite3_int64 size) {
    return RecordSize(file,
                      [&] { return SystemOf(file)->pMethods->xTruncate(SystemOf(file), size); });
}

int Sync(sqlite3_file* file, int) {
    Recorded& recorded = *Of(file).recorded;
    FileRecording& recording = *recorded.recording;
    recording.End(recording.Begin({.kind = Kind::FlushFile, .file = recorded.file}), true);
    if (std::exchange(recorded.flushFolder, false)) {
        recording.End(recording.Begin({.kind = Kind::FlushFolder, .path = recorded.folder}), true);
    }
    return SQLITE_OK;
}

int FileSize(sqlite3_file* file, sqlite3_int64* size) {
    return SystemOf(file)->pMethods->xFileSize(SystemOf(file), size);
}

int Lock(sqlite3_file* file, int level) {
    return SystemOf(file)->pMethods->xLock(SystemOf(file), level);
}

int Unlock(sqlite3_file* file, int level) {
    return SystemOf(file)->pMethods->xUnlock(SystemOf(file), level);
}

int CheckReservedLock(sqlite3_file* file, int* result) {
    return SystemOf(file)->pMethods->xCheckReservedLock(SystemOf(file), result);
}

int FileControl(sqlite3_file* file, int operation, void* argument) {
    return RecordSize(file, [&] {
        return SystemOf(file)->pMethods->xFileControl(SystemOf(file), operation, argument);
    });
}

int SectorSize(sqlite3_file* file) {
    return SystemOf(file)->pMethods->xSectorSize(SystemOf(file));
}

int DeviceCharacteristics(sqlite3_file* file) {
    return SystemOf(file)->pMethods->xDeviceCharacteristics(SystemOf(file));
}

// Version 1: without shared memory and mapped files, which a database that is opened by one
// connection alone does not need.
constexpr sqlite3_io_methods methods{1,
                                     Close,
                                     Read,
                                     Write,
                                     Truncate,
                                     Sync,
                                     FileSize,
                                     Lock,
                                     Unlock,
                                     CheckReservedLock,
                                     FileControl,
                                     SectorSize,
                                     DeviceCharacteristics,
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr};

Registered& Of(sqlite3_vfs* vfs) {
    return *static_cast<Registered*>(vfs->pAppData);
}

std::string Below(const FileRecording& recording, const char* path) {
    return recording.Below(path).value();
}

int Open(sqlite3_vfs* vfs, const char* path, sqlite3_file* file, int flags, int* outFlags) {
    const Registered& registered = Of(vfs);
    FileRecording& recording = registered.recording;
    Of(file).base.pMethods = nullptr;
    if (path == nullptr) {
        // For SQLite's own use, gone when it is closed.
        return registered.system->xOpen(registered.system, path, file, flags, outFlags);
    }
    const std::string below = Below(recording, path);
    constexpr int journals = SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_SUPER_JOURNAL | SQLITE_OPEN_WAL;
    const bool mayCreate = (flags & SQLITE_OPEN_CREATE) != 0;
    auto recorded = std::make_unique<Recorded>();
    recorded->recording = &recording;
    recorded->folder = FileOperation::FolderOf(below);
    recorded->flushFolder = mayCreate && (flags & journals) != 0;
    std::optional<std::size_t> created;
    if (const std::optional<std::uint64_t> known = recording.FindFile(path)) {
        recorded->file = *known;
    } else if (mayCreate) {
        recorded->file = recording.NewFile();
        created = recording.Begin({.kind = Kind::Create, .file = recorded->file, .path = below});
    }
    const int result =
        registered.system->xOpen(registered.system, path, SystemOf(file), flags, outFlags);
    if (created) {
        recording.End(*created, result == SQLITE_OK);
    }
    if (result == SQLITE_OK) {
        Of(file).recorded = recorded.release();
        Of(file).base.pMethods = &methods;
    }
    return result;
}

int Delete(sqlite3_vfs* vfs, const char* path, int flushFolder) {
    const Registered& registered = Of(vfs);
    FileRecording& recording = registered.recording;
    const std::string below = Below(recording, path);
    const std::size_t index = recording.Begin({.kind = Kind::Remove, .path = below});
    const int result = registered.system->xDelete(registered.system, path, 0);
    recording.End(index, result == SQLITE_OK);
    if (result == SQLITE_OK && flushFolder != 0) {
        recording.End(
            recording.Begin({.kind = Kind::FlushFolder, .path = FileOperation::FolderOf(below)}),
            true);
    }
    return result;
}

int Access(sqlite3_vfs* vfs, const char* path, int flags, int* result) {
    return Of(vfs).system->xAccess(Of(vfs).system, path, flags, result);
}

int FullPathname(sqlite3_vfs* vfs, const char* path, int size, char* result) {
    return Of(vfs).system->xFullPathname(Of(vfs).system, path, size, result);
}

int Randomness(sqlite3_vfs* vfs, int size, char* bytes) {
    return Of(vfs).system->xRandomness(Of(vfs).system, size, bytes);
}

int Sleep(sqlite3_vfs* vfs, int microseconds) {
    return Of(vfs).system->xSleep(Of(vfs).system, microseconds);
}

int CurrentTime(sqlite3_vfs* vfs, double* time) {
    return Of(vfs).system->xCurrentTime(Of(vfs).system, time);
}

int GetLastError(sqlite3_vfs* vfs, int size, char* text) {
    return Of(vfs).system->xGetLastError(Of(vfs).system, size, text);
}

}  // namespace

struct RecordingVfs::Registration {
    Registered registered;
    sqlite3_vfs vfs;
};

RecordingVfs::RecordingVfs(FileRecording& recording)
    : name("recording-" + std::to_string(reinterpret_cast<std::uintptr_t>(this))),
      registration(std::make_unique<Registration>(
          Registration{{recording, sqlite3_vfs_find(nullptr)}, {}})) {
    const sqlite3_vfs& system = *registration->registered.system;
    sqlite3_vfs& vfs = registration->vfs;
    vfs.iVersion = 1;
    vfs.szOsFile = static_cast<int>(sizeof(RecordedFile)) + system.szOsFile;
    vfs.mxPathname = system.mxPathname;
    vfs.zName = name.c_str();
    vfs.pAppData = &registration->registered;
    vfs.xOpen = Open;
    vfs.xDelete = Delete;
    vfs.xAccess = Access;
    vfs.xFullPathname = FullPathname;
    vfs.xRandomness = Randomness;
    vfs.xSleep = Sleep;
    vfs.xCurrentTime = CurrentTime;
    vfs.xGetLastError = GetLastError;
    if (sqlite3_vfs_register(&vfs, 0) != SQLITE_OK) {
        throw std::runtime_error("SQLite does not take the VFS " + name);
    }
}

RecordingVfs::~RecordingVfs() {
    sqlite3_vfs_unregister(&registration->vfs);
}

}  // namespace Brantel::Engine
