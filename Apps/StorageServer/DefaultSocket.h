#pragma once

#include "ListenAddress.h"

#include <string>

namespace Brantel::Server {

// Where a server listens when nobody says otherwise: storage.sock in a folder of its own, which
// lies in /run for root and in $XDG_RUNTIME_DIR for everybody else.
class DefaultSocket {
  public:
    // `runtimeFolder`: what $XDG_RUNTIME_DIR holds, empty when it is not set. Throws
    // std::runtime_error when there is no such place for this user.
    static ListenAddress Find(bool isRoot, const std::string& runtimeFolder);

    // Makes the folder that the socket lies in, which everybody may enter, unless it is there.
    // Throws std::runtime_error.
    static void MakeFolder(const ListenAddress& address);
};

}  // namespace Brantel::Server
