#include "foundation/format.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>

namespace platform::text {

namespace {

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
