#include "foundation/base64.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace platform::base64 {

namespace {

constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr auto values = [] {
    std::array<std::int8_t, 256> valueOf{};
    valueOf.fill(-1);
    for (std::size_t i = 0; i < digits.size(); ++i) {
        valueOf[static_cast<unsigned char>(digits[i])] = static_cast<std::int8_t>(i);
    }
    return valueOf;
}();

} // namespace

std::string encode(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const auto byte = [&](std::size_t at) -> std::uint32_t {
            return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0;
        };
        const std::uint32_t group = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        text += digits[group >> 18];
        text += digits[group >> 12 & 0x3f];
        text += i + 1 < bytes.size() ? digits[group >> 6 & 0x3f] : '=';
        text += i + 2 < bytes.size() ? digits[group & 0x3f] : '=';
    }
    return text;
}

std::string decodeLoosely(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t bits = 0;
    std::size_t count = 0;
    for (const char digit : text.substr(0, text.find('='))) {
        const std::int8_t value = values[static_cast<unsigned char>(digit)];
        if (value < 0) {
            continue;
        }
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xff);
        }
    }
    return bytes;
}

std::optional<std::string> decode(std::string_view text) {
    std::string bytes = decodeLoosely(text);
    return encode(bytes) == text ? std::optional(std::move(bytes)) : std::nullopt;
}

} // namespace platform::base64
