#include "foundation/json.h"

#include "foundation/format.h"
#include "foundation/limits.h"
#include "foundation/unicode.h"
#include "foundation/value_builder.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

namespace platform::json {

namespace {

Error syntaxError(std::string_view reason) {
    // The parser quotes what it could not read, which may be long and no valid UTF-8.
    constexpr std::size_t enough = 200;
    return {"NSCocoaErrorDomain", 3840, text::prefix(text::makeValidUtf8(reason.substr(0, 4 * enough)), enough)};
}

/// What nlohmann-json calls while it parses; false ends the parse.
class Handler {
  public:
    bool null() { return take(builder_.add(nullptr)); }

    bool boolean(bool value) { return take(builder_.add(value)); }

    bool number_integer(std::int64_t value) { return take(builder_.add(value)); }

    bool number_unsigned(std::uint64_t value) { return take(builder_.add(value)); }

    /// Also whole numbers beyond 64 bits.
    bool number_float(double value, const std::string&) { return take(builder_.add(value)); }

    bool string(std::string& value) { return take(builder_.add(std::move(value))); }

    bool binary(nlohmann::json::binary_t&) { return false; }

    bool start_object(std::size_t) { return take(builder_.openDictionary()); }

    bool key(std::string& name) { return take(builder_.key(std::move(name))); }

    bool end_object() { return take(builder_.close()); }

    bool start_array(std::size_t) { return take(builder_.openArray()); }

    bool end_array() { return take(builder_.close()); }

    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception& error) {
        // "[json.exception.parse_error.101] parse error at …"
        const std::string_view reason = error.what();
        const auto bracket = reason.find("] ");
        error_ = syntaxError(bracket == std::string_view::npos ? reason : reason.substr(bracket + 2));
        return false;
    }

    std::optional<Value> result() { return builder_.take(); }

    const Error& error() const { return error_; }

  private:
    bool take(bool fits) {
        if (!fits) {
            error_ = syntaxError("the document nests too deep or holds too much");
        }
        return fits;
    }

    ValueBuilder builder_;
    Error error_ = syntaxError("the document is empty");
};

class Writer {
  public:
    /// False when the value holds what JSON cannot, or too much.
    bool write(const Value& value) {
        const auto writeElement = [this](const Value& element) { return write(element); };
        const auto writeMember = [this](const auto& member) {
            quote(member.first);
            return append(" : ") && write(member.second);
        };
        return value.visit(
            [&](const Array& array) { return list('[', ']', array, writeElement); },
            [&](const Dictionary& dictionary) { return list('{', '}', dictionary, writeMember); },
            [&](const std::string& words) { return quote(words); }, [&](std::nullptr_t) { return append("null"); },
            [&](bool flag) { return append(flag ? "true" : "false"); }, [](const Data&) { return false; },
            [](Date) { return false; }, [&](double real) { return std::isfinite(real) && append(value.description()); },
            [&](auto integer) { return append(std::to_string(integer)); });
    }

    std::string take() { return std::move(text_); }

  private:
    bool append(std::string_view text) {
        text_ += text;
        return true;
    }

    template <typename Container, typename WriteItem>
    bool list(char opening, char closing, const Container& items, const WriteItem& writeItem) {
        if (++depth_ > depthLimit) {
            return false;
        }
        text_ += opening;
        const char* separator = "\n";
        for (const auto& item : items) {
            text_ += separator;
            separator = ",\n";
            text_.append(2 * depth_, ' ');
            if (text_.size() > documentLimit || !writeItem(item)) {
                return false;
            }
        }
        // An empty container spans a blank line, as the platform writes it.
        text_ += items.empty() ? "\n\n" : "\n";
        --depth_;
        text_.append(2 * depth_, ' ') += closing;
        return true;
    }

    bool quote(const std::string& words) {
        text_ += '"';
        for (const char c : text::isValidUtf8(words) ? words : text::makeValidUtf8(words)) {
            const auto found = shortEscaped.find(c);
            if (found != std::string_view::npos) {
                text_ += '\\';
                text_ += shortEscapes[found];
            } else if (static_cast<unsigned char>(c) < 0x20) {
                text_ += text::format("\\u00%02x", static_cast<unsigned char>(c));
            } else {
                text_ += c;
            }
        }
        text_ += '"';
        return true;
    }

    static constexpr std::string_view shortEscaped = "\"\\/\b\f\n\r\t";
    static constexpr std::string_view shortEscapes = "\"\\/bfnrt";

    std::string text_;
    std::size_t depth_ = 0;
};

} // namespace

std::optional<Value> parse(std::string_view bytes, std::optional<Error>& error) {
    if (bytes.size() > documentLimit) {
        error = syntaxError("the document is too long");
        return std::nullopt;
    }
    Handler handler;
    if (!nlohmann::json::sax_parse(bytes, &handler)) {
        error = handler.error();
        return std::nullopt;
    }
    auto value = handler.result();
    if (!value || (value->array() == nullptr && value->dictionary() == nullptr)) {
        error = syntaxError("the document is neither an object nor an array");
        return std::nullopt;
    }
    return value;
}

std::optional<std::string> prettyPrinted(const Value& value) {
    Writer writer;
    const bool root = value.array() != nullptr || value.dictionary() != nullptr;
    return root && writer.write(value) ? std::optional(writer.take()) : std::nullopt;
}

} // namespace platform::json
