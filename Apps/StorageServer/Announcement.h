#pragma once

#include <string>
#include <vector>

namespace Brantel::Server {

// Tells whoever started the server that it serves.
class Announcement {
  public:
    // The descriptor that gets the addresses; -1: none. Throws std::system_error when it is not
    // open.
    explicit Announcement(int readyDescriptor);

    // Prints the addresses on the standard output, and writes them, one a line, to the descriptor,
    // which it closes. A reader that has gone away is no error; anything else throws
    // std::system_error.
    void Announce(const std::vector<std::string>& addresses);

  private:
    int readyDescriptor;
};

}  // namespace Brantel::Server
