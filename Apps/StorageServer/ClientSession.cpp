#include "ClientSession.h"

#include <utility>

namespace Brantel::Server {

ClientSession::ClientSession(std::uint64_t connectionId, std::string peer, Role role,
                             const ServerLimits& limits, RefusalCounters& refusals,
                             const Observers& observers)
    : connectionId(connectionId),
      peer(std::move(peer)),
      role(role),
      limits(limits),
      observers(observers),
      refusals(refusals) {}

void ClientSession::CheckWorkers() {
    if (openWorkers >= limits.workersPerConnection) {
        ++refusals.workers;
        throw LimitReached(std::to_string(openWorkers + 1) +
                           " open readers and writers on one connection are over the limit of " +
                           std::to_string(limits.workersPerConnection));
    }
}

void ClientSession::CheckIds(std::size_t ids) {
    if (ids > limits.idsPerRequest) {
        ++refusals.ids;
        throw LimitReached(std::to_string(ids) + " ids in one request are over the limit of " +
                           std::to_string(limits.idsPerRequest));
    }
}

void ClientSession::Deny(const Operation& operation) {
    throw PermissionDenied(std::string("Permission denied: ") + operation.name + " needs role " +
                           std::string(NameOf(operation.needed)));
}

void ClientSession::Tell(OperationRecord& record, Clock::time_point start) const noexcept {
    record.duration = Clock::now() - start;
    for (IOperationObserver* const observer : observers) {
        observer->OnOperation(record);
    }
}

void ClientSession::TellFailure(OperationRecord& record, Clock::time_point start,
                                const std::exception& failure) const noexcept {
    using Outcome = OperationRecord::Outcome;
    record.outcome = Outcome::Failed;
    if (dynamic_cast<const PermissionDenied*>(&failure) != nullptr) {
        record.outcome = Outcome::Denied;
    } else if (dynamic_cast<const LimitReached*>(&failure) != nullptr) {
        record.outcome = Outcome::Limited;
    }
    record.failure = failure.what();
    Tell(record, start);
}

}  // namespace Brantel::Server
