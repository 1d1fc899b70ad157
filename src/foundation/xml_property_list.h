// The XML form of property lists.
#pragma once

#include "foundation/value.h"

#include <optional>
#include <string_view>

namespace platform::property_list {

/// Entity declarations are refused; of what the document type names, nothing is fetched.
std::optional<Value> parseXml(std::string_view bytes);

} // namespace platform::property_list
