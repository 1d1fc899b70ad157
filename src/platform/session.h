// Users of this machine, asked for anew each time. From any thread.
#pragma once

#include <optional>
#include <string>

namespace platform::session {

/// The user logged in at the graphical console; nothing when there is none.
std::optional<std::string> consoleUser();

/// The home folder that the user database gives; nothing for an unknown user or an empty entry.
std::optional<std::string> homeFolder(const std::string& user);
/// The home folder of the user that this process runs as.
std::string currentHomeFolder();

} // namespace platform::session
