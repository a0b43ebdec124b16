#pragma once

#include "Support/ProgramRun.h"

#include <libProtocolX/StorageClientX.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace Brantel::Tests {

// A storage server, listening on a Unix-domain socket and on a free TCP port of 127.0.0.1. Its
// constructor returns when it serves.
class ServerProcess {
  public:
    // An orderly end takes at most so long.
    static constexpr std::chrono::milliseconds endLimit{5000};

    // The socket's path, and options beside those it needs; with the memory engine unless they
    // name a folder, with everything allowed over TCP unless they name a role, and without a file
    // of settings unless they name one. Throws std::runtime_error with what the server said when it
    // does not start.
    explicit ServerProcess(const std::string& socketPath,
                           const std::vector<std::string>& options = {});

    // The path of the program.
    static std::string Program();

    // The options of a server on this folder, which takes the space of new tracks in this way.
    static std::vector<std::string> OnFolder(const std::string& folder,
                                             const std::string& preparation = "allocate");

    const std::string& SocketPath() const { return socketPath; }
    unsigned short Port() const { return port; }
    ProgramRun& Process() { return *process; }

    // The lines it wrote to its ready descriptor.
    const std::vector<std::string>& Addresses() const { return addresses; }

    // Asks for the end by a signal: the exit code, -1 when it takes longer than endLimit.
    int Stop();
    int Stop(int signal);

    // A client of its own over either transport.
    std::unique_ptr<ProtocolX::StorageClientX> ConnectOverUnix() const;
    std::unique_ptr<ProtocolX::StorageClientX> ConnectOverTcp() const;

  private:
    const std::string socketPath;
    std::unique_ptr<ProgramRun> process;
    std::vector<std::string> addresses;
    unsigned short port = 0;
};

// A new track of this many bytes, whose command has finished.
long CreateTrack(ProtocolX::StorageClientX& client, long size = 16L << 20U);

// Appends a chunk of 1 ns with one data block.
void AppendChunk(ProtocolX::StorageClientX& client, long track, long nanoseconds,
                 const std::string& bytes);

// The data block of the chunk at this time point; "not found" when there is none.
std::string ReadChunk(ProtocolX::StorageClientX& client, long track, long nanoseconds);

// The time points of all chunks, in nanoseconds, walked forwards.
std::vector<long> TimesOf(ProtocolX::StorageClientX& client, long track);

}  // namespace Brantel::Tests
