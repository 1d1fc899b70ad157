#include "foundation/value_builder.h"

#include "foundation/limits.h"

#include <utility>

namespace platform {

namespace {

/// The declarations at a document's head and the root element.
constexpr std::size_t frameSize = 256;
/// Of numbers and dates, the longest is "<integer>-9223372036854775808</integer>" with its line break.
constexpr std::size_t elementSize = 40;
constexpr std::size_t textTagsSize = std::string_view("<string></string>\n").size();
/// Of data, the shortest line has 20 characters.
constexpr std::size_t dataLineSize = 20;

} // namespace

bool Budget::spendElement(std::size_t depth) { return spend(elementSize + 2 * depth); }

bool Budget::spendText(std::string_view text, std::size_t depth) {
    std::size_t escapes = 0;
    for (const char c : text) {
        escapes += c == '&' || c == '<' || c == '>' || c == '\r' ? std::string_view("&amp;").size() - 1 : 0;
    }
    return spend(textTagsSize + depth + text.size() + escapes);
}

bool Budget::spendData(std::size_t bytes, std::size_t depth) {
    const std::size_t encoded = (bytes + 2) / 3 * 4;
    return spendElement(depth) && spend(encoded + (encoded / dataLineSize + 1) * (depth + 1));
}

bool Budget::spend(std::size_t size) {
    spent_ += size;
    return spent_ + frameSize <= propertyListLimit;
}

bool ValueBuilder::key(std::string name) {
    if (open_.empty() || open_.back().container.dictionary() == nullptr || open_.back().key ||
        !budget_.spendText(name, open_.size())) {
        return false;
    }
    open_.back().key = std::move(name);
    return true;
}

bool ValueBuilder::add(Value value) {
    const std::size_t depth = open_.size();
    const bool fits = value.visit([&](const std::string& words) { return budget_.spendText(words, depth); },
                                  [&](const Data& data) { return budget_.spendData(data.bytes.size(), depth); },
                                  [&](const auto&) { return budget_.spendElement(depth); });
    return fits && place(std::move(value));
}

bool ValueBuilder::close() {
    if (open_.empty() || open_.back().key) {
        return false;
    }
    Value container = std::move(open_.back().container);
    open_.pop_back();
    return place(std::move(container));
}

std::optional<Value> ValueBuilder::take() { return open_.empty() ? std::exchange(root_, std::nullopt) : std::nullopt; }

bool ValueBuilder::open(Value container) {
    if (open_.size() == depthLimit || !budget_.spendElement(open_.size())) {
        return false;
    }
    open_.push_back({std::move(container), std::nullopt});
    return true;
}

bool ValueBuilder::place(Value value) {
    if (open_.empty()) {
        const bool first = !root_;
        root_ = std::move(value);
        return first;
    }
    Level& level = open_.back();
    if (auto* array = level.container.as<Array>()) {
        array->push_back(std::move(value));
        return true;
    }
    if (!level.key) {
        return false;
    }
    level.container.as<Dictionary>()->insert_or_assign(std::move(*level.key), std::move(value));
    level.key.reset();
    return true;
}

} // namespace platform
