// Paths of the preference files, and a few queries of the file system that the product's applications share.
#pragma once

#include "foundation/error.h"

#include <cstdint>
#include <optional>
#include <string>

namespace havrel {

/// Thread-safe. Optional results are nullopt when there is none.
class HVLFileManager {
  public:
    // Kinds of preference store.
    static constexpr int hostKind = 0;
    static constexpr int viewerKind = 1;
    static constexpr int hostBackupKind = 2;

    /// The preference file of that kind of store for the running application; nullopt for any other number.
    static std::optional<std::string> pathForApplicationFile(int kind);

    /// The home folder from the user database.
    static std::optional<std::string> getConsoleUserPathForUser(const std::optional<std::string>& userName);

    /// Whether the machine-wide application-support folder directly contains an item of that name.
    static bool ifFileExistsOrNot(const std::string& fileName);

    /// Total size of the visible items below the folder in whole megabytes (10^6 bytes), rounded down; 0 if it can't
    /// be read. `error` is never written.
    static std::uint64_t sizeForFolderAtPath(const std::string& path, std::optional<platform::Error>& error);

    /// Both do nothing.
    static void updateFile(const std::optional<std::string>& file);
    static void createDirectory();
};

} // namespace havrel
