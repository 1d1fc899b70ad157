#include "foundation/xml_property_list.h"

#include "foundation/base64.h"
#include "foundation/limits.h"
#include "foundation/numbers.h"
#include "foundation/property_list.h"
#include "foundation/text.h"
#include "foundation/unicode.h"
#include "foundation/value_builder.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <exception>
#include <expat.h>
#include <limits>
#include <locale>
#include <memory>
#include <new>
#include <sstream>
#include <utility>

namespace platform::property_list {

namespace {

constexpr std::string_view whiteSpace = " \t\r\n";
constexpr auto referenceDay = std::chrono::sys_days{std::chrono::year{2001} / 1 / 1};

constexpr double secondsAt(std::chrono::sys_days day) {
    return static_cast<double>(std::chrono::seconds{day - referenceDay}.count());
}

std::string_view withoutPlus(std::string_view text) {
    if (text.size() > 1 && text.front() == '+' && text[1] != '-') {
        text.remove_prefix(1);
    }
    return text;
}

// The readers of scalars refuse only what is malformed. A file of settings is not given up for a number that can't be
// held or a date that no calendar has.

std::optional<Value> readInteger(std::string_view text) {
    text = withoutPlus(text);
    const bool negative = text.starts_with('-');
    text.remove_prefix(negative ? 1 : 0);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hexadecimal ? 2 : 0);
    std::uint64_t magnitude = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), magnitude, hexadecimal ? 16 : 10);
    if (end != text.data() + text.size() || error == std::errc::invalid_argument) {
        return std::nullopt;
    }
    if (error == std::errc::result_out_of_range) {
        magnitude = std::numeric_limits<std::uint64_t>::max();
    }
    constexpr auto lowest = std::uint64_t{1} << 63;
    return negative ? Value(static_cast<std::int64_t>(0 - std::min(magnitude, lowest))) : Value(magnitude);
}

/// The real nearest to a number that is too large or too small for one. std::from_chars doesn't say which it is.
double nearestReal(std::string_view text) {
    std::istringstream stream{std::string(text)};
    stream.imbue(std::locale::classic());
    double number = 0;
    stream >> number;
    return stream.fail() ? std::copysign(std::numeric_limits<double>::infinity(), number) : number;
}

std::optional<Value> readReal(std::string_view text) {
    text = withoutPlus(text);
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (end != text.data() + text.size() || error == std::errc::invalid_argument) {
        return std::nullopt;
    }
    return error == std::errc::result_out_of_range ? nearestReal(text) : number;
}

/// "YYYY-MM-DDTHH:MM:SSZ".
std::optional<Value> readDate(std::string_view text) {
    constexpr std::string_view pattern = "dddd-dd-ddTdd:dd:ddZ";
    const bool wellFormed = std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(),
                                       [](char c, char p) { return p == 'd' ? c >= '0' && c <= '9' : c == p; });
    if (!wellFormed) {
        return std::nullopt;
    }
    const auto field = [&](std::size_t at, std::size_t size) {
        return *text::wholeNumber<unsigned>(text.substr(at, size));
    };
    // A month 13, a 30th of February or a leap second lies as far beyond the month, day or minute as it says.
    const auto month = std::chrono::year(static_cast<int>(field(0, 4))) / std::chrono::January +
                       std::chrono::months(static_cast<int>(field(5, 2)) - 1);
    const double days = static_cast<double>(field(8, 2)) - 1;
    return Date{secondsAt(month / 1) + 86400 * days + 3600.0 * field(11, 2) + 60.0 * field(14, 2) + field(17, 2)};
}

/// The elements that hold a text and no other element.
enum class Leaf { none, key, string, integer, real, date, data, yes, no };

constexpr std::pair<std::string_view, Leaf> leaves[] = {
    {"key", Leaf::key},   {"string", Leaf::string}, {"integer", Leaf::integer}, {"real", Leaf::real},
    {"date", Leaf::date}, {"data", Leaf::data},     {"true", Leaf::yes},        {"false", Leaf::no},
};

class Reader {
  public:
    /// An encoding overrules the one that the document names; nullptr for none.
    explicit Reader(const char* encoding) : parser_(XML_ParserCreate(encoding)) {}

