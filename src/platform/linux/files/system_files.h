// The system's own files (sysfs, procfs, /etc), where links are part of the layout; what users may write is read
// through platform/files.h. Thread-safe; nullopt when absent, unreadable or longer than `limit` bytes.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// `path`, which is absolute, with HAVREL_ROOT in front.
std::string underRoot(std::string_view path);

/// Everything that is left to read from a descriptor; `errno` tells why it is absent.
std::optional<std::string> readAll(int descriptor, std::size_t limit);

/// Writes everything; false on an error.
bool writeAll(int descriptor, std::string_view content) noexcept;

/// Whether a call failed with this `errno` for want of descriptors or memory, which says nothing about the file.
bool isShortage(int error);

/// The whole content of a regular file below HAVREL_ROOT, links followed. Never blocks. Throws Exception in a shortage:
/// a fact that can't be read just now must not be taken for one that the machine lacks.
std::optional<std::string> readSystemFile(std::string_view path, std::size_t limit = std::size_t{64} << 10);

/// The value of `name` in lines of the form NAME=value, NAME="value" or export NAME=value; the last one counts.
std::optional<std::string> assignedValue(std::string_view lines, std::string_view name);

} // namespace platform
