// Text as the platform's string type sees it. All texts are UTF-8; where characters are counted or cut they are
// UTF-16 code units, and a cut never leaves half of a pair. Every operation may be called from any thread.
#pragma once

#include "platform/error.h"
#include "platform/value.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform::text {

bool isValidUtf8(std::string_view bytes);
/// The text when the bytes are valid UTF-8, else nothing.
std::optional<std::string> decodeUtf8(std::string_view bytes);
/// The bytes with every invalid sequence replaced by U+FFFD.
std::string makeValidUtf8(std::string_view bytes);

/// Length in UTF-16 code units.
std::size_t length(std::string_view text);
/// The first `units` code units (all when there are fewer); a pair that the cut would split is left out whole.
std::string prefix(std::string_view text, std::size_t units);
/// What follows the first `units` code units (nothing when there are fewer); a split pair is left out whole.
std::string dropPrefix(std::string_view text, std::size_t units);
/// The last `units` code units (all when there are fewer); a split pair is left out whole.
std::string suffix(std::string_view text, std::size_t units);
/// The text as UTF-16 code units.
std::u16string utf16(std::string_view text);

/// The pieces between the separators, one more than there are separators; the whole text when there is none.
std::vector<std::string> split(std::string_view text, std::string_view separator);
std::string join(const std::vector<std::string>& pieces, std::string_view separator);
std::string replaceAll(std::string_view text, std::string_view target, std::string_view replacement);
/// Without the given ASCII characters at both ends.
std::string trim(std::string_view text, std::string_view characters);
/// Without Unicode white space (Zs and tab; no line breaks) at both ends.
std::string trimWhiteSpace(std::string_view text);

/// Leading white space skipped, then an optional sign and digits up to the first non-digit; 0 when there is none,
/// clamped to the range.
std::int64_t integerValue(std::string_view text);
std::int32_t intValue(std::string_view text);
/// Leading white space skipped, then the longest decimal number with "." in any locale; 0 when there is none or it is
/// beyond the range.
float floatValue(std::string_view text);

/// Without every character outside the Unicode letters, marks and decimal or other digits (L*, M*, N*).
std::string keepAlphanumerics(std::string_view text);
/// Calls `visit` with each user-perceived character (composed character sequence), in order, as a part of the text.
void forEachComposedCharacter(std::string_view text, const std::function<void(std::string_view)>& visit);

std::string base64Encode(std::string_view bytes);
/// Strict RFC 4648 with padding; nothing when the text is anything else.
std::optional<std::string> base64Decode(std::string_view text);

/// One value for a placeholder of `format`. Absent values print "(null)".
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

/// `pattern` with its placeholders filled in order: %@ %d %ld %lu %llu %s take the argument's text (numbers print
/// by their own type), %02x and %08x the argument's low bits in lower-case hexadecimal. A placeholder without
/// an argument stays as it is.
std::string format(std::string_view pattern, std::initializer_list<FormatArgument> arguments);

template <typename... Arguments>
std::string format(std::string_view pattern, const Arguments&... arguments) {
    return format(pattern, {FormatArgument(arguments)...});
}

} // namespace platform::text
