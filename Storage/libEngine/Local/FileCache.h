#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Brantel::Engine {

class File;
class IFileCalls;
class SlotFile;

// Bounds how many segment files are open at the same time, apart from those that are being written
// or read just now. Thread-safe; must outlive its SlotFiles.
class FileCache {
  public:
    FileCache(IFileCalls& calls, std::size_t limit, bool readOnly)
        : calls(calls), limit(limit), readOnly(readOnly) {}

  private:
    friend class SlotFile;

    void Enter(SlotFile& file);
    void Leave(SlotFile& file) noexcept;

    IFileCalls& calls;
    const std::size_t limit;
    const bool readOnly;
    std::atomic<std::uint64_t> clock = 0;  // counts the files that were opened
    std::mutex mutex;
    std::vector<SlotFile*> files;  // guarded by mutex; those that may hold an open file
};

// One segment file of a track, opened when it is needed. Thread-safe.
class SlotFile {
  public:
    SlotFile(FileCache& cache, std::string path, std::uint32_t number);
    ~SlotFile();
    SlotFile(const SlotFile&) = delete;
    SlotFile& operator=(const SlotFile&) = delete;

    // Shared, so that a reader's stays open while it is dropped from the cache.
    std::shared_ptr<File> Open();

    const std::string& GetPath() const { return path; }
    std::uint32_t GetNumber() const { return number; }

  private:
    friend class FileCache;

    FileCache& cache;
    const std::string path;
    const std::uint32_t number;
    std::atomic<std::uint64_t> lastUse = 0;  // the cache's clock then
    std::mutex mutex;
    std::shared_ptr<File> file;  // guarded by mutex; null: not open
};

}  // namespace Brantel::Engine
