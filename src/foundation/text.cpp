#include "foundation/text.h"

namespace platform::text {

std::vector<std::string> split(std::string_view text, std::string_view separator) {
    std::vector<std::string> pieces;
    std::size_t end = std::string_view::npos;
    while (!separator.empty() && (end = text.find(separator)) != std::string_view::npos) {
        pieces.emplace_back(text.substr(0, end));
        text.remove_prefix(end + separator.size());
    }
    pieces.emplace_back(text);
    return pieces;
}

std::string join(const std::vector<std::string>& pieces, std::string_view separator) {
    std::string text;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        text.append(i > 0 ? separator : "").append(pieces[i]);
    }
    return text;
}

std::string replaceAll(std::string_view text, std::string_view target, std::string_view replacement) {
    std::string result;
    std::size_t found = std::string_view::npos;
    while (!target.empty() && (found = text.find(target)) != std::string_view::npos) {
        result.append(text.substr(0, found)).append(replacement);
        text.remove_prefix(found + target.size());
    }
    return result.append(text);
}

std::string trim(std::string_view text, std::string_view characters) {
    const auto first = text.find_first_not_of(characters);
    if (first == std::string_view::npos) {
        return {};
    }
    return std::string(text.substr(first, text.find_last_not_of(characters) - first + 1));
}

} // namespace platform::text
