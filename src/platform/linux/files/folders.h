// Folders by their path, for the Linux sources that need a descriptor of one.
#pragma once

#include "platform/linux/files/descriptor.h"

#include <functional>
#include <string>

namespace platform {

/// Asked of each folder on a way, the last one included, before anything is asked of that folder itself.
using MayEnter = std::function<bool(const Descriptor&)>;

/// Opens a folder below HAVREL_ROOT for its place alone (O_PATH), links on the way followed as platform/files.h says;
/// empty when it can't be reached or `mayEnter` refuses it or a folder above it.
Descriptor reachFolder(const std::string& path, const MayEnter& mayEnter);

} // namespace platform
