// The platform's property lists. Input is hostile: nesting, nodes and bytes are bounded, and what exceeds a bound
// counts as damaged. Every operation may be called from any thread.
#pragma once

#include "foundation/value.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform::property_list {

/// Reads the XML or binary form; nothing when the bytes are not one whole, well-formed property list.
std::optional<Value> parse(std::string_view bytes);

/// The XML form, as the platform's writer lays it out. Characters that XML cannot hold are left out. Nothing when
/// the value holds a null or nests too deep to be read back.
std::optional<std::string> toXml(const Value& value);

} // namespace platform::property_list
