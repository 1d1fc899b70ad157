// Folders by their path, for the Linux sources that need a descriptor of one.
#pragma once

#include "platform/linux/files/descriptor.h"

#include <string>

namespace platform {

/// Opens a folder below HAVREL_ROOT for reading; empty when it is no folder or a link is on the way.
Descriptor openFolder(const std::string& path);

} // namespace platform
