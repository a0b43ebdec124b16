#include "Role.h"

#include <array>

namespace Brantel::Server {

namespace {

constexpr std::array roles{Role::None, Role::Reader, Role::Writer, Role::Editor, Role::Admin};

}  // namespace

std::string_view NameOf(Role role) {
    switch (role) {
        case Role::None: return "none";
        case Role::Reader: return "reader";
        case Role::Writer: return "writer";
        case Role::Editor: return "editor";
        case Role::Admin: break;
    }
    return "admin";
}

std::optional<Role> FindRole(std::string_view name) {
    for (const Role role : roles) {
        if (NameOf(role) == name) {
            return role;
        }
    }
    return std::nullopt;
}

}  // namespace Brantel::Server
