// Property lists in files. Thread-safe.
#pragma once

#include "foundation/value.h"

#include <optional>
#include <string>

namespace havrel {

/// Nullopt if the file is missing, unreadable, too large or damaged. Throws as `platform::files::read` does.
std::optional<platform::Value> readPropertyList(const std::string& path);

/// Replaces the file atomically with the XML form and flushes it to disk. False on failure, also when the value can't
/// be read back.
bool writePropertyList(const std::string& path, const platform::Value& value);

} // namespace havrel
