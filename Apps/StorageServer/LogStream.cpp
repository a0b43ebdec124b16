#include "LogStream.h"

#include <pthread.h>

#include <utility>

namespace Brantel::Server {

namespace {

// What is written at once.
constexpr std::size_t batchSize = std::size_t{16} << 10U;

}  // namespace

LogStream::LogStream(std::unique_ptr<LogOutput> output, const LogLine::Style& style)
    : output(std::move(output)), style(style), thread([this] { Run(); }) {}

LogStream::~LogStream() {
    {
        const std::lock_guard guard(mutex);
        TellRepeatedLocked();
        TellDroppedLocked();
        stopping = true;
    }
    output->Abandon();
    changed.notify_all();
    thread.join();
}

bool LogStream::WaitUntilWritten(std::chrono::milliseconds longest) {
    std::unique_lock lock(mutex);
    TellRepeatedLocked();
    return changed.wait_for(lock, longest, [this] { return queue.empty() && !writing; });
}

void LogStream::SetStyle(const LogLine::Style& newStyle) {
    const std::lock_guard guard(mutex);
    style = newStyle;
}

void LogStream::Put(const LogEvent& event) {
    const std::lock_guard guard(mutex);
    if (last && last->IsLike(event)) {
        if (repeated++ == 0) {
            repeatedSince = Clock::now();
            changed.notify_all();
        }
        return;
    }
    TellRepeatedLocked();
    last = event;
    QueueLocked(event, std::chrono::system_clock::now());
}

void LogStream::TellRepeatedLocked() {
    if (repeated > 0) {
        QueueLocked(LogLine::Repeated(last->level, std::exchange(repeated, 0)),
                    std::chrono::system_clock::now());
    }
}

void LogStream::QueueLocked(const LogEvent& event, LogLine::Time time) {
    TellDroppedLocked();
    if (dropped > 0) {
        ++dropped;
        return;
    }
    std::string line = LogLine::Format(event, style, time);
    if (queuedBytes + line.size() > queueLimit) {
        ++dropped;
        return;
    }
    AppendLocked(std::move(line));
}

// Not before half of the room is free again, so that not every second line tells of the first.
void LogStream::TellDroppedLocked() {
    if (dropped > 0 && queuedBytes <= queueLimit / 2) {
        AppendLocked(LogLine::Format(LogLine::Dropped(std::exchange(dropped, 0)), style,
                                     std::chrono::system_clock::now()));
    }
}

void LogStream::AppendLocked(std::string line) {
    queuedBytes += line.size();
    queue.push_back(std::move(line));
    changed.notify_all();
}

void LogStream::WaitLocked(std::unique_lock<std::mutex>& lock) {
    const auto hasWork = [this] { return !queue.empty() || stopping; };
    while (!hasWork()) {
        if (repeated == 0) {
            changed.wait(lock, [&] { return hasWork() || repeated > 0; });
        } else if (!changed.wait_until(lock, repeatedSince + repeatedFor, hasWork)) {
            TellRepeatedLocked();
        }
    }
}

std::string LogStream::TakeLocked(std::uint64_t& lines) {
    std::string batch;
    lines = 0;
    while (!queue.empty() && (batch.empty() || batch.size() + queue.front().size() <= batchSize)) {
        batch += queue.front();
        queuedBytes -= queue.front().size();
        queue.pop_front();
        ++lines;
    }
    return batch;
}

void LogStream::Run() {
    pthread_setname_np(pthread_self(), "log");
    std::unique_lock lock(mutex);
    for (;;) {
        WaitLocked(lock);
        if (queue.empty()) {
            return;
        }
        std::uint64_t lines = 0;
        const std::string batch = TakeLocked(lines);
        writing = true;
        lock.unlock();
        const bool isWritten = output->Write(batch);
        lock.lock();
        writing = false;
        changed.notify_all();
        if (!isWritten) {
            if (stopping) {
                return;
            }
            dropped += lines;
        } else {
            TellDroppedLocked();
        }
    }
}

}  // namespace Brantel::Server
