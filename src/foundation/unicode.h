// Text as the product's string type sees it: UTF-8 outside, counted and cut in UTF-16 code units. A cut never leaves
// half of a surrogate pair. Thread-safe.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace platform::text {

bool isValidUtf8(std::string_view bytes);
/// The text; nullopt when the bytes are not valid UTF-8.
std::optional<std::string> decodeUtf8(std::string_view bytes);
/// The bytes with every invalid sequence replaced by U+FFFD.
std::string makeValidUtf8(std::string_view bytes);

/// Without the up to three bytes at the beginning that belong to a character cut in two.
std::string_view withoutCutCharacter(std::string_view bytes);

/// Bytes of that encoding as text. The five bytes that it leaves undefined become control characters.
std::string fromWindows1252(std::string_view bytes);

/// Length in UTF-16 code units.
std::size_t length(std::string_view text);
/// The first `units` code units, all when there are fewer; a pair that the cut would split is left out.
std::string prefix(std::string_view text, std::size_t units);
/// What follows the first `units` code units, empty when there are fewer; a split pair is left out.
std::string dropPrefix(std::string_view text, std::size_t units);
/// The last `units` code units, all when there are fewer; a split pair is left out.
std::string suffix(std::string_view text, std::size_t units);
/// The text as UTF-16 code units, and back; a unit that is half of a pair becomes U+FFFD.
std::u16string utf16(std::string_view text);
std::string utf8(std::u16string_view units);

/// Without Unicode white space (Zs and tab; no line breaks) at both ends.
std::string trimWhiteSpace(std::string_view text);

/// Without every character outside the Unicode letters, marks and decimal or other digits (L*, M*, N*).
std::string keepAlphanumerics(std::string_view text);
/// Calls `visit` with each user-perceived character (composed character sequence) in order, as a view into the text.
void forEachComposedCharacter(std::string_view text, const std::function<void(std::string_view)>& visit);

} // namespace platform::text
