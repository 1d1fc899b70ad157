#include "util/HVLLocalizableString.h"

#include "foundation/diagnostics.h"
#include "util/PropertyListFile.h"

#include <mutex>

namespace havrel {

namespace {

constexpr auto tablePath = "/Applications/HavrelSuite.app/Contents/Resources/HVLLocalizable.plist";

/// Loads the table if that hasn't succeeded yet; null if it fails again.
const platform::Dictionary* localizedStrings() {
    static std::mutex mutex;
    static std::optional<platform::Value> table;
    const std::lock_guard lock(mutex);
    if (!table) {
        std::optional<platform::Value> loaded;
        platform::diagnostics::contain("localized texts", [&] { loaded = readPropertyList(tablePath); });
        if (!loaded || loaded->dictionary() == nullptr) {
            return nullptr;
        }
        table = std::move(loaded);
    }
    return table->dictionary();
}

} // namespace

std::string HVLLocalizableString::doLocalizeString(const std::optional<std::string>& text,
                                                   const std::optional<std::string>& /*comment*/) {
    if (!text) {
        return {};
    }
    if (const auto* table = localizedStrings()) {
        const auto found = table->find(*text);
        if (found != table->end() && found->second.text() != nullptr) {
            return *found->second.text();
        }
    }
    return *text;
}

} // namespace havrel
