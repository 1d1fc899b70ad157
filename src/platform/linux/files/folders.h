// Folders by their path, for the Linux sources that need a descriptor of one.
#pragma once

#include "platform/linux/files/descriptor.h"

#include <functional>
#include <string>

namespace platform {

/// Opens a folder at an absolute path below HAVREL_ROOT for its place alone (O_PATH); empty when it is no folder
/// or a link is on the way, or when `mayEnter` refuses it or a folder above it. Nothing is asked of a folder before
/// that.
Descriptor reachFolder(const std::string& path, const std::function<bool(const Descriptor&)>& mayEnter);

} // namespace platform
