// The platform's property lists. Input is hostile: nesting, nodes and bytes are bounded, and what exceeds a bound
// counts as damaged. Thread-safe.
#pragma once

#include "foundation/value.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform::property_list {

/// Reads the XML or binary form; nullopt when the bytes are not one whole, well-formed property list.
std::optional<Value> parse(std::string_view bytes);

/// The XML form, as the platform's writer lays it out; nullopt when the value holds a null or exceeds a bound. Of
/// texts it holds what `storable` keeps, of dates whole seconds of the years 0 to 9999.
std::optional<std::string> toXml(const Value& value);

/// The text as it is read back after it was stored: invalid UTF-8 repaired, and without the characters that XML can
/// hold in no way, which are the control characters below U+0020 but tab and line breaks, U+FFFE and U+FFFF.
std::string storable(std::string_view text);

} // namespace platform::property_list
