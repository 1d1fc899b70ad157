#include "foundation/unicode.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <utf8proc.h>
#include <utility>

namespace platform::text {

namespace {

constexpr std::string_view replacementCharacter = "\xef\xbf\xbd";

struct Decoded {
    char32_t scalar = U'\uFFFD';
    std::size_t size = 1;
    bool valid = false;
};

/// The character that `bytes` (not empty) begin with; when it is invalid, the bytes that stand for one U+FFFD.
Decoded decode(std::string_view bytes) {
    const auto lead = static_cast<unsigned char>(bytes.front());
    if (lead < 0x80) {
        return {lead, 1, true};
    }
    if (lead < 0xc2 || lead > 0xf4) {
        return {};
    }
    const std::size_t size = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    // The second byte's range excludes overlong forms, surrogates and what lies beyond U+10FFFF.
    unsigned char low = lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
    unsigned char high = lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
    char32_t scalar = lead & (0x7fU >> size);
    for (std::size_t i = 1; i < size; ++i, low = 0x80, high = 0xbf) {
        const auto byte = i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0;
        if (byte < low || byte > high) {
            return {.size = i};
        }
        scalar = scalar << 6 | (byte & 0x3fU);
    }
    return {scalar, size, true};
}

/// The character that `units` (not empty) begin with, and how many of them it takes; U+FFFD for half of a pair.
std::pair<char32_t, std::size_t> decode(std::u16string_view units) {
    const char32_t first = units[0];
    if (first < 0xd800 || first > 0xdfff) {
        return {first, 1};
    }
    const char32_t second = units.size() > 1 ? units[1] : 0;
    if (first > 0xdbff || second < 0xdc00 || second > 0xdfff) {
        return {U'\uFFFD', 1};
    }
    return {0x10000 + ((first - 0xd800) << 10) + (second - 0xdc00), 2};
}

/// The length of the ASCII text at the front, in whole words of eight bytes.
std::size_t asciiWords(std::string_view bytes) {
    std::size_t size = 0;
    for (std::uint64_t word = 0; bytes.size() - size >= sizeof word; size += sizeof word) {
        std::memcpy(&word, bytes.data() + size, sizeof word);
        if ((word & 0x8080808080808080) != 0) {
            break;
        }
    }
    return size;
}

/// Calls `visit` with each character and its bytes.
template <typename Visit>
void forEachCharacter(std::string_view text, Visit&& visit) {
    while (!text.empty()) {
        const Decoded character = decode(text);
        visit(character, text.substr(0, character.size));
        text.remove_prefix(character.size);
    }
}

/// The UTF-16 length of the character that begins with this byte; 0 for a byte inside a character.
constexpr std::size_t unitsOf(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return static_cast<std::size_t>((value & 0xc0) != 0x80) + static_cast<std::size_t>(value >= 0xf0);
}

struct Cut {
    std::size_t offset;       ///< where the character begins that the cut falls before or into
    std::size_t unitsMissing; ///< 1 when the cut would split that character
};

Cut cutAfter(std::string_view text, std::size_t units) {
    std::size_t offset = 0;
    for (; offset < text.size(); ++offset) {
        const std::size_t next = unitsOf(text[offset]);
        if (next > units || (next > 0 && units == 0)) {
            break;
        }
        units -= next;
    }
    return {offset, offset < text.size() ? units : 0};
}

utf8proc_category_t categoryOf(char32_t scalar) { return utf8proc_category(static_cast<utf8proc_int32_t>(scalar)); }

bool beginsWithWhiteSpace(std::string_view text) {
    return text.front() == '\t' || categoryOf(decode(text).scalar) == UTF8PROC_CATEGORY_ZS;
}

/// The last character's bytes; `text` is not empty.
std::string_view lastCharacter(std::string_view text) {
    std::size_t start = text.size() - 1;
    while (start > 0 && unitsOf(text[start]) == 0) {
        --start;
    }
    return text.substr(start);
}

} // namespace

bool isValidUtf8(std::string_view bytes) {
    // Log files are read often and are nearly all ASCII.
    for (bytes.remove_prefix(asciiWords(bytes)); !bytes.empty(); bytes.remove_prefix(asciiWords(bytes))) {
        const Decoded character = decode(bytes);
        if (!character.valid) {
            return false;
        }
        bytes.remove_prefix(character.size);
    }
    return true;
}

std::optional<std::string> decodeUtf8(std::string_view bytes) {
    return isValidUtf8(bytes) ? std::optional<std::string>(bytes) : std::nullopt;
}

std::string makeValidUtf8(std::string_view bytes) {
    if (isValidUtf8(bytes)) {
        return std::string(bytes);
    }
    std::string text;
    text.reserve(bytes.size());
    forEachCharacter(bytes, [&](const Decoded& character, std::string_view encoded) {
        text += character.valid ? encoded : replacementCharacter;
    });
    return text;
}

std::string_view withoutCutCharacter(std::string_view bytes) {
    const auto continuesCharacter = [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; };
    for (int most = 3; most > 0 && !bytes.empty() && continuesCharacter(bytes.front()); --most) {
        bytes.remove_prefix(1);
    }
    return bytes;
}

std::size_t length(std::string_view text) {
    std::size_t units = 0;
    for (const char byte : text) {
        units += unitsOf(byte);
    }
    return units;
}

std::string prefix(std::string_view text, std::size_t units) {
    return std::string(text.substr(0, cutAfter(text, units).offset));
}

std::string dropPrefix(std::string_view text, std::size_t units) {
    const Cut cut = cutAfter(text, units);
    text.remove_prefix(cut.offset);
    if (cut.unitsMissing > 0) {
        text.remove_prefix(decode(text).size);
    }
    return std::string(text);
}

std::string suffix(std::string_view text, std::size_t units) {
    const std::size_t all = length(text);
    return all <= units ? std::string(text) : dropPrefix(text, all - units);
}

std::u16string utf16(std::string_view text) {
    std::u16string units;
    units.reserve(text.size());
    forEachCharacter(text, [&](const Decoded& character, std::string_view) {
        if (character.scalar < 0x10000) {
            units += static_cast<char16_t>(character.scalar);
        } else {
            units += static_cast<char16_t>(0xd7c0 + (character.scalar >> 10));
            units += static_cast<char16_t>(0xdc00 + (character.scalar & 0x3ff));
        }
    });
    return units;
}

std::string utf8(std::u16string_view units) {
    std::string text;
    text.reserve(units.size());
    while (!units.empty()) {
        const auto [scalar, size] = decode(units);
        std::array<utf8proc_uint8_t, 4> bytes{};
        const auto count = utf8proc_encode_char(static_cast<utf8proc_int32_t>(scalar), bytes.data());
        text.append(bytes.begin(), bytes.begin() + count);
        units.remove_prefix(size);
    }
    return text;
}

std::string fromWindows1252(std::string_view bytes) {
    // Where the encoding is not the first 256 characters of Unicode, from 0x80.
    static constexpr std::u16string_view special = u"\u20ac\x81\u201a\u0192\u201e\u2026\u2020\u2021"
                                                   u"\u02c6\u2030\u0160\u2039\u0152\x8d\u017d\x8f"
                                                   u"\x90\u2018\u2019\u201c\u201d\u2022\u2013\u2014"
                                                   u"\u02dc\u2122\u0161\u203a\u0153\x9d\u017e\u0178";
    std::u16string units;
    units.reserve(bytes.size());
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        units += value >= 0x80 && value < 0xa0 ? special[value - 0x80] : static_cast<char16_t>(value);
    }
    return utf8(units);
}

