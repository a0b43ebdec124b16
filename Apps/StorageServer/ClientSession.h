#pragma once

#include "IOperationObserver.h"
#include "RefusalCounters.h"
#include "Role.h"
#include "ServerLimits.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Server {

// The client's role does not allow what it asked for.
class PermissionDenied : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The client asked for more than the server gives one client.
class LimitReached : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What the adapters of one connection share: who the client is, what it may do, what it has open,
// and who is told of it. Used by the thread that serves the connection.
class ClientSession {
  public:
    struct Operation {
        const char* name;
        OperationRecord::Kind kind;
        Role needed;
    };
    using Observers = std::vector<IOperationObserver*>;

    // The counters and the observers are borrowed.
    ClientSession(std::uint64_t connectionId, std::string peer, Role role,
                  const ServerLimits& limits, RefusalCounters& refusals,
                  const Observers& observers);
    ClientSession(const ClientSession&) = delete;
    ClientSession& operator=(const ClientSession&) = delete;
    ~ClientSession() = default;

    // Does a call's work, if the role allows it, and tells the observers how it ended; without
    // observers not even the clock is read. The work gets the record, where it may complete the
    // track and the bytes. What it throws goes on unchanged.
    template <class Work>
    void Carry(const Operation& operation, std::int64_t trackId, const Work& work);

    // Tells of the end of a reader or writer, which is never refused; the work does not throw.
    template <class Work>
    void Close(const Operation& operation, std::int64_t trackId, const Work& work) noexcept;

    bool IsObserved() const { return !observers.empty(); }

    // Before a reader or writer is opened; throws LimitReached when the connection has too many.
    void CheckWorkers();
    void WorkerOpened() { ++openWorkers; }

    // Throws LimitReached when so many ids are more than one request may hold.
    void CheckIds(std::size_t ids);

  private:
    using Clock = std::chrono::steady_clock;

    OperationRecord Begin(const Operation& operation, std::int64_t trackId) const {
        OperationRecord record;
        record.operation = operation.name;
        record.kind = operation.kind;
        record.trackId = trackId;
        record.connectionId = connectionId;
        record.peer = peer;
        return record;
    }
    void Require(const Operation& operation) const {
        if (role < operation.needed) {
            Deny(operation);
        }
    }
    [[noreturn]] static void Deny(const Operation& operation);
    void Tell(OperationRecord& record, Clock::time_point start) const noexcept;
    void TellFailure(OperationRecord& record, Clock::time_point start,
                     const std::exception& failure) const noexcept;

    // Constant after construction.
    const std::uint64_t connectionId;
    const std::string peer;
    const Role role;
    const ServerLimits limits;
    const Observers& observers;
    // Synchronised by themselves.
    RefusalCounters& refusals;
    // The serving thread's.
    std::uint64_t openWorkers = 0;
};

template <class Work>
void ClientSession::Carry(const Operation& operation, std::int64_t trackId, const Work& work) {
    OperationRecord record = Begin(operation, trackId);
    if (observers.empty()) {
        Require(operation);
        work(record);
        return;
    }
    const Clock::time_point start = Clock::now();
    try {
        Require(operation);
        work(record);
    } catch (const std::exception& failure) {
        TellFailure(record, start, failure);
        throw;
    }
    Tell(record, start);
}

template <class Work>
void ClientSession::Close(const Operation& operation, std::int64_t trackId,
                          const Work& work) noexcept {
    OperationRecord record = Begin(operation, trackId);
    const Clock::time_point start = observers.empty() ? Clock::time_point() : Clock::now();
    work();
    --openWorkers;
    if (!observers.empty()) {
        Tell(record, start);
    }
}

}  // namespace Brantel::Server
