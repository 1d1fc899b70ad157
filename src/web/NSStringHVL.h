// What the product adds to texts: percent-encoding and the character filters behind the unique-ID check.
#pragma once

#include <string>
#include <string_view>

/// Each operation returns a new UTF-8 text and leaves its argument as it is.
namespace havrel::NSStringHVL {

/// Percent-escapes the UTF-8 bytes of everything in `alwaysEscaped` (ASCII) and of everything that no URL may hold,
/// with upper-case digits. Letters, digits, "-_.~" and the other reserved characters and marks of URLs stay.
std::string percentEscaped(std::string_view text, std::string_view alwaysEscaped);

/// Decoded with `decodeURLEncoding`, then percent-encoded, so that encoded text is not encoded twice.
std::string URLEncoding(std::string_view text);
/// The same, but "/" stays.
std::string URLEncodingPath(std::string_view text);
/// Without percent-escapes; the text itself when one of them is malformed or the bytes that they give are not UTF-8.
std::string decodeURLEncoding(std::string_view text);

/// Letters, marks and digits only.
std::string removeSpecialCharacters(std::string_view text);
/// The first occurrence of every user-perceived character, in order; compared exactly, case included.
std::string removeDuplicateCharacters(std::string_view text);
/// Letters, marks and digits, each once.
std::string alphaNumericUnique(std::string_view text);

} // namespace havrel::NSStringHVL
