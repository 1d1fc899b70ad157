#include "fetch/message.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace platform::fetch {

namespace {

constexpr std::string_view magic = "HVF1";

/// A time-out has to fit into what libcurl takes, also where that has 32 bits.
constexpr std::uint32_t largestNumber = 0x7fff'ffff;
constexpr std::uint32_t largestCode = 9999;
constexpr std::size_t longestDescription = 512;

enum : std::uint32_t { isAnswer = 0, isError = 1 };

class Writer {
  public:
    void number(std::uint64_t value) {
        const auto clamped = static_cast<std::uint32_t>(std::min<std::uint64_t>(value, largestNumber));
        message_.append(reinterpret_cast<const char*>(&clamped), sizeof clamped); // NOLINT(*-reinterpret-cast)
    }

    void text(std::string_view text) {
        number(text.size());
        message_ += text;
    }

    void optional(const std::optional<std::string>& value) {
        number(value ? 1 : 0);
        if (value) {
            text(*value);
        }
    }

    std::string take() { return std::move(message_); }

  private:
    std::string message_{magic};
};

/// After something that isn't there, everything reads as zero or empty, and `isWhole` says so.
class Reader {
  public:
    explicit Reader(std::string_view message) : rest_(message) { isWhole_ = bytes(magic.size()) == magic; }

    std::uint32_t number() {
        std::uint32_t value = 0;
        if (const std::string_view field = bytes(sizeof value); !field.empty()) {
            std::memcpy(&value, field.data(), sizeof value);
        }
        isWhole_ = isWhole_ && value <= largestNumber;
        return value;
    }

    std::string_view text() { return bytes(number()); }

    std::optional<std::string> optional() {
        const std::uint32_t isPresent = number();
        isWhole_ = isWhole_ && isPresent <= 1;
        return isPresent == 1 ? std::optional<std::string>(text()) : std::nullopt;
    }

    bool isWhole() const { return isWhole_; }

    bool hasEnded() const { return isWhole_ && rest_.empty(); }

  private:
    std::string_view bytes(std::size_t count) {
        isWhole_ = isWhole_ && count <= rest_.size();
        const std::string_view field = rest_.substr(0, isWhole_ ? count : 0);
        rest_.remove_prefix(field.size());
        return field;
    }

    std::string_view rest_;
    bool isWhole_ = true;
};

bool isPrintable(char c) { return c >= ' ' && c <= '~'; }

} // namespace

Error transportError(int code, const std::string& description) { return {"NSURLErrorDomain", code, description}; }

std::optional<std::string> encode(const Request& request) {
    Writer writer;
    writer.number(static_cast<std::uint64_t>(std::max<std::int64_t>(1, request.timeout.count())));
    writer.number(request.longestAnswer);
    writer.text(request.method);
    writer.text(request.url);
    writer.optional(request.body);
    writer.text(request.proxy);
    writer.text(request.proxyExceptions);
    writer.optional(request.trustAnchors);
    writer.number(request.headers.size());
    for (const auto& [name, value] : request.headers) {
        writer.text(name);
        writer.text(value);
    }
    std::string message = writer.take();
    return message.size() <= longestRequest ? std::optional(std::move(message)) : std::nullopt;
}

std::optional<Request> decodeRequest(std::string_view message) {
    Reader reader(message);
    Request request;
    request.timeout = std::chrono::milliseconds(reader.number());
    request.longestAnswer = reader.number();
    request.method = reader.text();
    request.url = reader.text();
    request.body = reader.optional();
    request.proxy = reader.text();
    request.proxyExceptions = reader.text();
    request.trustAnchors = reader.optional();
    for (std::uint32_t headers = reader.number(); headers > 0 && reader.isWhole(); --headers) {
        const std::string_view name = reader.text();
        request.headers.emplace_back(name, reader.text());
    }
    return reader.hasEnded() ? std::optional(std::move(request)) : std::nullopt;
}

std::string encode(const Outcome& outcome) {
    Writer writer;
    if (const auto* error = std::get_if<Error>(&outcome)) {
        std::string description = error->localizedDescription.substr(0, longestDescription);
        std::ranges::replace_if(
            description, [](char c) { return !isPrintable(c); }, '?');
        writer.number(isError);
        writer.number(static_cast<std::uint64_t>(-error->code));
        writer.text(description);
    } else {
        writer.number(isAnswer);
        writer.text(std::get<std::string>(outcome));
    }
    return writer.take();
}

std::optional<Outcome> decodeOutcome(std::string message) {
    Reader reader(message);
    switch (reader.number()) {
    case isAnswer: {
        const std::size_t length = reader.text().size();
        if (!reader.hasEnded()) {
            return std::nullopt;
        }
        message.erase(0, message.size() - length); // which may be long: no second copy of it
        return message;
    }
    case isError: {
        const std::uint32_t code = reader.number();
        const std::string_view description = reader.text();
        if (!reader.hasEnded() || code == 0 || code > largestCode || description.size() > longestDescription ||
            !std::ranges::all_of(description, isPrintable)) {
            return std::nullopt;
        }
        return transportError(-static_cast<int>(code), std::string(description));
    }
    default:
        return std::nullopt;
    }
}

} // namespace platform::fetch
