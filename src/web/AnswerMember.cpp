#include "web/AnswerMember.h"

namespace havrel {

namespace {

bool isStorable(const platform::Value& value) {
    return value.visit([](std::nullptr_t) { return false; }, [](const platform::Array&) { return false; },
                       [](const platform::Dictionary&) { return false; },
                       [](const std::string& text) { return text.size() <= longestStoredText; },
                       [](const auto&) { return true; });
}

} // namespace

std::optional<platform::Value> storableMember(const std::optional<platform::Value>& answer, std::string_view name) {
    const platform::Value* value = answer ? answer->member(name) : nullptr;
    return value != nullptr && isStorable(*value) ? std::optional(*value) : std::nullopt;
}

} // namespace havrel
