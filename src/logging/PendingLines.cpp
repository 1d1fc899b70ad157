#include "logging/PendingLines.h"

#include "foundation/unicode.h"
#include "logging/HVLLogger.h"

#include <string_view>
#include <utility>

namespace havrel {

namespace text = platform::text;

namespace {

/// In bytes. UTF-8 takes at most three per UTF-16 code unit, so a longer message fills the file by itself.
constexpr std::size_t longestMessage = 4 * HVLLogger::maximumLength;

/// Several times what a file can hold, so that the scan for droppable messages is rare.
constexpr std::size_t bytesLimit = std::size_t{4} << 20;

/// "\n", " : " and " ", which every line has besides its timestamp and message.
constexpr std::size_t separatorsLength = 5;

std::size_t bytesOf(const std::string& message) { return sizeof(std::string) + message.size(); }

} // namespace

void PendingLines::add(std::string message) {
    if (message.size() > longestMessage) {
        message = text::withoutCutCharacter(std::string_view(message).substr(message.size() - longestMessage));
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
        length += text::length(*oldest) + separatorsLength;
        bytes_ += bytesOf(*oldest);
    }
    messages_.erase(messages_.begin(), oldest);
}

} // namespace havrel
