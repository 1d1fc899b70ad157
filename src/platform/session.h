// Users of this machine, looked up anew each time. Thread-safe; nullopt when absent.
#pragma once

#include <optional>
#include <set>
#include <string>

namespace platform::session {

/// The user whose desktop is at the console. Login screens and text logins do not count.
std::optional<std::string> consoleUser();

/// The names of those who may have a Trash: the entries of "/Users", whatever they are, and, on a system that keeps its
/// homes elsewhere, every user with a login and a home. Sorted.
std::set<std::string> users();

/// The home folder of a user; nullopt for an unknown one and for one without.
std::optional<std::string> homeFolder(const std::string& user);
/// The home folder of the user that this process runs as, "/" when it has none.
std::string currentHomeFolder();

} // namespace platform::session