std::string trimWhiteSpace(std::string_view text) {
    while (!text.empty() && beginsWithWhiteSpace(text)) {
        text.remove_prefix(decode(text).size);
    }
    while (!text.empty() && beginsWithWhiteSpace(lastCharacter(text))) {
        text.remove_suffix(lastCharacter(text).size());
    }
    return std::string(text);
}

std::string keepAlphanumerics(std::string_view text) {
    static_assert(UTF8PROC_CATEGORY_LU == 1 && UTF8PROC_CATEGORY_NO == 11, "letters, marks and numbers are neighbours");
    std::string kept;
    forEachCharacter(text, [&](const Decoded& character, std::string_view encoded) {
        const utf8proc_category_t category = categoryOf(character.scalar);
        if (category >= UTF8PROC_CATEGORY_LU && category <= UTF8PROC_CATEGORY_NO) {
            kept += encoded;
        }
    });
    return kept;
}

void forEachComposedCharacter(std::string_view text, const std::function<void(std::string_view)>& visit) {
    std::size_t size = 0; // of the character that `text` begins with, as far as it is known
    utf8proc_int32_t previous = 0;
    utf8proc_int32_t state = 0;
    forEachCharacter(text, [&](const Decoded& character, std::string_view encoded) {
        const auto scalar = static_cast<utf8proc_int32_t>(character.scalar);
        const bool breaks = utf8proc_grapheme_break_stateful(previous, scalar, &state);
        // Unicode keeps a carriage return and its line feed together; here they are two characters.
        if (size > 0 && (breaks || scalar == '\n')) {
            visit(text.substr(0, size));
            text.remove_prefix(size);
            size = 0;
        }
        size += encoded.size();
        previous = scalar;
    });
    if (size > 0) {
        visit(text);
    }
}

} // namespace platform::text
