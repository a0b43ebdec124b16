#pragma once

#include "FaultProxy.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/StorageClientX.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace Brantel::Tests {

// A track and what tells it from the others.
struct ProxiedTrack {
    long id = 0;
    long size = 0;  // as the server says
};

// The property "name" of a track, and the chunk at a time point of it, follow from these numbers
// alone.
std::string TrackName(long track);
ProtocolX::DataChunk ChunkOf(long track, long nanoseconds);

// A client that records into a track of its own, reads it, and asks for others, through a proxy;
// when it loses its connection it makes another one and goes on. It knows every answer beforehand:
// one that is not its own request's is a violation. One thread.
class ProxiedClient {
  public:
    // The proxy and the tracks are borrowed; the first of them at `own` is its own, and empty.
    ProxiedClient(const FaultProxy& proxy, const std::vector<ProxiedTrack>& tracks, std::size_t own,
                  std::uint64_t seed);

    // Makes at least so many calls, lost ones included, and says goodbye.
    void Run(std::uint64_t calls);
    // Walks through its track over this connection: what was answered is there, in order and as it
    // was sent, what was not is there at most once, and nothing else is.
    void CheckTrack(ProtocolX::StorageClientX& direct);

    std::uint64_t Calls() const { return calls; }
    std::uint64_t Answered() const { return answered; }
    std::uint64_t Connections() const { return connections; }
    // How often calls failed, by the exception's text with N for every number.
    const std::map<std::string, std::uint64_t>& Failures() const { return failures; }
    // Appends that were answered, and those that were not but are there.
    std::uint64_t Appended() const { return appended; }
    std::uint64_t FoundUnanswered() const { return found; }
    std::uint64_t ViolationCount() const { return violationCount; }
    // The first few.
    const std::vector<std::string>& Violations() const { return violations; }

  private:
    void Call(const std::function<void()>& work);
    void Connect();
    void OpenWorkers();
    void FindOut();
    void DoAny();
    void Append();
    void ReadOne();
    void Step();
    void AskForTrack();
    void Count();
    void Expect(bool isRight, const std::string& what);
    void ExpectChunk(bool isFound, const ProtocolX::DataChunk& chunk, long nanoseconds);
    void Violate(const std::string& what);
    std::size_t Below(std::size_t end) { return random() % end; }
    // Any time point from before the first chunk to behind the last one.
    long AnyTime();

    const FaultProxy& proxy;
    const std::vector<ProxiedTrack>& tracks;
    const ProxiedTrack own;
    std::mt19937_64 random;
    std::unique_ptr<ProtocolX::StorageClientX> client;
    bool isReady = false;     // connected, with a reader and a writer
    std::vector<long> times;  // of the chunks that are there, in order
    long lastTime = 0;        // of the last chunk that was sent
    bool isUnknown = false;   // whether that one is there
    std::uint64_t calls = 0;
    std::uint64_t answered = 0;
    std::uint64_t connections = 0;
    std::uint64_t appended = 0;
    std::uint64_t found = 0;
    std::map<std::string, std::uint64_t> failures;
    std::uint64_t violationCount = 0;
    std::vector<std::string> violations;
};

}  // namespace Brantel::Tests
