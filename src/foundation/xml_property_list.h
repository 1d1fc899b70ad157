// The XML form of property lists; `property_list::parse` is what callers use.
#pragma once

#include "foundation/value.h"

#include <optional>
#include <string_view>

namespace platform::property_list {

/// Nullopt when the bytes are damaged or the value exceeds a bound of ValueBuilder. Documents that declare entities are
/// refused, and the document type's file is not read.
std::optional<Value> parseXml(std::string_view bytes);

} // namespace platform::property_list
