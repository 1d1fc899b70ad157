#include "foundation/value_builder.h"

#include <utility>

namespace platform {

namespace {

std::size_t contentOf(const Value& value) {
    const auto* data = value.as<Data>();
    return value.text() != nullptr ? value.text()->size() : data != nullptr ? data->bytes.size() : 0;
}

} // namespace

bool ValueBuilder::key(std::string name) {
    if (open_.empty() || open_.back().container.dictionary() == nullptr || open_.back().key || !spend(name.size())) {
        return false;
    }
    open_.back().key = std::move(name);
    return true;
}

bool ValueBuilder::add(Value value) { return spend(contentOf(value)) && place(std::move(value)); }

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
    if (open_.size() == depthLimit || !spend(0)) {
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

bool ValueBuilder::spend(std::size_t bytes) {
    nodes_ += 1;
    content_ += bytes;
    return nodes_ <= nodeLimit && content_ <= contentLimit;
}

} // namespace platform
