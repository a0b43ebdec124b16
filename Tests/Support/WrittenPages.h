#pragma once

#include <libEngine/Local/FileCalls.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <set>

namespace Brantel::Engine {

// The system's calls, and what of them reaches the medium: each page that was written since its
// file's last flush, once, when that is flushed. Thread-safe.
class WrittenPages : public FileCalls {
  public:
    static constexpr std::uint64_t pageSize = 4096;

    ssize_t WriteVector(int file, const iovec* parts, int count, off_t offset) override {
        const ssize_t written = FileCalls::WriteVector(file, parts, count, offset);
        const ino_t number = NumberOf(file);
        const std::lock_guard lock(mutex);
        const auto begin = static_cast<std::uint64_t>(offset);
        for (std::uint64_t place = begin / pageSize * pageSize;
             written > 0 && place < begin + static_cast<std::uint64_t>(written);
             place += pageSize) {
            dirty[number].insert(place);
        }
        return written;
    }
    int FlushData(int file) override {
        Count(file);
        return FileCalls::FlushData(file);
    }
    int Flush(int file) override {
        Count(file);
        return FileCalls::Flush(file);
    }

    // Bytes so far, what is not flushed yet included.
    std::uint64_t GetBytes() const {
        const std::lock_guard lock(mutex);
        std::uint64_t bytes = flushed;
        for (const auto& [number, pages] : dirty) {
            bytes += pages.size() * pageSize;
        }
        return bytes;
    }

  private:
    ino_t NumberOf(int file) {
        struct stat status {};
        FileCalls::GetStatus(file, &status);
        return status.st_ino;
    }
    void Count(int file) {
        const ino_t number = NumberOf(file);
        const std::lock_guard lock(mutex);
        flushed += dirty[number].size() * pageSize;
        dirty.erase(number);
    }

    mutable std::mutex mutex;
    // guarded by mutex
    std::map<ino_t, std::set<std::uint64_t>> dirty;  // places of pages by file
    std::uint64_t flushed = 0;
};

}  // namespace Brantel::Engine
