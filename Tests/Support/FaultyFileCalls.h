#pragma once

#include <libEngine/Local/FileCalls.h>

#include <array>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Brantel::Engine {

enum class FileCall : std::uint8_t {
    Open,
    ReadVector,
    WriteVector,
    FlushData,
    Flush,
    Allocate,
    Truncate,
    Lock,
    GetStatus,
    GetPathStatus,
    GetSpace,
    MakeFolder,
    RemoveFolder,
    RemoveFile,
    Rename,
    List,
    Count  // how many there are
};

// The system's calls, of which some fail as they are told to. Calls are counted from 1, all kinds
// together. Thread-safe.
class FaultyFileCalls : public FileCalls {
  public:
    struct Fault {
        std::uint64_t from = 0;        // number of the first call that fails
        std::uint64_t times = 1;       // how many in a row of the kinds that fail; 0: for ever
        int error = 0;                 // errno; 0: reads and writes are cut short instead
        std::optional<FileCall> kind;  // not set: all
    };

    // Counting begins again.
    void Inject(const Fault& wanted);
    void Heal();
    std::uint64_t CountCalls() const;
    // Calls of one kind since the beginning, whether they failed or not.
    std::uint64_t CountCalls(FileCall kind) const;
    // How often something failed.
    std::uint64_t CountFaults() const;
    // Runs before each call of the kind, on the caller's thread.
    void SetHook(FileCall kind, std::function<void()> hook);

    int Open(const char* path, int flags, mode_t mode) override;
    ssize_t ReadVector(int file, const iovec* parts, int count, off_t offset) override;
    ssize_t WriteVector(int file, const iovec* parts, int count, off_t offset) override;
    int FlushData(int file) override;
    int Flush(int file) override;
    int Allocate(int file, int mode, off_t offset, off_t size) override;
    int Truncate(int file, off_t size) override;
    int Lock(int file, int operation) override;
    int GetStatus(int file, struct stat* status) override;
    int GetPathStatus(const char* path, struct stat* status) override;
    int GetSpace(const char* path, struct statvfs* space) override;
    int MakeFolder(const char* path, mode_t mode) override;
    int RemoveFolder(const char* path) override;
    int RemoveFile(const char* path) override;
    int Rename(const char* from, const char* to) override;
    int List(const char* path, std::vector<std::string>& names) override;

  private:
    enum class Outcome { Pass, Fail, Short };

    Outcome Enter(FileCall kind);
    template <typename Action>
    auto Run(FileCall kind, Action action);

    mutable std::mutex mutex;
    // guarded by mutex
    Fault fault;
    bool active = false;
    std::uint64_t calls = 0;
    std::uint64_t faults = 0;
    std::array<std::uint64_t, static_cast<std::size_t>(FileCall::Count)> callsOfKind{};
    std::array<std::function<void()>, static_cast<std::size_t>(FileCall::Count)> hooks;
};

}  // namespace Brantel::Engine
