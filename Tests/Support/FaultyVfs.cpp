#include "Support/FaultyVfs.h"

#include "Support/WrappedVfs.h"

namespace Brantel::Engine {
namespace {

// Which calls fail, and how many did.
struct Faults {
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

class FaultyFile : public WrappedFile {
  public:
    FaultyFile(sqlite3_file& system, Faults& faults) : WrappedFile(system), faults(faults) {}

    int Read(void* bytes, int size, sqlite3_int64 offset) override {
        const int error = faults.Enter(SQLITE_IOERR_READ);
        return error != SQLITE_OK ? error : WrappedFile::Read(bytes, size, offset);
    }

    int Write(const void* bytes, int size, sqlite3_int64 offset) override {
        const int error = faults.Enter(SQLITE_IOERR_WRITE, true);
        return error != SQLITE_OK ? error : WrappedFile::Write(bytes, size, offset);
    }

    int Truncate(sqlite3_int64 size) override {
        const int error = faults.Enter(SQLITE_IOERR_TRUNCATE);
        return error != SQLITE_OK ? error : WrappedFile::Truncate(size);
    }

    int Sync(int flags) override {
        const int error = faults.Enter(SQLITE_IOERR_FSYNC);
        return error != SQLITE_OK ? error : WrappedFile::Sync(flags);
    }

    int GetSize(sqlite3_int64* size) override {
        const int error = faults.Enter(SQLITE_IOERR_FSTAT);
        return error != SQLITE_OK ? error : WrappedFile::GetSize(size);
    }

  private:
    Faults& faults;
};

}  // namespace

struct FaultyVfsState : WrappedVfs {
    Faults faults;

    FaultyVfsState() : WrappedVfs("faulty") {}

    int Open(const char* path, int flags, int* outFlags, sqlite3_file& file,
             std::unique_ptr<WrappedFile>& wrapped) override {
        const int error = faults.Enter(SQLITE_CANTOPEN);
        if (error != SQLITE_OK) {
            return error;
        }
        wrapped = std::make_unique<FaultyFile>(file, faults);
        return System().xOpen(&System(), path, &file, flags, outFlags);
    }

    int Delete(const char* path, int flushFolder) override {
        const int error = faults.Enter(SQLITE_IOERR_DELETE);
        return error != SQLITE_OK ? error : WrappedVfs::Delete(path, flushFolder);
    }

    int Access(const char* path, int flags, int* result) override {
        const int error = faults.Enter(SQLITE_IOERR_ACCESS);
        return error != SQLITE_OK ? error : WrappedVfs::Access(path, flags, result);
    }
};

FaultyVfs::FaultyVfs() : state(std::make_unique<FaultyVfsState>()) {}

FaultyVfs::~FaultyVfs() = default;

const std::string& FaultyVfs::GetName() const {
    return state->GetName();
}

void FaultyVfs::Inject(const Fault& wanted) {
    state->faults = {.fault = wanted, .active = true};
}

void FaultyVfs::Heal() {
    state->faults.active = false;
}

std::uint64_t FaultyVfs::CountFaults() const {
    return state->faults.faults;
}

}  // namespace Brantel::Engine
