// The binary form of property lists.
#pragma once

#include "foundation/value.h"

#include <optional>
#include <string_view>

namespace platform::property_list {

bool isBinary(std::string_view bytes);
std::optional<Value> parseBinary(std::string_view bytes);

} // namespace platform::property_list
