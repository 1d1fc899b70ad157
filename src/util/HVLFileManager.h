// Where the preference files lie, and a few questions about the file system. For every application of the product.
#pragma once

#include "foundation/error.h"

#include <cstdint>
#include <optional>
#include <string>

namespace havrel {

/// From any thread.
class HVLFileManager {
  public:
    // The kinds of preference store.
    static constexpr int hostKind = 0;
    static constexpr int viewerKind = 1;
    static constexpr int hostBackupKind = 2;

    /// The preference file of that kind of store for the running application; nothing for any other number.
    static std::optional<std::string> pathForApplicationFile(int kind);

    /// The user's home folder; nothing without a name, for an unknown user or one without a home.
    static std::optional<std::string> getConsoleUserPathForUser(const std::optional<std::string>& userName);

    /// Whether an item of that name stands directly in the machine's application-support folder.
    static bool ifFileExistsOrNot(const std::string& fileName);

    /// The size of all visible items below the folder in whole megabytes of 10^6 bytes; 0 when it cannot be read.
    /// `error` is never written.
    static std::uint64_t sizeForFolderAtPath(const std::string& path, std::optional<platform::Error>& error);

    /// These two do nothing.
    static void updateFile(const std::optional<std::string>& file);
    static void createDirectory();
};

} // namespace havrel
