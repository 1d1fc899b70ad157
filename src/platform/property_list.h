// The platform's property lists. Input is hostile: nesting, nodes and bytes are bounded, and what exceeds a bound
// counts as damaged. Every operation may be called from any thread.
#pragma once

#include "platform/files.h"
#include "platform/value.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform::property_list {

/// Reads the XML or binary form; nothing when the bytes are not one whole, well-formed property list.
std::optional<Value> parse(std::string_view bytes);

/// The XML form, as the platform's writer lays it out. Characters that XML cannot hold are left out. Nothing when
/// the value holds a null or nests too deep to be read back.
std::optional<std::string> toXml(const Value& value);

/// Reads a file; nothing when it is missing, unreadable, too large or damaged.
std::optional<Value> readFile(const std::string& path);
/// Replaces the file atomically by the XML form, flushed to disk; false when it could not or when the
/// file would be too large to be read again.
bool writeFile(const std::string& path, const Value& value);

} // namespace platform::property_list
