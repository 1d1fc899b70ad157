// JSON as the platform reads and writes it: the root is an object or an array, nesting and size are bounded.
// Thread-safe.
#pragma once

#include "foundation/error.h"
#include "foundation/value.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform::json {

/// The value, or nullopt with `error` set. On success `error` stays as it is.
std::optional<Value> parse(std::string_view bytes, std::optional<Error>& error);

/// With line breaks and indentation. Nullopt when the value holds what JSON can't (data, dates, non-finite reals),
/// nests deeper than 128 levels or would be longer than `documentLimit`.
std::optional<std::string> prettyPrinted(const Value& value);

} // namespace platform::json
