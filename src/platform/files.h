// The file system below HAVREL_ROOT. The product's folders are writable for everyone, so whatever stands there may be
// an attack: only regular files are read, and a link on the way to a file or a folder is followed only if it belongs to
// root and nobody else may write in any folder up to it. Paths are absolute, one with ".." or a zero byte names
// nothing. Thread-safe; errors show only in the results unless said otherwise.
#pragma once

#include "foundation/limits.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform::files {

/// The longest file that is read unless the caller says otherwise, in bytes. For property lists it is less
/// (`propertyListLimit`).
inline constexpr std::size_t readLimit = documentLimit;

/// Whether the new content must be on the disk before it replaces the old.
enum class Durability { cached, flushed };

/// Whether there is anything of that name, even a dangling link.
bool exists(const std::string& path);

// Both readers throw platform::Exception when descriptors or memory run out or the disk fails. Nobody knows then what
// the file holds, so nobody may replace it by what nullopt stands for.

/// The whole content; nullopt when the file is absent, not regular, unreadable or longer than `limit` bytes.
std::optional<std::string> read(const std::string& path, std::size_t limit = readLimit);
/// The last `limit` bytes of the content, or all of it.
std::optional<std::string> readEnd(const std::string& path, std::size_t limit);

/// Replaces the content atomically: a reader sees the old file or the new one, never a part. A regular file's mode and
/// owner are kept; a new file is 0644, and so is one in place of a link, pipe, socket or device. False when the folder
/// can't be reached, a folder is in the file's place (both said once on standard error) or writing fails; then nothing
/// changes. Nor does it when a file that is to be flushed holds that content already.
bool replace(const std::string& path, std::string_view content, Durability durability);

/// Waits for the replacements under way and blocks later ones for good, so that the end of the process leaves no
/// temporary file.
void endWrites();

/// Creates an empty file (0644) unless the name is taken. True when a regular file is there afterwards.
bool createEmpty(const std::string& path);
/// Creates the folder and its missing parents (0755). True when the folder is there afterwards.
bool createFolders(const std::string& path);
/// Sets the permission bits, as chmod does, of a folder or of a regular file without other names.
bool setPermissions(const std::string& path, unsigned mode);
/// Removes the temporary files that killed writers have left in the folder and in the folders in it, except those that
/// another file system is mounted on.
void removeTemporaries(const std::string& path);
/// Removes anything but a folder.
bool remove(const std::string& path);

/// The names in a folder, sorted, without "." and ".."; empty when it can't be read. Throws as `read` does.
std::vector<std::string> list(const std::string& path);

/// Calls `visit` with the size in bytes of each item below the folder, folders included. Names that begin with "." are
/// left out with all below them, links are not followed, and what is nested deeper than 128 folders is left out. Memory
/// doesn't grow with the number of items.
void walkVisible(const std::string& path, const std::function<void(std::uint64_t bytes)>& visit);

} // namespace platform::files