    std::optional<Value> read(std::string_view bytes) {
        if (parser_ == nullptr) {
            throw std::bad_alloc();
        }
        XML_SetUserData(parser_.get(), this);
        XML_SetElementHandler(
            parser_.get(),
            [](void* self, const char* name, const char** attributes) {
                on(self, [&](Reader& reader) { return reader.start(name, attributes); });
            },
            [](void* self, const char*) { on(self, [](Reader& reader) { return reader.end(); }); });
        XML_SetCharacterDataHandler(parser_.get(), [](void* self, const char* text, int size) {
            on(self, [&](Reader& reader) { return reader.characters({text, static_cast<std::size_t>(size)}); });
        });
        XML_SetStartDoctypeDeclHandler(parser_.get(),
                                       [](void* self, const char*, const char*, const char*, int hasInternalSubset) {
                                           on(self, [&](Reader&) { return hasInternalSubset == 0; });
                                       });
        XML_SetSkippedEntityHandler(parser_.get(),
                                    [](void* self, const char*, int) { on(self, [](Reader&) { return false; }); });
        const bool whole = parse(bytes);
        if (exception_ != nullptr) {
            std::rethrow_exception(exception_);
        }
        if (XML_GetErrorCode(parser_.get()) == XML_ERROR_NO_MEMORY) {
            throw std::bad_alloc();
        }
        return whole ? builder_.take() : std::nullopt;
    }

    bool knowsEncoding() const { return XML_GetErrorCode(parser_.get()) != XML_ERROR_UNKNOWN_ENCODING; }

  private:
    struct Free {
        void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
    };

    /// Exceptions must not pass through the C library, which also may call handlers after it was stopped.
    template <typename Event>
    static void on(void* self, const Event& event) noexcept {
        auto& reader = *static_cast<Reader*>(self);
        if (reader.stopped_) {
            return;
        }
        try {
            reader.stopped_ = !event(reader);
        } catch (...) {
            reader.exception_ = std::current_exception();
            reader.stopped_ = true;
        }
        if (reader.stopped_) {
            XML_StopParser(reader.parser_.get(), XML_FALSE);
        }
    }

    /// In pieces, of which no tag or comment may span three: the parser takes seconds for megabytes of attributes, and
    /// it begins only at the end of the tag.
    bool parse(std::string_view bytes) {
        constexpr std::size_t pieceSize = std::size_t{64} << 10;
        std::size_t parsed = 0;
        while (true) {
            const std::string_view piece = bytes.substr(parsed, pieceSize);
            parsed += piece.size();
            const bool isLast = parsed == bytes.size();
            if (XML_Parse(parser_.get(), piece.data(), static_cast<int>(piece.size()), isLast ? 1 : 0) !=
                XML_STATUS_OK) {
                return false;
            }
            if (isLast) {
                return true;
            }
            // The parser stands where the tag begins whose end it is waiting for.
            if (XML_GetCurrentByteIndex(parser_.get()) + static_cast<XML_Index>(pieceSize) <
                static_cast<XML_Index>(parsed)) {
                return false;
            }
        }
    }

    bool start(std::string_view name, const char** attributes) {
        if (depth_++ == 0) {
            return name == "plist" && (attributes[0] == nullptr || attributes[2] == nullptr);
        }
        if (leaf_ != Leaf::none || attributes[0] != nullptr) {
            return false;
        }
        if (name == "dict") {
            return builder_.openDictionary();
        }
        if (name == "array") {
            return builder_.openArray();
        }
        const auto* const found = std::find_if(std::begin(leaves), std::end(leaves),
                                               [&](const auto& candidate) { return candidate.first == name; });
        if (found == std::end(leaves)) {
            return false;
        }
        leaf_ = found->second;
        text_.clear();
        return true;
    }

    bool end() {
        if (--depth_ == 0) {
            return true;
        }
        const Leaf leaf = std::exchange(leaf_, Leaf::none);
        return leaf == Leaf::none ? builder_.close() : finish(leaf);
    }

    bool characters(std::string_view text) {
        if (leaf_ == Leaf::none) {
            return text.find_first_not_of(whiteSpace) == std::string_view::npos;
        }
        text_ += text;
        return text_.size() <= propertyListLimit;
    }

    bool finish(Leaf leaf) {
        if (leaf == Leaf::key) {
            return builder_.key(std::move(text_));
        }
        auto value = leafValue(leaf);
        return value && builder_.add(std::move(*value));
    }

    std::optional<Value> leafValue(Leaf leaf) {
        if (leaf == Leaf::string) {
            return std::move(text_);
        }
        if (leaf == Leaf::data) {
            return Data{base64::decodeLoosely(text_)};
        }
        const std::string text = text::trim(text_, whiteSpace);
        switch (leaf) {
        case Leaf::integer:
            return readInteger(text);
        case Leaf::real:
            return readReal(text);
        case Leaf::date:
            return readDate(text);
        default:
            return text.empty() ? std::optional<Value>(leaf == Leaf::yes) : std::nullopt;
        }
    }

    std::unique_ptr<XML_ParserStruct, Free> parser_;
    ValueBuilder builder_;
    std::size_t depth_ = 0;
    Leaf leaf_ = Leaf::none;
    std::string text_;
    bool stopped_ = false;
    std::exception_ptr exception_;
};

