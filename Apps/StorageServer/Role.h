#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Brantel::Server {

// What a client may do; each role may do what those before it may.
enum class Role : std::uint8_t {
    None,    // nothing
    Reader,  // every question, and all that readers do
    Writer,  // append
    Editor,  // track properties, protect, unprotect
    Admin,   // create, grow, clear, delete
};

// "reader", "writer", "editor", "admin", and "none".
std::string_view NameOf(Role role);
// Not set: no such name.
std::optional<Role> FindRole(std::string_view name);

}  // namespace Brantel::Server
