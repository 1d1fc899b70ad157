// Files that the system itself keeps (sysfs, procfs, /etc), where links are part of the layout. For the Linux sources
// only; whatever users may write goes through platform/files.h.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// `path`, which is absolute, with HAVREL_ROOT in front.
std::string underRoot(std::string_view path);

/// Everything that is left to read from a descriptor; nothing on an error or when there is more than `limit` bytes.
std::optional<std::string> readAll(int descriptor, std::size_t limit);

/// Writes everything; false when the system takes no more.
bool writeAll(int descriptor, std::string_view content) noexcept;

/// The whole content of the file below HAVREL_ROOT, links followed; nothing when it is no regular file, unreadable or
/// longer than `limit` bytes. Never blocks.
std::optional<std::string> readSystemFile(std::string_view path, std::size_t limit = std::size_t{64} << 10);

/// The value that lines of the form NAME=value, NAME="value" give a name; the last one counts.
std::optional<std::string> assignedValue(std::string_view lines, std::string_view name);

} // namespace platform
