// Numbers in texts, whatever the locale. Thread-safe.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <system_error>

namespace platform::text {

/// Skips leading white space and reads an optional sign and digits up to the first non-digit; 0 when there is none,
/// clamped to the range.
std::int64_t integerValue(std::string_view text);
std::int32_t intValue(std::string_view text);
/// Skips leading white space and reads the longest decimal number with "."; 0 when there is none or it is beyond the
/// range.
float floatValue(std::string_view text);

/// The number that the whole text is, as std::from_chars reads it with that base or format; nullopt when it is none.
template <typename Number, typename... Base>
std::optional<Number> wholeNumber(std::string_view text, Base... base) {
    Number number{};
    const auto* const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, number, base...);
    return failure == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

} // namespace platform::text
