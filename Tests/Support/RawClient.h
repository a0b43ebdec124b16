#pragma once

#include "Support/ServerProcess.h"
#include "Support/SocketPair.h"

#include <BrantelStorageApiMessages.pb.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace Brantel::Tests {

enum class Transport { Unix, Tcp };

// A connection to a server without anything of our library: it sends what it likes.
class RawClient : public RawPeer {
  public:
    RawClient(const ServerProcess& server, Transport transport);

    void Send(const BrantelStorageApi::Request& request);
    // The length of a message and no more than so many of its bytes, zeros.
    void Announce(std::size_t size, std::size_t sent);
    // Waits for an answer. Throws std::runtime_error when the connection ends before.
    BrantelStorageApi::Response Receive();
    BrantelStorageApi::Response Ask(const BrantelStorageApi::Request& request);

    // What ListTracks answers: "done", or the failure.
    std::string AskForTracks();
    // A reader on a track: its handle.
    std::uint32_t OpenReader(long track);
};

}  // namespace Brantel::Tests
