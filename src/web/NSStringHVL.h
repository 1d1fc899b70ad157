// The product's string operations: percent-encoding, and the character filters behind the unique-ID check.
#pragma once

#include <string>
#include <string_view>

/// Texts are UTF-8. Thread-safe.
namespace havrel::NSStringHVL {

/// Percent-encoded after `decodeURLEncoding`, so that encoded text is not encoded twice.
std::string URLEncoding(std::string_view text);
/// The same, but "/" stays.
std::string URLEncodingPath(std::string_view text);
/// The text with its percent-escapes decoded; unchanged if one is malformed or the result is not UTF-8.
std::string decodeURLEncoding(std::string_view text);

/// Only the letters, marks and digits (Unicode).
std::string removeSpecialCharacters(std::string_view text);
/// Only the first occurrence of each user-perceived character, in order; compared exactly, case included.
std::string removeDuplicateCharacters(std::string_view text);
/// Only the letters, marks and digits, each once.
std::string alphaNumericUnique(std::string_view text);

} // namespace havrel::NSStringHVL
