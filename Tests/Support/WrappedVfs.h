#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>

namespace Brantel::Engine {

// One open file of SQLite: passes every call on to the system's. Derived classes look at the calls
// that they are about.
class WrappedFile {
  public:
    // Borrows the system's file, which SQLite gave the room for.
    explicit WrappedFile(sqlite3_file& system) : system(system) {}
    virtual ~WrappedFile() = default;
    WrappedFile(const WrappedFile&) = delete;
    WrappedFile& operator=(const WrappedFile&) = delete;

    virtual int Read(void* bytes, int size, sqlite3_int64 offset);
    virtual int Write(const void* bytes, int size, sqlite3_int64 offset);
    virtual int Truncate(sqlite3_int64 size);
    virtual int Sync(int flags);
    virtual int GetSize(sqlite3_int64* size);
    virtual int Control(int operation, void* argument);

    sqlite3_file& System() { return system; }

  private:
    sqlite3_file& system;
};

// A file layer for SQLite over the system's. Registered by its name for as long as it lives, which
// is longer than any database that uses it. Without shared memory and mapped files, which a
// database that one connection alone opens does not need.
class WrappedVfs {
  public:
    // `kind` begins the name. Throws std::runtime_error when SQLite does not take it.
    explicit WrappedVfs(const std::string& kind);
    virtual ~WrappedVfs();
    WrappedVfs(const WrappedVfs&) = delete;
    WrappedVfs& operator=(const WrappedVfs&) = delete;

    const std::string& GetName() const { return name; }

    // Opens the system's file in `file` and says in `wrapped` through what it is used.
    virtual int Open(const char* path, int flags, int* outFlags, sqlite3_file& file,
                     std::unique_ptr<WrappedFile>& wrapped) = 0;
    virtual int Delete(const char* path, int flushFolder);
    virtual int Access(const char* path, int flags, int* result);

    sqlite3_vfs& System() { return system; }

  private:
    const std::string name;
    sqlite3_vfs& system;
    sqlite3_vfs vfs{};
};

}  // namespace Brantel::Engine
