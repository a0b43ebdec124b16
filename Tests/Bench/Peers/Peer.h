#pragma once

#include "Bench/Transport.h"

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::Bench {

// What one connection does again and again.
enum class Work {
    Ask,     // a small question with an answer of 8 bytes
    Append,  // one more value of Task::size bytes
    Read,    // one of the last KeptOf values, in turn
    Next,    // the value that comes after the one got before, from walkValues; then from the start
    Previous,  // likewise backwards
    Wait       // until a value is there that was not when the call before ended
};

// What an answered append survives.
enum class Keeping {
    Memory,    // nothing: the values are in memory
    System,    // the end of the server: the bytes are with the operating system
    Interval,  // a loss of power, but for the last second
    Always     // a loss of power
};

// How many values of `size` bytes a server keeps: as many as ours does, where a track has 32 times
// the room of its largest chunk; of the smaller ones, which leave a track of the least size room
// for more, four.
constexpr std::size_t KeptOf(std::size_t size) {
    constexpr std::size_t few = 4;
    constexpr std::size_t asATrack = 33;
    constexpr std::size_t large = std::size_t{512} << 10U;
    return size > large ? asATrack : few;
}
constexpr std::size_t walkValues = 1000;

struct Task {
    Work work = Work::Ask;
    Transport transport = Transport::Unix;
    std::size_t size = 0;    // of the values, in bytes
    bool isAwaited = false;  // of appends: another connection waits for them
    bool inHalves = false;   // Ask and Hear are called instead of Call
};

// One connection that is open for one task. Used by one thread at a time; closed at its end.
class ICalls {
  public:
    virtual ~ICalls() = default;

    // One request and its answer. Throws std::runtime_error when the answer is not what it has to
    // be.
    virtual void Call() = 0;

    // The halves of Call, for one thread that has many connections: Ask sends the request, Hear
    // takes the answer, which has begun to come. The descriptor, borrowed, is the socket that it
    // comes from. Only for tasks in halves, and of those that can.
    virtual void Ask() { throw std::logic_error("No calls in halves"); }
    virtual void Hear() { throw std::logic_error("No calls in halves"); }
    virtual int Descriptor() const { throw std::logic_error("No calls in halves"); }

  protected:
    ICalls() = default;
    ICalls(const ICalls&) = default;
    ICalls& operator=(const ICalls&) = default;
};

// A server that runs in a process of its own and ends with this object.
class IPeer {
  public:
    virtual ~IPeer() = default;

    // Connects and makes sure that what the task reads is there. Threads may open at once.
    virtual std::unique_ptr<ICalls> Open(const Task& task) = 0;

    virtual pid_t Process() const = 0;

  protected:
    IPeer() = default;
    IPeer(const IPeer&) = default;
    IPeer& operator=(const IPeer&) = default;
};

// One that can be measured beside the others.
struct PeerKind {
    std::string name;
    std::string about;    // what it is and which of its ways is taken
    std::string missing;  // why it can't be measured here; "": it can
    std::function<bool(const Task&, Keeping)> does;
    // With a folder of its own, which it may fill.
    std::function<std::unique_ptr<IPeer>(const std::string& folder, Keeping)> start;
    // The server's side, for those that are part of the benchmark: serves the socket "socket" in
    // the folder and a free port of 127.0.0.1, whose number it tells `ready` once it listens. Null
    // for programs of others.
    std::function<void(const std::string& folder, const std::function<void(int)>& ready)> serve;
    // More at once are too many for it.
    std::size_t mostConnections = std::numeric_limits<std::size_t>::max();
    bool hasHalves = false;  // its calls can be made in halves
};

}  // namespace Brantel::Bench
