// Numbers in texts that others have written.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace platform {

/// The number that the text wholly consists of, as `from_chars` reads it with that base or format.
template <typename Number, typename... Base>
std::optional<Number> wholeNumber(std::string_view text, Base... base) {
    Number number{};
    const auto* const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, number, base...);
    return failure == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

} // namespace platform
