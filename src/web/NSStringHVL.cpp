#include "web/NSStringHVL.h"

#include "foundation/unicode.h"
#include "web/UrlEscaping.h"

#include <unordered_set>

namespace havrel::NSStringHVL {

std::string URLEncoding(std::string_view text) {
    return url_escaping::escaped(decodeURLEncoding(text), url_escaping::component);
}

std::string URLEncodingPath(std::string_view text) {
    return url_escaping::escaped(decodeURLEncoding(text), url_escaping::path);
}

std::string decodeURLEncoding(std::string_view text) { return url_escaping::unescaped(text); }

std::string removeSpecialCharacters(std::string_view text) { return platform::text::keepAlphanumerics(text); }

std::string removeDuplicateCharacters(std::string_view text) {
    std::unordered_set<std::string_view> seen;
    std::string unique;
    platform::text::forEachComposedCharacter(text, [&](std::string_view character) {
        if (seen.insert(character).second) {
            unique += character;
        }
    });
    return unique;
}

std::string alphaNumericUnique(std::string_view text) {
    return removeDuplicateCharacters(removeSpecialCharacters(text));
}

} // namespace havrel::NSStringHVL
