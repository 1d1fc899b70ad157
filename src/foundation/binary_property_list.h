// The binary form of property lists; `property_list::parse` is what callers use.
#pragma once

#include "foundation/value.h"

#include <optional>
#include <string_view>

namespace platform::property_list {

/// Whether the bytes begin as the binary form does.
bool isBinary(std::string_view bytes);
/// Nullopt when the bytes are damaged or the value exceeds a bound of ValueBuilder.
std::optional<Value> parseBinary(std::string_view bytes);

} // namespace platform::property_list
