#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

namespace Brantel::Server {

// One call of a client that has been carried out or refused. A value that borrows its texts for the
// time of the call of the observer.
struct OperationRecord {
    // What the call does, from the harmless to what only an operator may.
    enum class Kind {
        Query,   // asks the storage
        Read,    // an operation of a reader, its opening and closing included
        Append,  // an operation of a writer, its opening and closing included
        Change   // changes tracks, properties or protections
    };
    enum class Outcome {
        Done,
        Failed,   // by the storage, for a reason that `failure` gives
        Denied,   // the client's role does not allow it
        Limited,  // refused by a limit of the server
    };

    // As in "Permission denied: ClearTrack needs role admin"; a literal.
    std::string_view operation;
    Kind kind = Kind::Query;
    Outcome outcome = Outcome::Done;
    // What the client is told; empty when it is Done.
    std::string_view failure;
    // -1: none, or not known.
    std::int64_t trackId = -1;
    // From 1 up, never given twice while the server runs.
    std::uint64_t connectionId = 0;
    // For people, as PeerAddress says it.
    std::string_view peer;
    // Payload bytes that the call brought or took: of chunks only.
    std::uint64_t bytes = 0;
    // From the parsed request to the answer that is ready to be sent.
    std::chrono::nanoseconds duration{0};
};

// Is told of every call, on the thread that carried it out, several at once, before the client gets
// its answer: must be quick and thread-safe.
class IOperationObserver {
  public:
    virtual ~IOperationObserver() = default;
    virtual void OnOperation(const OperationRecord& record) noexcept = 0;
};

}  // namespace Brantel::Server
