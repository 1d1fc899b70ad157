#include "logging/PendingLines.h"

#include "foundation/unicode.h"
#include "logging/HVLLogger.h"

#include <utility>

namespace havrel {

namespace text = platform::text;

namespace {

/// A character takes at most three bytes for each of its code units, so these many bytes fill a file by themselves.
constexpr std::size_t longestMessage = 4 * HVLLogger::maximumLength;

/// Several times what a file can hold, so that dropping is rare and cheap for each line.
constexpr std::size_t bytesLimit = std::size_t{4} << 20;

/// "\n", " : " and " ": what every line has beside its timestamp and message.
constexpr std::size_t shortestLine = 5;

std::size_t bytesOf(const std::string& message) { return sizeof(std::string) + message.size(); }

bool continuesCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; }

/// The end of a message whose beginning no file could hold.
std::string endOf(const std::string& message) {
    std::size_t start = message.size() - longestMessage;
    for (int most = 3; most > 0 && continuesCharacter(message[start]); --most) {
        ++start;
    }
    return message.substr(start);
}

} // namespace

void PendingLines::add(std::string message) {
    if (message.size() > longestMessage) {
        message = endOf(message);
    }
    if (!text::isValidUtf8(message)) {
        message = text::makeValidUtf8(message);
    }
    bytes_ += bytesOf(message);
    messages_.push_back(std::move(message));
    if (bytes_ > bytesLimit) {
        dropWhatTheFileCannotHold();
    }
}

std::vector<std::string> PendingLines::take() {
    bytes_ = 0;
    return std::exchange(messages_, {});
}

void PendingLines::dropWhatTheFileCannotHold() {
    std::size_t length = 0;
    auto oldest = messages_.end();
    bytes_ = 0;
    while (oldest != messages_.begin() && length <= HVLLogger::maximumLength) {
        --oldest;
        length += text::length(*oldest) + shortestLine;
        bytes_ += bytesOf(*oldest);
    }
    messages_.erase(messages_.begin(), oldest);
}

} // namespace havrel
