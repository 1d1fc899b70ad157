#include "foundation/value.h"

#include "foundation/format.h"
#include "foundation/numbers.h"
#include "foundation/unicode.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cmath>
#include <limits>

namespace platform {

namespace {

template <typename Integer>
Integer clamped(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value <= static_cast<double>(std::numeric_limits<Integer>::min())) {
        return std::numeric_limits<Integer>::min();
    }
    // As a double, the largest integer of 64 bits is one too large.
    if (value >= static_cast<double>(std::numeric_limits<Integer>::max())) {
        return std::numeric_limits<Integer>::max();
    }
    return static_cast<Integer>(value);
}

bool boolOfText(std::string_view text) {
    const auto start = text.find_first_not_of(" \t\n\v\f\r");
    if (start == std::string_view::npos) {
        return false;
    }
    text.remove_prefix(start);
    if (text.front() == '+' || text.front() == '-') {
        text.remove_prefix(1);
    }
    const auto first = text.find_first_not_of('0');
    return first != std::string_view::npos &&
           std::string_view("YyTt123456789").find(text[first]) != std::string_view::npos;
}

/// The shortest digits that read back as the same number, with an exponent where "%.17g" would have one.
std::string descriptionOfReal(double value) {
    std::array<char, 32> buffer{};
    const double magnitude = std::abs(value);
    const bool plain = magnitude == 0 || (magnitude >= 1e-4 && magnitude < 1e17);
    const auto format = plain ? std::chars_format::fixed : std::chars_format::scientific;
    const char* const end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, format).ptr;
    return {static_cast<const char*>(buffer.data()), end};
}

/// In bytes. A hostile file may nest deep, where each element would be described behind hundreds of blanks.
constexpr std::size_t longestDescription = std::size_t{1} << 20;

std::string descriptionOfData(std::string_view bytes) {
    bytes = bytes.substr(0, longestDescription);
    std::string text = "<";
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i > 0 && i % 4 == 0) {
            text += ' ';
        }
        text += text::format("%02x", static_cast<unsigned char>(bytes[i]));
    }
    return text + ">";
}

std::string padded(std::int64_t number, std::size_t width) {
    std::string digits = std::to_string(number);
    return std::string(digits.size() < width ? width - digits.size() : 0, '0') + digits;
}

std::string descriptionOfDate(double seconds) {
    using namespace std::chrono;
    // Ten thousand years each way, well within what the calendar's types hold.
    constexpr double bound = 3.2e11;
    const auto whole =
        static_cast<std::int64_t>(std::floor(std::clamp(std::isnan(seconds) ? 0.0 : seconds, -bound, bound)));
    const sys_seconds moment = sys_seconds{sys_days{2001y / January / 1}} + std::chrono::seconds{whole};
    const auto day = floor<days>(moment);
    const year_month_day date{day};
    const hh_mm_ss time{moment - day};
    return padded(static_cast<int>(date.year()), 4) + "-" + padded(static_cast<unsigned>(date.month()), 2) + "-" +
           padded(static_cast<unsigned>(date.day()), 2) + " " + padded(time.hours().count(), 2) + ":" +
           padded(time.minutes().count(), 2) + ":" + padded(time.seconds().count(), 2) + " +0000";
}

/// Inside a container a text is quoted unless it is one plain word.
std::string quotedIfNeeded(const std::string& text) {
    const bool plain = !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return c < 0x80 && (std::isalnum(c) != 0 || c == '_');
    });
    if (plain) {
        return text;
    }
    std::string quoted = "\"";
    for (const char16_t unit : text::utf16(text)) {
        if (unit == u'"' || unit == u'\\') {
            quoted += '\\';
            quoted += static_cast<char>(unit);
        } else if (unit == u'\n') {
            quoted += "\\n";
        } else if (unit < 0x80) {
            quoted += static_cast<char>(unit);
        } else {
            quoted += text::format("\\U%02x%02x", unit >> 8, unit & 0xff);
        }
    }
    return quoted + "\"";
}

void describe(const Value& value, std::size_t depth, std::string& text);

