// The machine's own users, whatever HAVREL_ROOT says.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

namespace platform::user_database {

struct User {
    std::string name;
    uid_t id = 0;
    gid_t group = 0;
    std::string home;
};

/// The user of that name or number; nothing when there is none. From any thread.
std::optional<User> find(const std::string& name);
std::optional<User> find(uid_t id);

} // namespace platform::user_database