class Writer {
  public:
    std::optional<std::string> document(const Value& value) {
        text_ = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                "<plist version=\"1.0\">\n";
        const bool written = write(value);
        text_ += "</plist>\n";
        return written ? std::optional(std::move(text_)) : std::nullopt;
    }

  private:
    /// False when the value can't be written, or not read back.
    bool write(const Value& value) {
        const auto writeElement = [this](const Value& element) { return write(element); };
        const auto writeMember = [this](const auto& member) {
            return writeText("key", member.first) && write(member.second);
        };
        return value.visit(
            [&](const Array& array) { return list("array", array, writeElement); },
            [&](const Dictionary& dictionary) { return list("dict", dictionary, writeMember); },
            [](std::nullptr_t) { return false; }, [&](const std::string& words) { return writeText("string", words); },
            [&](bool flag) { return writeLine(flag ? "<true/>" : "<false/>"); },
            [&](double real) { return writeLine("<real>" + realText(real) + "</real>"); },
            [&](Date date) { return writeLine("<date>" + dateText(date) + "</date>"); },
            [&](const Data& data) { return writeData(data.bytes); },
            [&](auto integer) { return writeLine("<integer>" + std::to_string(integer) + "</integer>"); });
    }

    template <typename Container, typename WriteItem>
    bool list(const std::string& tag, const Container& items, const WriteItem& writeItem) {
        if (depth_ == depthLimit || !budget_.spendElement(depth_)) {
            return false;
        }
        line(items.empty() ? "<" + tag + "/>" : "<" + tag + ">");
        if (items.empty()) {
            return true;
        }
        ++depth_;
        const bool written = std::all_of(items.begin(), items.end(), writeItem);
        --depth_;
        line("</" + tag + ">");
        return written;
    }

    static std::string realText(double real) {
        return std::isinf(real) ? (real < 0 ? "-infinity" : "+infinity") : Value(real).description();
    }

    static std::string dateText(Date date) {
        using std::chrono::year;
        // The form has four digits for the year. The description differs from it only in the separators.
        constexpr double first = secondsAt(year{0} / 1 / 1);
        constexpr double last = secondsAt(year{10000} / 1 / 1) - 1;
        std::string text = Value(Date{std::clamp(date.seconds, first, last)}).description();
        text.resize(std::string_view("YYYY-MM-DD HH:MM:SS").size());
        text[10] = 'T';
        return text + 'Z';
    }

    /// In lines of 76 columns, a tab counting eight.
    bool writeData(std::string_view bytes) {
        const std::size_t width = 76 - 8 * std::min<std::size_t>(depth_, 7);
        const std::string encoded = base64::encode(bytes);
        line("<data>");
        for (std::size_t i = 0; i < encoded.size(); i += width) {
            line(std::string_view(encoded).substr(i, width));
        }
        line("</data>");
        return budget_.spendData(bytes.size(), depth_);
    }

    void line(std::string_view content) { text_.append(depth_, '\t').append(content).append(1, '\n'); }

    bool writeLine(const std::string& element) {
        line(element);
        return budget_.spendElement(depth_);
    }

    bool writeText(std::string_view tag, std::string_view content) {
        const std::string kept = storable(content);
        text_.append(depth_, '\t').append("<").append(tag).append(">");
        escape(kept);
        text_.append("</").append(tag).append(">\n");
        return budget_.spendText(kept, depth_);
    }

    void escape(std::string_view content) {
        for (const char c : content) {
            switch (c) {
            case '&':
                text_ += "&amp;";
                break;
            case '<':
                text_ += "&lt;";
                break;
            case '>':
                text_ += "&gt;";
                break;
            // A bare one would be read back as a line feed.
            case '\r':
                text_ += "&#13;";
                break;
            default:
                text_ += c;
            }
        }
    }

    std::string text_;
    std::size_t depth_ = 0;
    Budget budget_;
};

} // namespace

std::optional<Value> parseXml(std::string_view bytes) {
    Reader reader(nullptr);
    auto value = reader.read(bytes);
    if (value || reader.knowsEncoding()) {
        return value;
    }
    if (text::isValidUtf8(bytes)) {
        return Reader("UTF-8").read(bytes);
    }
    const std::string converted = text::fromWindows1252(bytes); // up to three times as long
    return converted.size() <= propertyListLimit ? Reader("UTF-8").read(converted) : std::nullopt;
}

std::optional<std::string> toXml(const Value& value) { return Writer().document(value); }

std::string storable(std::string_view text) {
    std::string kept = text::makeValidUtf8(text);
    std::erase_if(kept, [](unsigned char c) { return c < 0x20 && c != '\t' && c != '\n' && c != '\r'; });
    for (const char* nonCharacter : {"\uFFFE", "\uFFFF"}) {
        if (kept.find(nonCharacter) != std::string::npos) {
            kept = text::replaceAll(kept, nonCharacter, "");
        }
    }
    return kept;
}

} // namespace platform::property_list
