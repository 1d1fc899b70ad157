// Percent-escapes of URLs.
#pragma once

#include <string>
#include <string_view>

/// Texts are UTF-8. Thread-safe.
namespace havrel::url_escaping {

// What is escaped beside the bytes that no URL can hold. The sets differ on purpose.

inline constexpr std::string_view component = "!*'();:@&=+$,/?%#[] ";
/// "/" stays.
inline constexpr std::string_view path = "!*'();:@&=+$,?%#[] ";
/// ":" stays.
inline constexpr std::string_view queryValue = "!*'();@&+=$,/?%#[] ";
/// All of a URL's structure stays.
inline constexpr std::string_view wholeUrl = "+";

/// With upper-case digits. ASCII letters and digits, "-_.~" and, unless they are in the set, the other marks and the
/// reserved characters of URLs stay.
std::string escaped(std::string_view text, std::string_view set);

/// The text with its escapes decoded; unchanged if one is malformed or the result is not UTF-8.
std::string unescaped(std::string_view text);

} // namespace havrel::url_escaping
