// Property lists in files. Thread-safe.
#pragma once

#include "foundation/value.h"

#include <optional>
#include <string>

namespace havrel {

/// Nullopt when the file is missing, unreadable, too large or damaged.
std::optional<platform::Value> readPropertyList(const std::string& path);

/// Replaces the file atomically by the XML form, flushed to disk. False when it could not, or when the result would be
/// too large to be read back.
bool writePropertyList(const std::string& path, const platform::Value& value);

} // namespace havrel
