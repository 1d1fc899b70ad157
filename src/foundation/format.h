// Filling in the placeholders of log texts, paths and addresses.
#pragma once

#include "foundation/error.h"
#include "foundation/value.h"

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace platform::text {

/// One value for a placeholder of `format`. Absent values print as "(null)".
class FormatArgument {
  public:
    FormatArgument(const char* text) : text_(text) {}

    FormatArgument(std::string_view text) : text_(text) {}

    FormatArgument(std::string text) : text_(std::move(text)) {}

    FormatArgument(const Value& value) : text_(value.description()) {}

    FormatArgument(const Error& error) : text_(error.description()) {}

    FormatArgument(bool value) : FormatArgument(static_cast<int>(value)) {}

    template <std::integral T>
    FormatArgument(T value) : text_(std::to_string(value))
                            , bits_(static_cast<std::uint64_t>(value)) {}

    template <typename T>
    FormatArgument(const std::optional<T>& value)
        : FormatArgument(value ? FormatArgument(*value) : FormatArgument("(null)")) {}

    const std::string& text() const { return text_; }

    std::uint64_t bits() const { return bits_; }

  private:
    std::string text_;
    std::uint64_t bits_ = 0;
};

/// The pattern with its placeholders filled in order: %@ %d %ld %lu %llu %s by the argument's text (numbers print by
/// their own type), %02x and %08x by the argument's low 32 bits in lower-case hexadecimal. A placeholder without an
/// argument stays as it is.
std::string format(std::string_view pattern, std::initializer_list<FormatArgument> arguments);

template <typename... Arguments>
std::string format(std::string_view pattern, const Arguments&... arguments) {
    return format(pattern, {FormatArgument(arguments)...});
}

} // namespace platform::text
