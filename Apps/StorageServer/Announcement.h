#pragma once

#include <string>
#include <vector>

namespace Brantel::Server {

// Tells whoever started the server that it serves.
class Announcement {
  public:
    // The descriptor and the file that get the addresses; -1 and empty: none. Throws
    // std::system_error when the descriptor is not open.
    Announcement(int readyDescriptor, std::string file);

    // Writes the addresses, one a line, to the file, which appears whole, prints them on the
    // standard output, and writes them to the descriptor, which it closes. A reader that has gone
    // away is no error; anything else throws std::system_error.
    void Announce(const std::vector<std::string>& addresses);

  private:
    void WriteFile(const std::string& text) const;

    int readyDescriptor;
    const std::string file;
};

}  // namespace Brantel::Server
