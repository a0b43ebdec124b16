#pragma once

#include "Role.h"

#include <libServices/PeerAddress.h>

#include <cstdint>
#include <map>
#include <string>

namespace Brantel::Server {

// Which client has which role. On a Unix-domain socket the system vouches for the user and the
// group of the peer: root and the server's own user are admin; others have the highest role that
// their user or group was given, and none without one. All clients over TCP have one role. A value.
class AccessRules {
  public:
    // Takes over "user:NAME=ROLE", "group:NAME=ROLE", by name or number. Throws
    // std::invalid_argument that names the text and what is wrong with it.
    void Allow(const std::string& text);

    // `ownUser`: whom the server runs as.
    Role RoleOf(const Services::PeerAddress& peer, std::int64_t ownUser) const;

    Role overTcp = Role::Reader;

  private:
    std::map<std::int64_t, Role> users;
    std::map<std::int64_t, Role> groups;
};

}  // namespace Brantel::Server
