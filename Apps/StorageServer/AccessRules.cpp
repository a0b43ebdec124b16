#include "AccessRules.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace Brantel::Server {

namespace {

constexpr std::string_view userPrefix = "user:";
constexpr std::string_view groupPrefix = "group:";

[[noreturn]] void Refuse(const std::string& text, const std::string& reason) {
    throw std::invalid_argument("Access " + text + ": " + reason);
}

std::optional<std::int64_t> NumberOf(const std::string& name) {
    std::uint32_t number = 0;
    const char* const end = name.data() + name.size();
    const auto [rest, error] = std::from_chars(name.data(), end, number);
    return error == std::errc() && rest == end ? std::optional<std::int64_t>(number) : std::nullopt;
}

// Called while the options are read, before there are threads.
std::optional<std::int64_t> UserOf(const std::string& name) {
    const passwd* const entry = getpwnam(name.c_str());  // NOLINT(concurrency-mt-unsafe)
    return entry == nullptr ? std::nullopt : std::optional<std::int64_t>(entry->pw_uid);
}

std::optional<std::int64_t> GroupOf(const std::string& name) {
    const group* const entry = getgrnam(name.c_str());  // NOLINT(concurrency-mt-unsafe)
    return entry == nullptr ? std::nullopt : std::optional<std::int64_t>(entry->gr_gid);
}

Role Find(const std::map<std::int64_t, Role>& roles, std::int64_t id) {
    const auto found = roles.find(id);
    return found == roles.end() ? Role::None : found->second;
}

}  // namespace

void AccessRules::Allow(const std::string& text) {
    const std::size_t equals = text.rfind('=');
    const bool isUser = text.starts_with(userPrefix);
    if ((!isUser && !text.starts_with(groupPrefix)) || equals == std::string::npos) {
        Refuse(text, "it is neither user:NAME=ROLE nor group:NAME=ROLE");
    }
    const std::size_t begin = isUser ? userPrefix.size() : groupPrefix.size();
    if (equals <= begin) {
        Refuse(text, "the name is missing");
    }
    const std::string name = text.substr(begin, equals - begin);
    const std::optional<Role> role = FindRole(std::string_view(text).substr(equals + 1));
    if (!role) {
        Refuse(text, "\"" + text.substr(equals + 1) +
                         "\" is no role; none, reader, writer, editor and admin are");
    }
    std::optional<std::int64_t> id = NumberOf(name);
    if (!id) {
        id = isUser ? UserOf(name) : GroupOf(name);
    }
    if (!id) {
        Refuse(text, (isUser ? "there is no user " : "there is no group ") + name);
    }
    (isUser ? users : groups)[*id] = *role;
}

Role AccessRules::RoleOf(const Services::PeerAddress& peer, std::int64_t ownUser) const {
    if (peer.kind == Services::PeerAddress::Kind::Tcp) {
        return overTcp;
    }
    if (peer.user == 0 || (peer.user >= 0 && peer.user == ownUser)) {
        return Role::Admin;
    }
    return std::max(Find(users, peer.user), Find(groups, peer.group));
}

}  // namespace Brantel::Server
