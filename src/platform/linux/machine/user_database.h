// The machine's user database, whatever HAVREL_ROOT says. Thread-safe; nullopt when absent.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

namespace platform {

struct User {
    std::string name;
    uid_t id = 0;
    gid_t group = 0;
    std::string home;
};

} // namespace platform

namespace platform::user_database {

std::optional<User> find(const std::string& name);
std::optional<User> find(uid_t id);

} // namespace platform::user_database
