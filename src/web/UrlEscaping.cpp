#include "web/UrlEscaping.h"

#include "foundation/unicode.h"

#include <array>
#include <optional>

namespace havrel::url_escaping {

namespace {

constexpr std::string_view hexDigits = "0123456789ABCDEF";

bool isAsciiAlphanumeric(char character) {
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z');
}

/// Punctuation that a URL may hold unescaped: the marks and reserved characters of RFC 2396.
constexpr std::string_view legalPunctuation = "-_.!~*'();/?:@&=+$,";

using ByteSet = std::array<bool, 256>;

ByteSet keptBytes(std::string_view set) {
    ByteSet kept{};
    for (std::size_t byte = 0; byte < kept.size(); ++byte) {
        const char character = static_cast<char>(byte);
        kept[byte] = isAsciiAlphanumeric(character) || (legalPunctuation.find(character) != std::string_view::npos &&
                                                        set.find(character) == std::string_view::npos);
    }
    return kept;
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

std::string escaped(std::string_view text, std::string_view set) {
    const ByteSet kept = keptBytes(set);
    std::string result;
    result.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (kept[byte]) {
            result += character;
        } else {
            result += {'%', hexDigits[byte >> 4], hexDigits[byte & 0xF]};
        }
    }
    return result;
}

std::string unescaped(std::string_view text) {
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

} // namespace havrel::url_escaping
