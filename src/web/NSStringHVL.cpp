#include "web/NSStringHVL.h"

#include "foundation/unicode.h"

#include <array>
#include <optional>
#include <unordered_set>

namespace havrel::NSStringHVL {

namespace {

constexpr std::string_view hexDigits = "0123456789ABCDEF";

bool isAsciiAlphanumeric(char character) {
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z');
}

/// Punctuation that a URL may hold unescaped: the marks and reserved characters of RFC 2396.
constexpr std::string_view legalPunctuation = "-_.!~*'();/?:@&=+$,";

using ByteSet = std::array<bool, 256>;

ByteSet unescapedBytes(std::string_view alwaysEscaped) {
    ByteSet unescaped{};
    for (std::size_t byte = 0; byte < unescaped.size(); ++byte) {
        const char character = static_cast<char>(byte);
        unescaped[byte] =
            isAsciiAlphanumeric(character) || (legalPunctuation.find(character) != std::string_view::npos &&
                                               alwaysEscaped.find(character) == std::string_view::npos);
    }
    return unescaped;
}

std::optional<unsigned> hexValue(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    const char lower = static_cast<char>(digit | 0x20);
    if (lower >= 'a' && lower <= 'f') {
        return lower - 'a' + 10;
    }
    return std::nullopt;
}

/// The byte that `text` begins with an escape of; nullopt if it begins with none.
std::optional<char> escapedByte(std::string_view text) {
    if (text.size() < 3) {
        return std::nullopt;
    }
    const auto high = hexValue(text[1]);
    const auto low = hexValue(text[2]);
    if (!high || !low) {
        return std::nullopt;
    }
    return static_cast<char>(*high << 4 | *low);
}

} // namespace

std::string percentEscaped(std::string_view text, std::string_view alwaysEscaped) {
    const ByteSet unescaped = unescapedBytes(alwaysEscaped);
    std::string escaped;
    escaped.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (unescaped[byte]) {
            escaped += character;
        } else {
            escaped += {'%', hexDigits[byte >> 4], hexDigits[byte & 0xF]};
        }
    }
    return escaped;
}

std::string URLEncoding(std::string_view text) {
    return percentEscaped(decodeURLEncoding(text), "!*'();:@&=+$,/?%#[] ");
}

std::string URLEncodingPath(std::string_view text) {
    return percentEscaped(decodeURLEncoding(text), "!*'();:@&=+$,?%#[] ");
}

std::string decodeURLEncoding(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] != '%') {
            decoded += text[index];
            continue;
        }
        const auto byte = escapedByte(text.substr(index));
        if (!byte) {
            return std::string(text);
        }
        decoded += *byte;
        index += 2;
    }
    return platform::text::isValidUtf8(decoded) ? decoded : std::string(text);
}

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
