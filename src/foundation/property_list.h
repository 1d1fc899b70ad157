// The platform's property lists. Input is hostile: its nesting and its size are bounded, and what exceeds a bound
// counts as damaged. What can be read can be written, and what was written can be read. Thread-safe.
#pragma once

#include "foundation/value.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform::property_list {

/// Reads the XML or binary form; nullopt when the bytes are not one whole, well-formed property list. A well-formed
/// scalar that can't be held does not damage the list: a number becomes the nearest one, of data the digits count, and
/// a date's day, hour or second may lie beyond its month, day or minute. A document in an encoding that nobody knows is
/// read as UTF-8 or, if it is not valid UTF-8, as windows-1252.
std::optional<Value> parse(std::string_view bytes);

/// The XML form, as the platform's writer lays it out; nullopt when the value holds a null or exceeds a bound. The form
/// can't hold everything that the binary one can: of texts it has what `storable` keeps, and of dates whole seconds in
/// the years 0 to 9999.
std::optional<std::string> toXml(const Value& value);

/// The text as it is read back after it was stored: invalid UTF-8 repaired, and without the characters that XML can
/// hold in no way, which are the control characters below U+0020 but tab and line breaks, U+FFFE and U+FFFF.
std::string storable(std::string_view text);

} // namespace platform::property_list
