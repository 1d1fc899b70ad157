#include "platform/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>
#include <utf8proc.h>

namespace platform::text {

namespace {

constexpr std::string_view replacementCharacter = "\xef\xbf\xbd";

struct Decoded {
    char32_t scalar = U'\uFFFD';
    std::size_t size = 1;
    bool valid = false;
};

/// The character that `bytes` (not empty) begin with, or the longest beginning of one that was cut short.
Decoded decode(std::string_view bytes) {
    const auto lead = static_cast<unsigned char>(bytes.front());
    if (lead < 0x80) {
        return {lead, 1, true};
    }
    if (lead < 0xc2 || lead > 0xf4) {
        return {};
    }
    const std::size_t size = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    // The second byte's range shuts out overlong forms, surrogates and what lies beyond U+10FFFF.
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

/// How many bytes the text begins with that are ASCII, to the whole word.
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

/// How many UTF-16 code units the character has that this byte begins; 0 inside a character.
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

/// Skips what may stand in front of a number: white space and a "+".
std::string_view numberIn(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    if (text.size() > 1 && text.front() == '+' && text[1] != '-') {
        text.remove_prefix(1);
    }
    return text;
}

template <typename Integer>
Integer integerIn(std::string_view text) {
    const std::string_view number = numberIn(text);
    Integer value = 0;
    if (std::from_chars(number.data(), number.data() + number.size(), value).ec == std::errc::result_out_of_range) {
        value = number.front() == '-' ? std::numeric_limits<Integer>::min() : std::numeric_limits<Integer>::max();
    }
    return value;
}

constexpr std::string_view base64Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr auto base64Values = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (std::size_t i = 0; i < base64Digits.size(); ++i) {
        values[static_cast<unsigned char>(base64Digits[i])] = static_cast<std::int8_t>(i);
    }
    return values;
}();

constexpr std::string_view placeholders[] = {"%@", "%d", "%ld", "%lu", "%llu", "%s", "%02x", "%08x"};

/// The placeholder that `text` begins with; empty when it begins with none.
std::string_view placeholderAt(std::string_view text) {
    const auto* const found = std::find_if(std::begin(placeholders), std::end(placeholders),
                                           [&](std::string_view candidate) { return text.starts_with(candidate); });
    return found == std::end(placeholders) ? std::string_view() : *found;
}

void appendHexadecimal(std::string& text, std::uint64_t bits, std::size_t width) {
    std::array<char, 16> digits{};
    const auto* const end = std::to_chars(digits.data(), digits.data() + digits.size(), bits & 0xffffffff, 16).ptr;
    const auto count = static_cast<std::size_t>(end - digits.data());
    text.append(count < width ? width - count : 0, '0').append(digits.data(), count);
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
    std::string text;
    text.reserve(bytes.size());
    forEachCharacter(bytes, [&](const Decoded& character, std::string_view encoded) {
        text += character.valid ? encoded : replacementCharacter;
    });
    return text;
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

std::string trimWhiteSpace(std::string_view text) {
    while (!text.empty() && beginsWithWhiteSpace(text)) {
        text.remove_prefix(decode(text).size);
    }
    while (!text.empty() && beginsWithWhiteSpace(lastCharacter(text))) {
        text.remove_suffix(lastCharacter(text).size());
    }
    return std::string(text);
}

std::int64_t integerValue(std::string_view text) { return integerIn<std::int64_t>(text); }

std::int32_t intValue(std::string_view text) { return integerIn<std::int32_t>(text); }

float floatValue(std::string_view text) {
    const std::string_view number = numberIn(text);
    const auto first = number.find_first_not_of('-');
    // from_chars would also take "inf" and "nan".
    if (first == std::string_view::npos ||
        std::string_view("0123456789.").find(number[first]) == std::string_view::npos) {
        return 0;
    }
    float value = 0;
    std::from_chars(number.data(), number.data() + number.size(), value);
    return value;
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
        // A line feed is no mark of the carriage return before it.
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

std::string base64Encode(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const auto byte = [&](std::size_t at) -> std::uint32_t {
            return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0;
        };
        const std::uint32_t group = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        text += base64Digits[group >> 18];
        text += base64Digits[group >> 12 & 0x3f];
        text += i + 1 < bytes.size() ? base64Digits[group >> 6 & 0x3f] : '=';
        text += i + 2 < bytes.size() ? base64Digits[group & 0x3f] : '=';
    }
    return text;
}

std::optional<std::string> base64Decode(std::string_view text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t bits = 0;
    std::size_t count = 0;
    for (const char digit : text.substr(0, text.size() - padding)) {
        const std::int8_t value = base64Values[static_cast<unsigned char>(digit)];
        if (value < 0) {
            return std::nullopt;
        }
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xff);
        }
    }
    // Bits that no byte takes must be 0: every byte sequence has one encoding only.
    return (bits & ((1U << count) - 1)) == 0 ? std::optional(std::move(bytes)) : std::nullopt;
}

std::string format(std::string_view pattern, std::initializer_list<FormatArgument> arguments) {
    std::string text;
    const auto* argument = arguments.begin();
    for (auto percent = pattern.find('%'); percent != std::string_view::npos; percent = pattern.find('%')) {
        text += pattern.substr(0, percent);
        pattern.remove_prefix(percent);
        const std::string_view placeholder = placeholderAt(pattern);
        if (placeholder.empty() || argument == arguments.end()) {
            text += '%';
            pattern.remove_prefix(1);
            continue;
        }
        if (placeholder.back() == 'x') {
            appendHexadecimal(text, argument->bits(), static_cast<std::size_t>(placeholder[2] - '0'));
        } else {
            text += argument->text();
        }
        ++argument;
        pattern.remove_prefix(placeholder.size());
    }
    return text.append(pattern);
}

} // namespace platform::text
