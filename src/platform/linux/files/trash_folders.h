// Where desktops keep what a user throws away. The product's own place for it is "/Users/NAME/.Trash".
#pragma once

#include "platform/linux/files/watched_folders.h"

#include <string>
#include <vector>

namespace platform {

/// The folders of these paths and, behind each user's Trash, those that stand in for it: one in the user's home, and
/// two at the top of every other file system in which one of the paths lies, for a desktop only moves within one.
std::vector<WatchedFolder> withDesktopTrashes(const std::vector<std::string>& paths);

} // namespace platform
