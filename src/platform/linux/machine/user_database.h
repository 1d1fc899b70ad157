// The machine's user database, whatever HAVREL_ROOT says. Thread-safe; nullopt when absent.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace platform {

struct User {
    std::string name;
    uid_t id = 0;
    gid_t group = 0;
    std::string home;
    std::string shell;
};

} // namespace platform

namespace platform::user_database {

/// Those that the database lists; one kept on a server may not list all that it finds.
std::vector<User> all();

std::optional<User> find(const std::string& name);
std::optional<User> find(uid_t id);

} // namespace platform::user_database
