// JSON as the platform's parser takes it: the root is an object or an array, nesting and size are bounded.
// Every operation may be called from any thread.
#pragma once

#include "foundation/error.h"
#include "foundation/value.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform::json {

/// The value, or nothing with `error` filled. `error` is left untouched on success.
std::optional<Value> parse(std::string_view bytes, std::optional<Error>& error);

/// With line breaks and indentation; nothing when the value holds what JSON cannot (data, dates, non-finite
/// reals), nests deeper than 128 or would be longer than 16 MiB.
std::optional<std::string> prettyPrinted(const Value& value);

} // namespace platform::json
