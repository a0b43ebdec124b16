#include "Support/FaultyVfs.h"

#include <sqlite3.h>

#include <sstream>
#include <stdexcept>

namespace Brantel::Engine {

struct FaultyVfsState {
    sqlite3_vfs vfs{};
    sqlite3_vfs* system = nullptr;
    FaultyVfs::Fault fault;
    bool active = false;
    std::uint64_t calls = 0;
    std::uint64_t faults = 0;

    // What the call answers instead of being made; SQLITE_OK: nothing.
    int Enter(int error, bool writes = false) {
        ++calls;
        const bool meant = active && calls >= fault.from &&
                           (fault.times == 0 || faults < fault.times) && (writes || !fault.full);
        if (!meant) {
            return SQLITE_OK;
        }
        ++faults;
        return fault.full ? SQLITE_FULL : error;
    }
};

namespace {

// What SQLite takes for its file; the system's lies behind it.
struct WrappedFile {
    sqlite3_file base;
    FaultyVfsState* state;
};

FaultyVfsState& StateOf(sqlite3_file* file) {
    return *reinterpret_cast<WrappedFile*>(file)->state;
}

sqlite3_file* RealOf(sqlite3_file* file) {
    return reinterpret_cast<sqlite3_file*>(reinterpret_cast<WrappedFile*>(file) + 1);
}

FaultyVfsState& StateOf(sqlite3_vfs* vfs) {
    return *static_cast<FaultyVfsState*>(vfs->pAppData);
}

int Close(sqlite3_file* file) {
    return RealOf(file)->pMethods->xClose(RealOf(file));
}

int Read(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset) {
    const int error = StateOf(file).Enter(SQLITE_IOERR_READ);
    return error != SQLITE_OK ? error
                              : RealOf(file)->pMethods->xRead(RealOf(file), bytes, size, offset);
}

int Write(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
    const int error = StateOf(file).Enter(SQLITE_IOERR_WRITE, true);
    return error != SQLITE_OK ? error
                              : RealOf(file)->pMethods->xWrite(RealOf(file), bytes, size, offset);
}

int Truncate(sqlite3_file* file, sqlite3_int64 size) {
    const int error = StateOf(file).Enter(SQLITE_IOERR_TRUNCATE);
    return error != SQLITE_OK ? error : RealOf(file)->pMethods->xTruncate(RealOf(file), size);
}

int Sync(sqlite3_file* file, int flags) {
    const int error = StateOf(file).Enter(SQLITE_IOERR_FSYNC);
    return error != SQLITE_OK ? error : RealOf(file)->pMethods->xSync(RealOf(file), flags);
}

int GetFileSize(sqlite3_file* file, sqlite3_int64* size) {
    const int error = StateOf(file).Enter(SQLITE_IOERR_FSTAT);
    return error != SQLITE_OK ? error : RealOf(file)->pMethods->xFileSize(RealOf(file), size);
}

int Lock(sqlite3_file* file, int level) {
    return RealOf(file)->pMethods->xLock(RealOf(file), level);
}

int Unlock(sqlite3_file* file, int level) {
    return RealOf(file)->pMethods->xUnlock(RealOf(file), level);
}

int CheckReservedLock(sqlite3_file* file, int* result) {
    return RealOf(file)->pMethods->xCheckReservedLock(RealOf(file), result);
}

int Control(sqlite3_file* file, int operation, void* argument) {
    return RealOf(file)->pMethods->xFileControl(RealOf(file), operation, argument);
}

int GetSectorSize(sqlite3_file* file) {
    return RealOf(file)->pMethods->xSectorSize(RealOf(file));
}

int GetCharacteristics(sqlite3_file* file) {
    return RealOf(file)->pMethods->xDeviceCharacteristics(RealOf(file));
}

// Version 1: without shared memory, which a database that is used alone does not need.
constexpr sqlite3_io_methods methods{1,
                                     Close,
                                     Read,
                                     Write,
                                     Truncate,
                                     Sync,
                                     GetFileSize,
                                     Lock,
                                     Unlock,
                                     CheckReservedLock,
                                     Control,
                                     GetSectorSize,
                                     GetCharacteristics,
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr,
                                     nullptr};

int Open(sqlite3_vfs* vfs, const char* path, sqlite3_file* file, int flags, int* outFlags) {
    FaultyVfsState& state = StateOf(vfs);
    auto& wrapped = *reinterpret_cast<WrappedFile*>(file);
    wrapped.base.pMethods = nullptr;
    wrapped.state = &state;
    int result = state.Enter(SQLITE_CANTOPEN);
    if (result == SQLITE_OK) {
        result = state.system->xOpen(state.system, path, RealOf(file), flags, outFlags);
    }
    if (result == SQLITE_OK) {
        wrapped.base.pMethods = &methods;
    }
    return result;
}

int Delete(sqlite3_vfs* vfs, const char* path, int flushFolder) {
    FaultyVfsState& state = StateOf(vfs);
    const int error = state.Enter(SQLITE_IOERR_DELETE);
    return error != SQLITE_OK ? error : state.system->xDelete(state.system, path, flushFolder);
}

int Access(sqlite3_vfs* vfs, const char* path, int flags, int* result) {
    FaultyVfsState& state = StateOf(vfs);
    const int error = state.Enter(SQLITE_IOERR_ACCESS);
    return error != SQLITE_OK ? error : state.system->xAccess(state.system, path, flags, result);
}

std::string NameOf(const void* object) {
    std::ostringstream name;
    name << "faulty" << object;
    return name.str();
}

}  // namespace

FaultyVfs::FaultyVfs() : name(NameOf(this)), state(std::make_unique<FaultyVfsState>()) {
    state->system = sqlite3_vfs_find(nullptr);
    state->vfs = *state->system;
    state->vfs.zName = name.c_str();
    state->vfs.pAppData = state.get();
    state->vfs.pNext = nullptr;
    state->vfs.szOsFile += static_cast<int>(sizeof(WrappedFile));
    state->vfs.xOpen = Open;
    state->vfs.xDelete = Delete;
    state->vfs.xAccess = Access;
    if (sqlite3_vfs_register(&state->vfs, 0) != SQLITE_OK) {
        throw std::runtime_error("registering a file layer failed");
    }
}

FaultyVfs::~FaultyVfs() {
    sqlite3_vfs_unregister(&state->vfs);
}

void FaultyVfs::Inject(const Fault& wanted) {
    state->fault = wanted;
    state->active = true;
    state->calls = 0;
    state->faults = 0;
}

void FaultyVfs::Heal() {
    state->active = false;
}

std::uint64_t FaultyVfs::CountFaults() const {
    return state->faults;
}

}  // namespace Brantel::Engine
