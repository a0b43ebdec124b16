#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

namespace Brantel::Engine {

class File;
class FlushMeter;

// Flushes one file: one flush at a time, and whoever comes meanwhile shares the next one. A flush
// that failed is final: what it covered may be lost though the system calls its pages clean from
// then on, so nothing but writing it again can make it safe. Thread-safe.
class FlushGate {
  public:
    // `meter` is borrowed, and told of every flush.
    FlushGate(std::uint32_t flushedEnd, FlushMeter& meter)
        : meter(meter), writtenEnd(flushedEnd), flushedEnd(flushedEnd) {}

    // Everything in front of `end` has been written, and something that is not flushed yet.
    void NoteWrite(std::uint32_t end);

    // Returns when everything that was noted before has been flushed. Throws EngineError (Io).
    void Flush(const File& file);

    // Ends the file for writing; the first reason stays.
    void Fail(const char* reason) noexcept;
    bool HasFailed() const noexcept { return failed.load(std::memory_order_acquire); }
    std::string GetReason() const;
    // What was lost has been written again.
    void Heal();
    // Only what lies in front of `end` is known to have been flushed.
    void ForgetFlushes(std::uint32_t end) noexcept { flushedEnd = end; }

    // Everything in front of it has been flushed.
    std::uint32_t GetFlushedEnd() const noexcept { return flushedEnd.load(); }
    bool IsClean() const;

  private:
    FlushMeter& meter;
    mutable std::mutex mutex;
    std::condition_variable ended;
    std::atomic<bool> failed = false;
    // guarded by mutex
    std::string reason;
    bool flushing = false;
    std::uint64_t writes = 0;         // noted
    std::uint64_t flushedWrites = 0;  // of them
    std::uint32_t writtenEnd;
    std::atomic<std::uint32_t> flushedEnd;  // written under the mutex
};

}  // namespace Brantel::Engine
