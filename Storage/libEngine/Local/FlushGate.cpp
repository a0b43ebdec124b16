#include "Local/FlushGate.h"

#include "EngineError.h"
#include "Local/File.h"
#include "Local/FlushMeter.h"

#include <algorithm>
#include <chrono>
#include <exception>

namespace Brantel::Engine {

void FlushGate::NoteWrite(std::uint32_t end) {
    const std::lock_guard lock(mutex);
    ++writes;
    writtenEnd = std::max(writtenEnd, end);
}

void FlushGate::Flush(const File& file) {
    std::unique_lock lock(mutex);
    const std::uint64_t wanted = writes;
    while (flushedWrites < wanted) {
        if (failed) {
            throw EngineError(EngineError::Kind::Io, reason);
        }
        if (flushing) {
            ended.wait(lock);
            continue;
        }
        flushing = true;
        const std::uint64_t covered = writes;
        const std::uint32_t coveredEnd = writtenEnd;
        const std::uint64_t group = covered - flushedWrites;
        lock.unlock();
        const auto begin = std::chrono::steady_clock::now();
        try {
            file.FlushData();
        } catch (const std::exception& error) {
            // Known to have failed before anyone else can flush: the system may call the pages
            // clean from now on.
            Fail(error.what());
            meter.NoteFailure();
            lock.lock();
            flushing = false;
            ended.notify_all();
            throw;
        }
        meter.Note(std::chrono::steady_clock::now() - begin, group);
        lock.lock();
        flushing = false;
        flushedWrites = std::max(flushedWrites, covered);
        flushedEnd = std::max(flushedEnd.load(), coveredEnd);
        ended.notify_all();
    }
}

void FlushGate::Fail(const char* why) noexcept {
    const std::lock_guard lock(mutex);
    if (!failed) {
        try {
            reason = why;
        } catch (const std::exception&) {
            reason.clear();  // without memory for the text the fact itself must do
        }
        failed = true;
    }
    ended.notify_all();
}

std::string FlushGate::GetReason() const {
    const std::lock_guard lock(mutex);
    return reason;
}

void FlushGate::Heal() {
    const std::lock_guard lock(mutex);
    failed = false;
    reason.clear();
}

bool FlushGate::IsClean() const {
    const std::lock_guard lock(mutex);
    return flushedWrites == writes && !failed;
}

}  // namespace Brantel::Engine
