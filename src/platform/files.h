// The file system, seen through HAVREL_ROOT. Paths are absolute. No component of a path below the root may be a
// link, and only regular files are read or replaced: the product's folders are writable for everyone, so
// whatever else stands there is an attack and counts as unreadable. Errors show only in the results; nothing throws
// but std::bad_alloc. Every operation may be called from any thread.
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

/// The most that a property list, JSON or log file may hold, in bytes.
inline constexpr std::size_t readLimit = documentLimit;

/// Whether the new content must be on the disk before it takes the old one's place.
enum class Durability { cached, flushed };

/// Whether something of that name is there, whatever it is.
bool exists(const std::string& path);

/// The whole content; nothing when it is no regular file, unreadable or longer than `limit` bytes.
std::optional<std::string> read(const std::string& path, std::size_t limit = readLimit);

/// Replaces the content atomically: a reader sees the whole old file or the whole new one. An existing file's mode and
/// owner are kept, a new one is 0644. The folder must exist. On failure the old file and nothing else is left.
bool replace(const std::string& path, std::string_view content, Durability durability);

/// Waits for the replacements under way; later ones wait for good. For the end of the process, which else might leave
/// a file of ours behind.
void endWrites();

/// Creates an empty file (0644) unless something of that name is there; false when there is no file afterwards.
bool createEmpty(const std::string& path);
/// Creates the folder (0755) and its missing parents; false when there is no folder afterwards.
bool createFolders(const std::string& path);
/// Sets the permission bits (as in chmod) of a file or folder.
bool setPermissions(const std::string& path, unsigned mode);
/// Removes a file or a link; folders stay.
bool remove(const std::string& path);

/// Names in a folder, sorted, without "." and ".."; empty when it cannot be read.
std::vector<std::string> list(const std::string& path);

/// Calls `visit` with the size in bytes of each visible item below the folder, folders included; links are not
/// followed, items whose name begins with "." are passed over with all below them, and what lies deeper than 128
/// folders is not counted. Memory does not grow with the number of items.
void walkVisible(const std::string& path, const std::function<void(std::uint64_t bytes)>& visit);

} // namespace platform::files
