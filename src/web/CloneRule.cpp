#include "web/CloneRule.h"

#include "foundation/format.h"
#include "foundation/unicode.h"

namespace havrel {

namespace {

namespace text = platform::text;
using platform::Value;

constexpr std::size_t longestDescription = 45;
constexpr std::size_t cutDescription = 44;

} // namespace

Installation installationOf(const std::optional<std::string>& serialNumber, const std::optional<Value>& saved) {
    if (!serialNumber || serialNumber->empty()) {
        return Installation::unidentified;
    }
    if (!saved || *saved == Value("")) {
        return Installation::fresh;
    }
    return *saved == Value(*serialNumber) ? Installation::unchanged : Installation::cloned;
}

bool sharesUniqueId(const std::optional<std::string>& candidate, const std::optional<Value>& saved) {
    return candidate && saved && *saved == Value(*candidate);
}

std::string describeClone(const std::string& description, std::int64_t number) {
    const bool isTooLong = text::length(description) > longestDescription;
    return text::format("%@_%ld", isTooLong ? text::prefix(description, cutDescription) : description, number);
}

} // namespace havrel
