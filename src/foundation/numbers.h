// Numbers in texts. No locale matters. Thread-safe.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <system_error>

namespace platform::text {

/// Leading white space skipped, then an optional sign and digits up to the first non-digit; 0 when there is none,
/// clamped to the range.
std::int64_t integerValue(std::string_view text);
std::int32_t intValue(std::string_view text);
/// Leading white space skipped, then the longest decimal number with "." in any locale; 0 when there is none or it is
/// beyond the range.
float floatValue(std::string_view text);

/// The number that the text wholly consists of, as `from_chars` reads it with that base or format.
template <typename Number, typename... Base>
std::optional<Number> wholeNumber(std::string_view text, Base... base) {
    Number number{};
    const auto* const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, number, base...);
    return failure == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

} // namespace platform::text
