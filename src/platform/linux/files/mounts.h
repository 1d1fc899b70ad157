// Which file systems can be trusted to answer: one that another process or another machine serves may block whoever
// touches it, for good.
#pragma once

#include "platform/linux/files/descriptor.h"

#include <cstdint>
#include <map>
#include <string>

namespace platform {

/// The mounts of this moment. For one thread.
class Mounts {
  public:
    /// Throws Exception when the system's table can't be read.
    Mounts();

    /// Opens the folder at an absolute path below HAVREL_ROOT for its place alone (O_PATH), without asking anything of
    /// a file system that may not answer. None when there is no such folder or it lies in such a file system.
    /// Links on the way are followed as platform/files.h says.
    Descriptor reach(const std::string& path) const;

    /// The topmost folder of the file system that the path lies in, or would lie in; "/" at the most.
    std::string topOf(const std::string& path) const;

  private:
    bool answer(const Descriptor& folder) const;

    std::map<std::uint64_t, std::string> types_;
};

} // namespace platform
