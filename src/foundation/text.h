// Splitting, joining and replacing, byte by byte. Thread-safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace platform::text {

/// The pieces between the separators, one more than there are separators; the whole text when there is none.
std::vector<std::string> split(std::string_view text, std::string_view separator);
std::string join(const std::vector<std::string>& pieces, std::string_view separator);
std::string replaceAll(std::string_view text, std::string_view target, std::string_view replacement);
/// Without the given ASCII characters at both ends.
std::string trim(std::string_view text, std::string_view characters);

/// ASCII letters in the other case, whatever the locale says.
constexpr char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

constexpr char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

} // namespace platform::text
