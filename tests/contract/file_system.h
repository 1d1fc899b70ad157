// What the cases for file-system events ask of the real file system and of its stand-in alike.
#pragma once

#include "platform/file_system_events.h"

#include <memory>
#include <string>
#include <vector>

namespace contract {

/// The batch as "/Apps/A.app/ > /Trash/A.app/"; the path of a folder ends in "/".
inline std::string lineOf(const std::vector<platform::FileSystemEvent>& batch) {
    std::string line;
    for (const auto& [path, flags] : batch) {
        line += line.empty() ? "" : " > ";
        line += path + ((flags & platform::itemIsDir) != 0 ? "/" : "");
    }
    return line;
}

/// Folders at the root, of which some are watched by one stream.
class FileSystem {
  public:
    FileSystem() = default;
    virtual ~FileSystem() = default;
    FileSystem(const FileSystem&) = delete;
    FileSystem& operator=(const FileSystem&) = delete;

    virtual void makeFolder(const std::string& path) = 0;
    virtual void makeFile(const std::string& path) = 0;
    virtual void watch(const std::vector<std::string>& paths) = 0;
    virtual void rename(const std::string& source, const std::string& destination) = 0;
    /// The lines of the batches that the stream has handed on so far, once all that was done has been told.
    virtual std::vector<std::string> told() = 0;
};

/// Defined once beside the stand-ins and once beside the tests of the platform.
std::unique_ptr<FileSystem> makeFileSystem();

} // namespace contract
