#include "foundation/numbers.h"

#include <algorithm>
#include <limits>

namespace platform::text {

namespace {

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

} // namespace

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

} // namespace platform::text
