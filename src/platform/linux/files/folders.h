// Folders by their path, for the Linux sources that need a descriptor of one.
#pragma once

#include "platform/linux/files/descriptor.h"

#include <dirent.h>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace platform {

/// Asked of each folder on a way, the last one included, before anything is asked of that folder itself.
using MayEnter = std::function<bool(const Descriptor&)>;

/// Opens a folder below HAVREL_ROOT for its place alone (O_PATH), links on the way followed as platform/files.h says;
/// empty when it can't be reached or `mayEnter` refuses it or a folder above it.
Descriptor reachFolder(const std::string& path, const MayEnter& mayEnter);

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

using FolderStream = std::unique_ptr<DIR, CloseFolder>;

/// For reading the names in the folder, which must be open for reading; null when it can't be.
FolderStream streamOf(Descriptor folder);

/// The next name in the folder; nullopt at its end, and of a null stream.
std::optional<std::string> nextName(const FolderStream& folder);

} // namespace platform
