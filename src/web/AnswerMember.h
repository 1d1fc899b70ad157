// What the preferences may take over from the web service's answers.
#pragma once

#include "foundation/value.h"

#include <optional>
#include <string_view>

namespace havrel {

/// In bytes. Every read of a preference reads the whole file, so that one long text would slow down everything.
inline constexpr std::size_t longestStoredText = 4096;

/// The member of that name of a JSON object; nullopt when there is none or it isn't to be stored: a null, a container,
/// or a text of more than `longestStoredText`. Thread-safe.
std::optional<platform::Value> storableMember(const std::optional<platform::Value>& answer, std::string_view name);

} // namespace havrel
