#include "Support/WrappedVfs.h"

#include <sstream>
#include <stdexcept>

namespace Brantel::Engine {
namespace {

// What SQLite takes for its file; the system's lies behind it.
struct Slot {
    sqlite3_file base;
    WrappedFile* file;
};

WrappedFile& Of(sqlite3_file* file) {
    return *reinterpret_cast<Slot*>(file)->file;
}

sqlite3_file* SystemOf(sqlite3_file* file) {
    return &Of(file).System();
}

int Close(sqlite3_file* file) {
    const std::unique_ptr<WrappedFile> wrapped(&Of(file));
    return wrapped->System().pMethods->xClose(&wrapped->System());
}

int Read(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset) {
    return Of(file).Read(bytes, size, offset);
}

int Write(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
    return Of(file).Write(bytes, size, offset);
}

int Truncate(sqlite3_file* file, sqlite3_int64 size) {
    return Of(file).Truncate(size);
}

int Sync(sqlite3_file* file, int flags) {
    return Of(file).Sync(flags);
}

int FileSize(sqlite3_file* file, sqlite3_int64* size) {
    return Of(file).GetSize(size);
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
    return Of(file).Control(operation, argument);
}

int SectorSize(sqlite3_file* file) {
    return SystemOf(file)->pMethods->xSectorSize(SystemOf(file));
}

int DeviceCharacteristics(sqlite3_file* file) {
    return SystemOf(file)->pMethods->xDeviceCharacteristics(SystemOf(file));
}

// Version 1: what comes after these is missing.
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

WrappedVfs& Of(sqlite3_vfs* vfs) {
    return *static_cast<WrappedVfs*>(vfs->pAppData);
}

int Open(sqlite3_vfs* vfs, const char* path, sqlite3_file* file, int flags, int* outFlags) {
    auto* const slot = reinterpret_cast<Slot*>(file);
    slot->base.pMethods = nullptr;
    std::unique_ptr<WrappedFile> wrapped;
    const int result =
        Of(vfs).Open(path, flags, outFlags, *reinterpret_cast<sqlite3_file*>(slot + 1), wrapped);
    if (result == SQLITE_OK) {
        slot->file = wrapped.release();
        slot->base.pMethods = &methods;
    }
    return result;
}

int Delete(sqlite3_vfs* vfs, const char* path, int flushFolder) {
    return Of(vfs).Delete(path, flushFolder);
}

int Access(sqlite3_vfs* vfs, const char* path, int flags, int* result) {
    return Of(vfs).Access(path, flags, result);
}

int FullPathname(sqlite3_vfs* vfs, const char* path, int size, char* result) {
    return Of(vfs).System().xFullPathname(&Of(vfs).System(), path, size, result);
}

int Randomness(sqlite3_vfs* vfs, int size, char* bytes) {
    return Of(vfs).System().xRandomness(&Of(vfs).System(), size, bytes);
}

int Sleep(sqlite3_vfs* vfs, int microseconds) {
    return Of(vfs).System().xSleep(&Of(vfs).System(), microseconds);
}

int CurrentTime(sqlite3_vfs* vfs, double* time) {
    return Of(vfs).System().xCurrentTime(&Of(vfs).System(), time);
}

int GetLastError(sqlite3_vfs* vfs, int size, char* text) {
    return Of(vfs).System().xGetLastError(&Of(vfs).System(), size, text);
}

std::string NameOf(const std::string& kind, const void* object) {
    std::ostringstream name;
    name << kind << object;
    return name.str();
}

}  // namespace

int WrappedFile::Read(void* bytes, int size, sqlite3_int64 offset) {
    return system.pMethods->xRead(&system, bytes, size, offset);
}

int WrappedFile::Write(const void* bytes, int size, sqlite3_int64 offset) {
    return system.pMethods->xWrite(&system, bytes, size, offset);
}

int WrappedFile::Truncate(sqlite3_int64 size) {
    return system.pMethods->xTruncate(&system, size);
}

int WrappedFile::Sync(int flags) {
    return system.pMethods->xSync(&system, flags);
}

int WrappedFile::GetSize(sqlite3_int64* size) {
    return system.pMethods->xFileSize(&system, size);
}

int WrappedFile::Control(int operation, void* argument) {
    return system.pMethods->xFileControl(&system, operation, argument);
}

WrappedVfs::WrappedVfs(const std::string& kind)
    : name(NameOf(kind, this)), system(*sqlite3_vfs_find(nullptr)) {
    vfs.iVersion = 1;
    vfs.szOsFile = static_cast<int>(sizeof(Slot)) + system.szOsFile;
    vfs.mxPathname = system.mxPathname;
    vfs.zName = name.c_str();
    vfs.pAppData = this;
    vfs.xOpen = Engine::Open;
    vfs.xDelete = Engine::Delete;
    vfs.xAccess = Engine::Access;
    vfs.xFullPathname = FullPathname;
    vfs.xRandomness = Randomness;
    vfs.xSleep = Sleep;
    vfs.xCurrentTime = CurrentTime;
    vfs.xGetLastError = GetLastError;
    if (sqlite3_vfs_register(&vfs, 0) != SQLITE_OK) {
        throw std::runtime_error("SQLite does not take the file layer " + name);
    }
}

WrappedVfs::~WrappedVfs() {
    sqlite3_vfs_unregister(&vfs);
}

int WrappedVfs::Delete(const char* path, int flushFolder) {
    return system.xDelete(&system, path, flushFolder);
}

int WrappedVfs::Access(const char* path, int flags, int* result) {
    return system.xAccess(&system, path, flags, result);
}

}  // namespace Brantel::Engine
