// One type for everything that property lists, JSON, preferences and notifications carry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace platform {

class Value;
using Array = std::vector<Value>;
using Dictionary = std::map<std::string, Value, std::less<>>;

/// Raw bytes, told apart from text.
struct Data {
    std::string bytes;
    bool operator==(const Data&) const = default;
};

/// A moment in seconds since 2001-01-01 00:00:00 UTC.
struct Date {
    double seconds = 0;
    bool operator==(const Date&) const = default;
};

/// A property-list or JSON value. Texts are UTF-8. An absent value is std::nullopt, not a null: null is JSON's, and no
/// property list can hold it.
class Value {
  public:
    Value() = default;

    Value(std::nullptr_t null) : content_(null) {}

    Value(bool value) : content_(value) {}

    /// A pointer would silently become a Boolean.
    Value(const void*) = delete;

    Value(int value) : content_(std::int64_t{value}) {}

    Value(long value) : content_(std::int64_t{value}) {}

    Value(long long value) : content_(std::int64_t{value}) {}

    /// Kept as a signed number where it fits, so that equal numbers are equal values.
    Value(unsigned value) : content_(std::int64_t{value}) {}

    Value(unsigned long value);

    Value(unsigned long long value) : Value(static_cast<unsigned long>(value)) {}

    Value(double value) : content_(value) {}

    Value(const char* text) : content_(std::string(text)) {}

    Value(std::string_view text) : content_(std::string(text)) {}

    Value(std::string text) : content_(std::move(text)) {}

    Value(Data data) : content_(std::move(data)) {}

    Value(Date date) : content_(date) {}

    Value(Array array) : content_(std::move(array)) {}

    Value(Dictionary dictionary) : content_(std::move(dictionary)) {}

    bool isNull() const { return as<std::nullptr_t>() != nullptr; }

    /// Calls the one of `cases` that takes the content's type best, and returns its result. The types: std::nullptr_t,
    /// bool, std::int64_t, std::uint64_t, double, std::string, Data, Date, Array, Dictionary.
    template <typename... Cases>
    auto visit(Cases&&... cases) const {
        return std::visit(Overloads<std::decay_t<Cases>...>{std::forward<Cases>(cases)...}, content_);
    }

    /// The content when it is of that type, else nullptr. Borrowed from this value.
    template <typename T>
    const T* as() const {
        return std::get_if<T>(&content_);
    }

    template <typename T>
    T* as() {
        return std::get_if<T>(&content_);
    }

    const std::string* text() const { return as<std::string>(); }

    const Array* array() const { return as<Array>(); }

    const Dictionary* dictionary() const { return as<Dictionary>(); }

    /// The member of that name when this is a dictionary that has it, else nullptr. Borrowed.
    const Value* member(std::string_view name) const;
    /// That member's text; nullopt when there is no such member or it is no text.
    std::optional<std::string> textMember(std::string_view name) const;

    /// Read as a Boolean: a number is true unless it is 0; a text when, after white space, a sign and zeros, it begins
    /// with Y, y, T, t or a non-zero digit; everything else is false.
    bool boolValue() const;
    /// Read as a whole number of 64 bits: a number truncated and clamped to the range; a text as text::integerValue
    /// reads it; everything else is 0.
    std::int64_t integerValue() const;
    /// The same in 32 bits: of a whole number the low 32 bits; a real or a text is clamped.
    std::int32_t intValue() const;

    /// What "%@" prints: a text as it is, a number in decimal, containers as the platform's indented
    /// `{\n    key = value;\n}` and `(\n    value\n)`, in which a text that does not consist of ASCII letters, digits
    /// and "_" stands in double quotes. Of a container or data, what goes beyond a few megabytes is left out.
    std::string description() const;

    bool operator==(const Value&) const = default;

  private:
    template <typename... Cases>
    struct Overloads : Cases... {
        using Cases::operator()...;
    };

    std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string, Data, Date, Array, Dictionary>
        content_;
};

/// The value's text; nullopt when it is absent or no text.
std::optional<std::string> textOf(const std::optional<Value>& value);

} // namespace platform