void describeArray(const Array& array, std::size_t depth, std::string& text) {
    text += '(';
    const char* separator = "\n";
    for (const Value& element : array) {
        if (text.size() > longestDescription) {
            break;
        }
        text.append(separator).append(4 * (depth + 1), ' ');
        describe(element, depth + 1, text);
        separator = ",\n";
    }
    text.append(1, '\n').append(4 * depth, ' ') += ')';
}

void describeDictionary(const Dictionary& dictionary, std::size_t depth, std::string& text) {
    const std::size_t indent = 4 * (depth + 1);
    text += "{\n";
    for (const auto& [key, member] : dictionary) {
        if (text.size() > longestDescription) {
            break;
        }
        const bool nested = member.array() != nullptr || member.dictionary() != nullptr;
        text.append(indent, ' ').append(quotedIfNeeded(key)).append(" = ").append(nested ? indent : 0, ' ');
        describe(member, depth + 1, text);
        text += ";\n";
    }
    text.append(4 * depth, ' ') += '}';
}

/// Appends the description of a value that stands inside a container.
void describe(const Value& value, std::size_t depth, std::string& text) {
    value.visit([&](const Array& array) { describeArray(array, depth, text); },
                [&](const Dictionary& dictionary) { describeDictionary(dictionary, depth, text); },
                [&](const Data& data) { text += descriptionOfData(data.bytes); },
                [&](const auto&) { text += quotedIfNeeded(value.description()); });
}

} // namespace

Value::Value(unsigned long value) {
    if (value <= static_cast<unsigned long>(std::numeric_limits<std::int64_t>::max())) {
        content_ = static_cast<std::int64_t>(value);
    } else {
        content_ = std::uint64_t{value};
    }
}

const Value* Value::member(std::string_view name) const {
    const Dictionary* members = dictionary();
    if (members == nullptr) {
        return nullptr;
    }
    const auto found = members->find(name);
    return found == members->end() ? nullptr : &found->second;
}

std::optional<std::string> Value::textMember(std::string_view name) const {
    const Value* value = member(name);
    return value != nullptr && value->text() != nullptr ? std::optional(*value->text()) : std::nullopt;
}

bool Value::boolValue() const {
    return visit([](double real) { return real != 0; }, [](const std::string& words) { return boolOfText(words); },
                 [this](const auto&) { return integerValue() != 0; });
}

std::int64_t Value::integerValue() const {
    return visit([](bool flag) { return std::int64_t{flag}; }, [](std::int64_t number) { return number; },
                 [](std::uint64_t) { return std::numeric_limits<std::int64_t>::max(); },
                 [](double real) { return clamped<std::int64_t>(real); },
                 [](const std::string& words) { return text::integerValue(words); },
                 [](const auto&) { return std::int64_t{0}; });
}

std::int32_t Value::intValue() const {
    return visit([](std::uint64_t number) { return static_cast<std::int32_t>(number); },
                 [](double real) { return clamped<std::int32_t>(real); },
                 [](const std::string& words) { return text::intValue(words); },
                 [this](const auto&) { return static_cast<std::int32_t>(integerValue()); });
}

std::string Value::description() const {
    const auto container = [](const auto& container, auto describe) {
        std::string text;
        describe(container, 0, text);
        return text;
    };
    return visit([](std::nullptr_t) { return std::string("<null>"); },
                 [](bool flag) { return std::string(flag ? "1" : "0"); },
                 [](double real) { return descriptionOfReal(real); }, [](const std::string& words) { return words; },
                 [](const Data& data) { return descriptionOfData(data.bytes); },
                 [](Date date) { return descriptionOfDate(date.seconds); },
                 [&](const Array& array) { return container(array, describeArray); },
                 [&](const Dictionary& dictionary) { return container(dictionary, describeDictionary); },
                 [](auto integer) { return std::to_string(integer); });
}

std::optional<std::string> textOf(const std::optional<Value>& value) {
    return value && value->text() != nullptr ? std::optional(*value->text()) : std::nullopt;
}

} // namespace platform
